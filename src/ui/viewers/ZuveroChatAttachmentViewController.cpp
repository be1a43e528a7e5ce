#include "ZuveroChatAttachmentViewController.h"

#include "ZVXAnimatedImageView.h"
#include "ZVXLocalization.h"
#include "ZVXLogging.h"
#include "ZVXZoomImageView.h"
#include "Zuvero.h"
#include "ZuveroConnection.h"
#include "ZuveroNotificationCenter.h"

#include <QBuffer>
#include <QDesktopServices>
#include <QDir>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QPdfDocument>
#include <QPdfView>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSaveFile>
#include <QScrollBar>
#include <QStackedWidget>
#include <QStandardPaths>
#include <QStyle>
#include <QVBoxLayout>

#include <functional>

#include <unistd.h>

namespace {

QString localized(const char *key)
{
    return ZVXLocalization::localizeString(QString::fromLatin1(key));
}

bool isPlainText(const ZuveroChatAttachment &attachment)
{
    return attachment.contentType().value_or(QString()).section(u';', 0, 0).trimmed().toLower()
        == QLatin1String("text/plain");
}

} // namespace

class ZuveroChatAttachmentViewControllerPrivate : public QObject
{
public:
    explicit ZuveroChatAttachmentViewControllerPrivate(ZuveroChatAttachmentViewController *q)
        : q(q)
    { }

    void load();
    void showPreview();
    void showPicture(const ZuveroImagePtr &record, const ZuveroError &error);
    void showFile(const std::optional<QByteArray> &bytes, const ZuveroError &error);
    void showFailure(const QString &text);
    //! Shows the label with \a text, asked again when the language changes.
    void showNotice(std::function<QString()> text);
    void retranslate();
    void makePdfView();
    void fitPdf();
    //! The file kept for the desktop and for sharing, written on first use; empty on failure.
    QString localCopy();
    QString fileName() const;
    void updateButtons();

    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (watched == pdfView && event->type() == QEvent::Resize)
            fitPdf();
        return QObject::eventFilter(watched, event);
    }

    ZuveroChatAttachmentViewController *const q;
    QPointer<Zuvero> facade;
    ZuveroChatAttachmentPtr attachment;
    bool started = false;
    bool fullShown = false;
    std::optional<QByteArray> bytes;
    ZuveroNotificationObserver previewObserver;
    std::function<QString()> notice;

    QStackedWidget *pages = nullptr;
    ZVXZoomImageView *zoomView = nullptr;
    ZVXAnimatedImageView *animatedView = nullptr;
    QPdfView *pdfView = nullptr;
    QPdfDocument *pdf = nullptr;
    QBuffer *pdfBytes = nullptr;
    QPlainTextEdit *textView = nullptr;
    QLabel *notSupportedLabel = nullptr;
    QWidget *zoomButtons = nullptr;
    QPushButton *saveAsButton = nullptr;
    QPushButton *openWithButton = nullptr;
};

ZuveroChatAttachmentViewController::ZuveroChatAttachmentViewController(QWidget *parent)
    : QWidget(parent)
    , d(std::make_unique<ZuveroChatAttachmentViewControllerPrivate>(this))
{
    setObjectName(QStringLiteral("attachmentViewer"));
    setAutoFillBackground(true);
    QPalette white = palette();
    white.setColor(QPalette::Window, Qt::white);
    setPalette(white);

    d->pages = new QStackedWidget(this);
    d->zoomView = new ZVXZoomImageView(d->pages);
    d->zoomView->setObjectName(QStringLiteral("zoomView"));
    d->animatedView = new ZVXAnimatedImageView(d->pages);
    d->animatedView->setObjectName(QStringLiteral("animatedView"));
    d->textView = new QPlainTextEdit(d->pages);
    d->textView->setObjectName(QStringLiteral("textView"));
    d->textView->setReadOnly(true);
    d->textView->setPalette(white);
    d->notSupportedLabel = new QLabel(d->pages);
    d->notSupportedLabel->setObjectName(QStringLiteral("notSupportedLabel"));
    d->notSupportedLabel->setWordWrap(true);
    d->notSupportedLabel->setAlignment(Qt::AlignCenter);
    d->notSupportedLabel->setTextFormat(Qt::PlainText);
    d->notSupportedLabel->setMargin(16);
    const QList<QWidget *> pages{d->zoomView, d->animatedView, d->textView, d->notSupportedLabel};
    for (QWidget *page : pages)
        d->pages->addWidget(page);

    auto *bar = new QWidget(this);
    auto *barLayout = new QHBoxLayout(bar);
    barLayout->setContentsMargins(8, 4, 8, 4);
    d->zoomButtons = new QWidget(bar);
    auto *zoomLayout = new QHBoxLayout(d->zoomButtons);
    zoomLayout->setContentsMargins(0, 0, 0, 0);
    const auto zoomButton = [this](const char *name, const QString &text, auto step) {
        auto *button = new QPushButton(text, d->zoomButtons);
        button->setObjectName(QString::fromLatin1(name));
        connect(button, &QPushButton::clicked, d->zoomView, step);
        d->zoomButtons->layout()->addWidget(button);
    };
    zoomButton("zoomOutButton", QStringLiteral("−"), &ZVXZoomImageView::zoomOut);
    zoomButton("fitButton", QString(), &ZVXZoomImageView::fitToView);
    zoomButton("zoomInButton", QStringLiteral("+"), &ZVXZoomImageView::zoomIn);
    barLayout->addWidget(d->zoomButtons);
    barLayout->addStretch(1);
    d->saveAsButton = new QPushButton(bar);
    d->saveAsButton->setObjectName(QStringLiteral("saveAsButton"));
    d->openWithButton = new QPushButton(bar);
    d->openWithButton->setObjectName(QStringLiteral("openWithButton"));
    barLayout->addWidget(d->saveAsButton);
    barLayout->addWidget(d->openWithButton);
    connect(d->saveAsButton, &QPushButton::clicked, this,
            &ZuveroChatAttachmentViewController::saveAs);
    connect(d->openWithButton, &QPushButton::clicked, this,
            &ZuveroChatAttachmentViewController::openWith);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(d->pages, 1);
    layout->addWidget(bar);
    d->updateButtons();
    d->retranslate();
}

void ZuveroChatAttachmentViewController::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::LanguageChange)
        d->retranslate();
}

void ZuveroChatAttachmentViewControllerPrivate::retranslate()
{
    q->setWindowTitle(fileName());
    const std::pair<const char *, const char *> buttons[]
        = {{"zoomOutButton", "zuveroZoomOutButtonTitle"},
           {"fitButton", "zuveroFitButtonTitle"},
           {"zoomInButton", "zuveroZoomInButtonTitle"}};
    for (const auto &[name, key] : buttons) {
        if (auto *button = zoomButtons->findChild<QPushButton *>(QLatin1String(name))) {
            button->setAccessibleName(localized(key));
            button->setToolTip(button->accessibleName());
        }
    }
    // The middle one says what it does; the others show signs.
    zoomButtons->findChild<QPushButton *>(QStringLiteral("fitButton"))
        ->setText(localized("zuveroFitButtonTitle"));
    saveAsButton->setText(localized("zuveroSaveAsButtonTitle"));
    openWithButton->setText(localized("zuveroOpenWithButtonTitle"));
    if (notice)
        notSupportedLabel->setText(notice());
}

ZuveroChatAttachmentViewController::~ZuveroChatAttachmentViewController()
{
    // The view reads the document while it goes; the document must outlive it.
    delete d->pdfView;
}

Zuvero *ZuveroChatAttachmentViewController::apiInstance() const
{
    return d->facade;
}

void ZuveroChatAttachmentViewController::setApiInstance(Zuvero *facade)
{
    d->facade = facade;
}

ZuveroChatAttachmentPtr ZuveroChatAttachmentViewController::attachment() const
{
    return d->attachment;
}

void ZuveroChatAttachmentViewController::setAttachment(const ZuveroChatAttachmentPtr &attachment)
{
    d->attachment = attachment;
    setWindowTitle(d->fileName());
}

void ZuveroChatAttachmentViewController::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    if (!d->started && d->facade && d->attachment) {
        d->started = true;
        d->load();
    }
}

QString ZuveroChatAttachmentViewControllerPrivate::fileName() const
{
    // Only the last part: a name from a message must not reach into other folders.
    const QString name
        = attachment ? QFileInfo(attachment->filename().value_or(QString())).fileName() : QString();
    return name.isEmpty() || name == QLatin1String("..") ? localized("zuveroAttachmentViewTitle")
                                                         : name;
}

void ZuveroChatAttachmentViewControllerPrivate::updateButtons()
{
    saveAsButton->setEnabled(bytes.has_value());
    openWithButton->setEnabled(bytes.has_value());
    zoomButtons->setVisible(pages->currentWidget() == zoomView && !zoomView->image().isNull());
}

void ZuveroChatAttachmentViewControllerPrivate::load()
{
    showPreview();
    QPointer<ZuveroChatAttachmentViewController> alive = q;
    if (attachment->isImage()) {
        facade->connection()->loadAttachmentDocument(
            attachment, [alive](const ZuveroImagePtr &record, const ZuveroError &error) {
                if (alive)
                    alive->d->showPicture(record, error);
            });
    } else {
        facade->connection()->loadAttachmentFile(
            attachment, [alive](const std::optional<QByteArray> &bytes, const ZuveroError &error) {
                if (alive)
                    alive->d->showFile(bytes, error);
            });
    }
}

void ZuveroChatAttachmentViewControllerPrivate::showPreview()
{
    ZuveroConnection *connection = facade->connection();
    ZuveroImagePtr preview = connection->cachedAttachmentPreview(attachment);
    if (!preview) {
        previewObserver = ZuveroNotificationCenter::defaultCenter()->addObserver(
            ZuveroAttachmentPreviewDidLoadNotification, attachment,
            [this](const ZuveroNotification &) {
                previewObserver.remove();
                if (!fullShown)
                    showPreview();
            });
        preview = connection->loadAttachmentPreview(attachment);
    }
    if (preview && !preview->image().isNull()) {
        previewObserver.remove();
        zoomView->setImage(preview->image());
        pages->setCurrentWidget(zoomView);
        updateButtons();
    }
}

void ZuveroChatAttachmentViewControllerPrivate::showPicture(const ZuveroImagePtr &record,
                                                            const ZuveroError &error)
{
    fullShown = true;
    previewObserver.remove();
    if (!record || record->image().isNull()) {
        showFailure(error.localizedDescription());
        return;
    }
    bytes = record->raw();
    if (record->isGif()) {
        animatedView->setImage(ZVXAnimatedImage(record->raw()));
        pages->setCurrentWidget(animatedView);
        animatedView->startAnimating();
    } else {
        zoomView->setImage(record->image());
        pages->setCurrentWidget(zoomView);
    }
    updateButtons();
}

void ZuveroChatAttachmentViewControllerPrivate::showFile(const std::optional<QByteArray> &loaded,
                                                         const ZuveroError &error)
{
    fullShown = true;
    previewObserver.remove();
    if (!loaded) {
        showFailure(error.localizedDescription());
        return;
    }
    bytes = loaded;
    if (attachment->isPdf()) {
        makePdfView();
        delete pdfBytes;
        pdfBytes = new QBuffer(q);
        pdfBytes->setData(*bytes);
        pdfBytes->open(QIODevice::ReadOnly);
        pdf->load(pdfBytes);
        if (pdf->status() != QPdfDocument::Status::Ready || pdf->pageCount() == 0) {
            showNotice([] { return localized("zuveroUnreadablePDFMessage"); });
            return;
        }
        pages->setCurrentWidget(pdfView);
        fitPdf();
    } else if (isPlainText(*attachment)) {
        textView->setPlainText(QString::fromUtf8(*bytes));
        pages->setCurrentWidget(textView);
    } else {
        // Nothing here shows this kind of file: the desktop's application for it does.
        q->openWith();
        showNotice([this] { return localized("zuveroOpenedOutsideMessage").arg(fileName()); });
    }
    updateButtons();
}

void ZuveroChatAttachmentViewControllerPrivate::showFailure(const QString &text)
{
    if (text.isEmpty())
        showNotice([] { return localized("zuveroUnopenableAttachmentMessage"); });
    else
        showNotice([text] { return text; });
    updateButtons();
}

void ZuveroChatAttachmentViewControllerPrivate::showNotice(std::function<QString()> text)
{
    notice = std::move(text);
    notSupportedLabel->setText(notice());
    pages->setCurrentWidget(notSupportedLabel);
}

void ZuveroChatAttachmentViewControllerPrivate::makePdfView()
{
    // Made for documents only: Qt's PDF view costs a renderer thread and leaves parts of it
    // behind when deleted, which a picture has no need of.
    if (pdfView)
        return;
    pdf = new QPdfDocument(q);
    pdfView = new QPdfView(pages);
    pdfView->setObjectName(QStringLiteral("pdfView"));
    pdfView->setPageMode(QPdfView::PageMode::MultiPage);
    // The view's own fitting modes can loop forever at some sizes: the fit is computed here.
    pdfView->setZoomMode(QPdfView::ZoomMode::Custom);
    pdfView->setDocument(pdf);
    pdfView->installEventFilter(this);
    pages->addWidget(pdfView);
}

void ZuveroChatAttachmentViewControllerPrivate::fitPdf()
{
    if (!pdf || pdf->pageCount() == 0)
        return;
    // The page's width fills the view's, less its margins and a scroll bar that may come.
    const QMargins margins = pdfView->documentMargins();
    const int scrollBar = pdfView->style()->pixelMetric(QStyle::PM_ScrollBarExtent);
    const qreal available = pdfView->width() - margins.left() - margins.right() - scrollBar
        - 2 * pdfView->frameWidth();
    const qreal points = pdf->pagePointSize(0).width();
    const qreal pixelsPerPoint = pdfView->logicalDpiX() / 72.0;
    if (available > 0 && points > 0)
        pdfView->setZoomFactor(available / (points * pixelsPerPoint));
}

QString ZuveroChatAttachmentViewControllerPrivate::localCopy()
{
    if (!bytes || !attachment)
        return {};
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation)
        + QStringLiteral("/Zuvero/Attachments");
    const QString uuid = QFileInfo(attachment->uuid()).fileName();
    const QString path = folder + u'/' + (uuid.isEmpty() ? QStringLiteral("attachment") : uuid);
    if (QFileInfo::exists(path))
        return path;
    QSaveFile file(path);
    if (!QDir().mkpath(folder) || !file.open(QIODevice::WriteOnly) || file.write(*bytes) < 0
        || !file.commit()) {
        ZVXLogError(QStringLiteral("ZuveroChatAttachmentViewController: cannot keep the file: %1")
                        .arg(file.errorString()));
        return {};
    }
    return path;
}

void ZuveroChatAttachmentViewController::saveAs()
{
    if (!d->bytes)
        return;
    auto *dialog = new QFileDialog(this, localized("zuveroSaveAsButtonTitle"));
    dialog->setObjectName(QStringLiteral("saveAsDialog"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->setDirectory(QDir::homePath());
    dialog->selectFile(d->fileName());
    const QByteArray bytes = *d->bytes;
    connect(dialog, &QFileDialog::fileSelected, this, [bytes](const QString &path) {
        QSaveFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes) < 0 || !file.commit())
            ZVXLogError(QStringLiteral("ZuveroChatAttachmentViewController: cannot save: %1")
                            .arg(file.errorString()));
    });
    dialog->open();
}

void ZuveroChatAttachmentViewController::openWith()
{
    const QString copy = d->localCopy();
    if (copy.isEmpty())
        return;
    const QString link = createLinkToFile(copy, d->fileName());
    if (!link.isEmpty())
        QDesktopServices::openUrl(QUrl::fromLocalFile(link));
}

QString ZuveroChatAttachmentViewController::createLinkToFile(const QString &file,
                                                             const QString &name)
{
    const QString base = QFileInfo(name).fileName();
    if (base.isEmpty() || base == QLatin1String(".."))
        return {};
    const QString link = QDir::temp().filePath(base);
    // What an earlier share left there is replaced: the name stays the attachment's own.
    QFile::remove(link);
    if (::link(QFile::encodeName(file).constData(), QFile::encodeName(link).constData()) != 0) {
        ZVXLogError(QStringLiteral("ZuveroChatAttachmentViewController: cannot link %1: %2")
                        .arg(base, QString::fromLocal8Bit(strerror(errno))));
        return {};
    }
    return link;
}
