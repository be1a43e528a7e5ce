#include "ZVXDevServerSuite.h"
#include "ZVXManualClock.h"
#include "ZVXTemporaryUserDefaults.h"
#include "Zuvero.h"
#include "ZuveroChatAttachmentViewController.h"
#include "ZuveroChatLocationViewController.h"
#include "ZuveroChatView.h"
#include "ZuveroChatViewController.h"
#include "ZuveroNavigationController.h"

#include <QApplication>
#include <QBuffer>
#include <QDesktopServices>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPainter>
#include <QPdfView>
#include <QPdfWriter>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QUuid>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

QByteArray png(const QImage &image)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

// A page of A6 with a black bar along its top, the rest left unpainted.
QByteArray pdfWithABar()
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QPdfWriter writer(&buffer);
    writer.setPageSize(QPageSize(QPageSize::A6));
    writer.setResolution(72);
    QPainter painter(&writer);
    painter.fillRect(QRect(0, 0, 200, 20), Qt::black);
    painter.end();
    return bytes;
}

// Saves \a image as <name>.png in the folder ZUVERO_SCREENSHOT_DIR names, if any.
void keepScreenshot(const QImage &image, const QString &name)
{
    const QString folder = qEnvironmentVariable("ZUVERO_SCREENSHOT_DIR");
    if (!folder.isEmpty())
        image.save(QDir(folder).filePath(name + u".png"_s));
}

// The dev server's tiles are greenish grey in every shade; the map's background is plain grey.
bool isTile(QColor pixel)
{
    return pixel.green() > pixel.red() && pixel.red() > pixel.blue();
}

bool isPin(QColor pixel)
{
    return qAbs(pixel.red() - 0xe5) < 8 && qAbs(pixel.green() - 0x39) < 8
        && qAbs(pixel.blue() - 0x35) < 8;
}

bool nearly(QColor a, QColor b)
{
    return qAbs(a.red() - b.red()) < 24 && qAbs(a.green() - b.green()) < 24
        && qAbs(a.blue() - b.blue()) < 24;
}

struct FileStatus
{
    quint64 inode = 0;
    quint64 links = 0;
};

FileStatus fileStatus(const QString &path)
{
    struct stat status = {};
    if (::stat(QFile::encodeName(path).constData(), &status) != 0)
        return {};
    return {quint64(status.st_ino), quint64(status.st_nlink)};
}

} // namespace

// The desktop's handler as the viewer reaches it, for the test's eyes only.
class OpenedFiles : public QObject
{
    Q_OBJECT

public:
    QList<QUrl> urls;

public Q_SLOTS:
    void open(const QUrl &url) { urls << url; }
};

class TestViewers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();

    void pictureShowsItsPreviewThenItself();
    void documentShowsItsContent_data();
    void documentShowsItsContent();
    void failedLoadLeavesOnlyTheLabel_data();
    void failedLoadLeavesOnlyTheLabel();
    void otherFilesGoToTheDesktopByTheirOwnName();
    void chatScreenPushesTheViewer();
    void mapShowsThePlaceUnderItsPin();
    void mapWithoutAPlaceHasNoPin();

private:
    std::unique_ptr<Zuvero> facade(const QString &user);
    //! Sends a message with one file as \a zuvero's user and returns the file as the server lists
    //! it.
    ZuveroChatAttachmentPtr upload(Zuvero *zuvero, const QString &filename,
                                   const QByteArray &contentType, const QByteArray &bytes);
    ZuveroChatAttachmentViewController *show(Zuvero *zuvero, const ZuveroChatAttachmentPtr &file);

    ZVXDevServerSuite m_suite;
    std::unique_ptr<ZVXTemporaryUserDefaults> m_defaults;
    std::unique_ptr<ZVXManualClock> m_clock;
    std::unique_ptr<QWidget> m_window;
    OpenedFiles m_opened;
};

void TestViewers::initTestCase()
{
    // Copies the viewer keeps go to a test folder, not the user's own.
    QStandardPaths::setTestModeEnabled(true);
    QDesktopServices::setUrlHandler(u"file"_s, &m_opened, "open");
    QVERIFY(m_suite.start());
}

void TestViewers::init()
{
    m_defaults = std::make_unique<ZVXTemporaryUserDefaults>();
    m_clock = std::make_unique<ZVXManualClock>(QDateTime::currentDateTimeUtc());
    m_opened.urls.clear();
    QVERIFY(m_suite.reset());
}

void TestViewers::cleanup()
{
    m_window.reset();
    // What the closed viewers handed to deleteLater() goes now, not after the last test.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    m_clock.reset();
    m_defaults.reset();
}

std::unique_ptr<Zuvero> TestViewers::facade(const QString &user)
{
    auto zuvero = m_suite.facade(user);
    if (!ZVXDevServerSuite::registered(zuvero.get()))
        qWarning("the facade did not register");
    return zuvero;
}

ZuveroChatAttachmentPtr TestViewers::upload(Zuvero *zuvero, const QString &filename,
                                            const QByteArray &contentType, const QByteArray &bytes)
{
    ZVXDevClient user(m_suite.server(), zuvero->jwt().value_or(QString()));
    const QString file = QUuid::createUuid().toString(QUuid::WithoutBraces);
    const QVariantMap message{
        {u"uuid"_s, QUuid::createUuid().toString(QUuid::WithoutBraces)},
        {u"sender"_s, u"user"_s},
        {u"attachments"_s,
         QVariantList{QVariantMap{{u"uuid"_s, file}, {u"filename"_s, filename}}}}};
    if (user.send(message, {{file, contentType, bytes}}).status != 200)
        return nullptr;
    for (const QVariant &sent :
         user.get(u"/api/1.0/messages"_s).json().value(u"messages"_s).toList()) {
        for (const QVariant &attachment : sent.toMap().value(u"attachments"_s).toList())
            if (attachment.toMap().value(u"uuid"_s) == file)
                return ZuveroChatAttachment::initWithPropertyList(attachment);
    }
    return nullptr;
}

ZuveroChatAttachmentViewController *TestViewers::show(Zuvero *zuvero,
                                                      const ZuveroChatAttachmentPtr &file)
{
    m_window = std::make_unique<QWidget>();
    auto *viewer = new ZuveroChatAttachmentViewController(m_window.get());
    viewer->setApiInstance(zuvero);
    viewer->setAttachment(file);
    m_window->resize(400, 520);
    viewer->resize(m_window->size());
    m_window->show();
    return viewer;
}

void TestViewers::pictureShowsItsPreviewThenItself()
{
    auto zuvero = facade(u"picture"_s);
    QImage picture(1200, 900, QImage::Format_RGB32);
    picture.fill(QColor(200, 30, 40));
    {
        // A sun in the middle: the centre of the view is yellow, its surroundings red.
        QPainter painter(&picture);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor(250, 210, 40));
        painter.drawEllipse(QPoint(600, 450), 150, 150);
    }
    const auto file = upload(zuvero.get(), u"sunset.png"_s, "image/png", png(picture));
    QVERIFY(file);
    QVERIFY(!file->previewURL().isEmpty());
    // The file is held back: what shows meanwhile is the server's small preview.
    m_suite.admin().postJSON(u"/admin/faults"_s,
                             {{u"path"_s, u"/api/1.0/files/"_s + file->uuid()},
                              {u"kind"_s, u"delay"_s},
                              {u"delayMs"_s, 1500},
                              {u"count"_s, 1}});
    auto *viewer = show(zuvero.get(), file);
    QCOMPARE(viewer->windowTitle(), u"sunset.png"_s);
    auto *zoom = viewer->findChild<QWidget *>(u"zoomView"_s);
    auto *save = viewer->findChild<QPushButton *>(u"saveAsButton"_s);
    QTRY_VERIFY(zoom->isVisible()
                && nearly(viewer->grab().toImage().pixelColor(200, 200), QColor(250, 210, 40)));
    QVERIFY(!save->isEnabled());

    // Then the whole file, through the token the connection added to its address.
    QTRY_VERIFY_WITH_TIMEOUT(save->isEnabled(), 10000);
    QCOMPARE(m_suite.admin().requestCount(u"GET /api/1.0/files/{uuid}"_s), 1);
    const QImage shown = viewer->grab().toImage();
    keepScreenshot(shown, u"viewer-picture"_s);
    QVERIFY(nearly(shown.pixelColor(200, 200), QColor(250, 210, 40)));

    // Zoomed in by the button: the picture still covers the middle, now past the fitted edges.
    const QColor above = shown.pixelColor(200, 20);
    QTest::mouseClick(viewer->findChild<QPushButton *>(u"zoomInButton"_s), Qt::LeftButton);
    QTest::mouseClick(viewer->findChild<QPushButton *>(u"zoomInButton"_s), Qt::LeftButton);
    const QImage zoomed = viewer->grab().toImage();
    QVERIFY(nearly(above, Qt::white));
    QVERIFY(nearly(zoomed.pixelColor(200, 20), QColor(200, 30, 40)));
}

void TestViewers::documentShowsItsContent_data()
{
    QTest::addColumn<QString>("filename");
    QTest::addColumn<QByteArray>("contentType");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("page");

    QTest::newRow("pdf") << u"bar.pdf"_s << QByteArray("application/pdf") << pdfWithABar()
                         << u"pdfView"_s;
    QTest::newRow("plain text") << u"notes.txt"_s << QByteArray("text/plain; charset=utf-8")
                                << u"Order 1234: two crates, one réclamation.\n"_s.toUtf8()
                                << u"textView"_s;
}

void TestViewers::documentShowsItsContent()
{
    QFETCH(QString, filename);
    QFETCH(QByteArray, contentType);
    QFETCH(QByteArray, bytes);
    QFETCH(QString, page);

    auto zuvero = facade(u"reader"_s);
    const auto file = upload(zuvero.get(), filename, contentType, bytes);
    QVERIFY(file);
    auto *viewer = show(zuvero.get(), file);
    // The PDF page comes into being with a document to show.
    QWidget *shown = nullptr;
    QTRY_VERIFY_WITH_TIMEOUT((shown = viewer->findChild<QWidget *>(page)) && shown->isVisible(),
                             10000);
    QVERIFY(!viewer->findChild<QLabel *>(u"notSupportedLabel"_s)->isVisible());
    QVERIFY(viewer->findChild<QPushButton *>(u"openWithButton"_s)->isEnabled());

    // Save As writes the file as it came, under the name the user gives.
    QTemporaryDir folder;
    QTest::mouseClick(viewer->findChild<QPushButton *>(u"saveAsButton"_s), Qt::LeftButton);
    QFileDialog *dialog = nullptr;
    QTRY_VERIFY((dialog = viewer->findChild<QFileDialog *>(u"saveAsDialog"_s)));
    QCOMPARE(dialog->windowModality(), Qt::WindowModal);
    QCOMPARE(dialog->selectedFiles().value(0).section(u'/', -1), filename);
    const QString target = folder.filePath(u"copy of "_s + filename);
    dialog->findChild<QLineEdit *>(u"fileNameEdit"_s)->setText(target);
    QTest::mouseClick(
        dialog->findChild<QDialogButtonBox *>(u"buttonBox"_s)->button(QDialogButtonBox::Save),
        Qt::LeftButton);
    QFile saved(target);
    QTRY_VERIFY(saved.exists());
    QVERIFY(saved.open(QIODevice::ReadOnly));
    QCOMPARE(saved.readAll(), bytes);

    if (auto *text = qobject_cast<QPlainTextEdit *>(shown)) {
        QCOMPARE(text->toPlainText().toUtf8(), bytes);
        QVERIFY(text->isReadOnly());
        return;
    }
    // The page, drawn on white under its black bar, fills the view's width.
    QImage grabbed;
    QTRY_VERIFY([&] {
        grabbed = shown->grab().toImage();
        // Somewhere in the top 80 pixels, the bar; below it, a white page.
        bool bar = false;
        for (int y = 0; y < 80 && !bar; ++y)
            bar = nearly(grabbed.pixelColor(grabbed.width() / 2, y), Qt::black);
        return bar && nearly(grabbed.pixelColor(grabbed.width() / 2, 200), Qt::white)
            && nearly(grabbed.pixelColor(15, 200), Qt::white)
            && nearly(grabbed.pixelColor(grabbed.width() - 25, 200), Qt::white);
    }());
    keepScreenshot(viewer->grab().toImage(), u"viewer-pdf"_s);
}

void TestViewers::failedLoadLeavesOnlyTheLabel_data()
{
    QTest::addColumn<QString>("filename");
    QTest::addColumn<QByteArray>("contentType");
    QTest::addColumn<QByteArray>("bytes");

    QImage picture(64, 64, QImage::Format_RGB32);
    picture.fill(Qt::blue);
    QTest::newRow("picture") << u"blue.png"_s << QByteArray("image/png") << png(picture);
    QTest::newRow("pdf") << u"bar.pdf"_s << QByteArray("application/pdf") << pdfWithABar();
}

void TestViewers::failedLoadLeavesOnlyTheLabel()
{
    QFETCH(QString, filename);
    QFETCH(QByteArray, contentType);
    QFETCH(QByteArray, bytes);

    auto zuvero = facade(u"unlucky"_s);
    const auto file = upload(zuvero.get(), filename, contentType, bytes);
    QVERIFY(file);
    m_suite.admin().postJSON(u"/admin/faults"_s,
                             {{u"path"_s, u"/api/1.0/files/"_s + file->uuid()},
                              {u"kind"_s, u"status"_s},
                              {u"status"_s, 503},
                              {u"count"_s, 1}});
    auto *viewer = show(zuvero.get(), file);
    auto *label = viewer->findChild<QLabel *>(u"notSupportedLabel"_s);
    QTRY_VERIFY_WITH_TIMEOUT(label->isVisible(), 10000);
    QVERIFY(!label->text().isEmpty());
    for (const char *page : {"zoomView", "animatedView", "pdfView", "textView"}) {
        const QWidget *shown = viewer->findChild<QWidget *>(QString::fromLatin1(page));
        QVERIFY2(!shown || !shown->isVisible(), page);
    }
    QVERIFY(!viewer->findChild<QPushButton *>(u"saveAsButton"_s)->isEnabled());
}

void TestViewers::otherFilesGoToTheDesktopByTheirOwnName()
{
    auto zuvero = facade(u"sharer"_s);
    const QByteArray bytes("PK\x03\x04 not really a spreadsheet");
    const auto file = upload(zuvero.get(), u"Q3 figures.ods"_s,
                             "application/vnd.oasis.opendocument.spreadsheet", bytes);
    QVERIFY(file);
    auto *viewer = show(zuvero.get(), file);

    // Nothing here shows it: the desktop gets it at once, as a link named after the file.
    QTRY_COMPARE_WITH_TIMEOUT(m_opened.urls.size(), 1, 10000);
    const QString link = m_opened.urls.first().toLocalFile();
    QCOMPARE(link, QDir::temp().filePath(u"Q3 figures.ods"_s));
    QFile opened(link);
    QVERIFY(opened.open(QIODevice::ReadOnly));
    QCOMPARE(opened.readAll(), bytes);
    const FileStatus first = fileStatus(link);
    QCOMPARE(first.links, quint64(2));
    QVERIFY(
        viewer->findChild<QLabel *>(u"notSupportedLabel"_s)->text().contains(u"Q3 figures.ods"_s));

    // Opened again, the link is made anew, to the same kept copy.
    QTest::mouseClick(viewer->findChild<QPushButton *>(u"openWithButton"_s), Qt::LeftButton);
    QCOMPARE(m_opened.urls.size(), 2);
    QCOMPARE(m_opened.urls.last(), m_opened.urls.first());
    QCOMPARE(fileStatus(link).inode, first.inode);
    QCOMPARE(fileStatus(link).links, quint64(2));
    QFile::remove(link);

    // In another language the notice reads anew, still naming the file, and so do the buttons.
    const auto switchTo = [](const QLocale &locale) {
        QLocale::setDefault(locale);
        QEvent change(QEvent::LanguageChange);
        QCoreApplication::sendEvent(QCoreApplication::instance(), &change);
        QCoreApplication::processEvents();
    };
    const auto english = qScopeGuard([&] { switchTo(QLocale(QLocale::English)); });
    switchTo(QLocale(QLocale::French));
    QCOMPARE(viewer->findChild<QLabel *>(u"notSupportedLabel"_s)->text(),
             u"«\u00a0Q3 figures.ods\u00a0» a été ouvert dans l’application prévue pour ce type "
             u"de fichier."_s);
    QCOMPARE(viewer->findChild<QPushButton *>(u"saveAsButton"_s)->text(), u"Enregistrer sous…"_s);
    QCOMPARE(viewer->windowTitle(), u"Q3 figures.ods"_s);
}

void TestViewers::chatScreenPushesTheViewer()
{
    auto zuvero = facade(u"tapper"_s);
    QImage picture(64, 64, QImage::Format_RGB32);
    picture.fill(Qt::green);
    const auto file = upload(zuvero.get(), u"green.png"_s, "image/png", png(picture));
    QVERIFY(file);
    auto *screen = new ZuveroChatViewController;
    screen->setApiInstance(zuvero.get());
    auto navigation = std::make_unique<ZuveroNavigationController>(screen);
    navigation->resize(400, 600);
    navigation->show();
    QSignalSpy activated(screen, &ZuveroChatViewController::attachmentActivated);

    // What the list does when the user taps the bubble.
    screen->chatView()->delegate().lock()->chatViewOpenAttachment(screen->chatView(), file);
    QCOMPARE(activated.size(), 1);
    auto *viewer
        = qobject_cast<ZuveroChatAttachmentViewController *>(navigation->topViewController());
    QVERIFY(viewer);
    QCOMPARE(viewer->attachment(), file);
    QCOMPARE(viewer->apiInstance(), zuvero.get());
    QCOMPARE(navigation->findChild<QLabel *>(u"titleLabel"_s)->text(), u"green.png"_s);
    QTRY_VERIFY_WITH_TIMEOUT(viewer->findChild<QPushButton *>(u"saveAsButton"_s)->isEnabled(),
                             10000);

    QTest::mouseClick(navigation->findChild<QPushButton *>(u"backButton"_s), Qt::LeftButton);
    QCOMPARE(navigation->topViewController(), screen);

    // A place opens its map the same way.
    screen->chatView()->delegate().lock()->chatViewOpenLocation(screen->chatView(), 48.8566, 2.3522,
                                                                500);
    auto *map = qobject_cast<ZuveroChatLocationViewController *>(navigation->topViewController());
    QVERIFY(map);
    QCOMPARE(map->location()->latitude, 48.8566);
    QCOMPARE(map->location()->longitude, 2.3522);
    QCOMPARE(map->radius(), 500.0);
}

void TestViewers::mapShowsThePlaceUnderItsPin()
{
    auto zuvero = facade(u"traveller"_s);
    m_window = std::make_unique<QWidget>();
    auto *viewer = new ZuveroChatLocationViewController(m_window.get());
    viewer->setApiInstance(zuvero.get());
    viewer->setRadius(2000);
    viewer->setLocation(ZuveroLocationCoordinate{48.8566, 2.3522});
    m_window->resize(400, 520);
    viewer->resize(m_window->size());
    m_window->show();
    QWidget *map = viewer->findChild<QWidget *>(u"mapView"_s);
    const int x = map->width() / 2, tip = map->height() / 2;

    // Tiles to every corner, the pin's body just above the centre and the ground just below.
    QImage shown;
    const auto pinAt = [&](int pinX) {
        shown = map->grab().toImage();
        return isPin(shown.pixelColor(pinX, tip - 3)) && isPin(shown.pixelColor(pinX, tip - 12))
            && isTile(shown.pixelColor(pinX, tip + 2)) && isTile(shown.pixelColor(1, 1))
            && isTile(shown.pixelColor(shown.width() - 2, shown.height() - 2));
    };
    QTRY_VERIFY_WITH_TIMEOUT(pinAt(x), 10000);
    keepScreenshot(viewer->grab().toImage(), u"viewer-map"_s);

    // Dragged 100 pixels to the left, the place goes with it.
    QTest::mousePress(map, Qt::LeftButton, {}, QPoint(x, tip));
    QMouseEvent move(QEvent::MouseMove, QPointF(x - 100, tip),
                     map->mapToGlobal(QPointF(x - 100, tip)), Qt::NoButton, Qt::LeftButton, {});
    QApplication::sendEvent(map, &move);
    QTest::mouseRelease(map, Qt::LeftButton, {}, QPoint(x - 100, tip));
    QTRY_VERIFY_WITH_TIMEOUT(pinAt(x - 100), 10000);
    QVERIFY(!isPin(shown.pixelColor(x, tip - 3)));

    // One zoom level in, about the view's centre: twice as far from it.
    QTest::mouseClick(viewer->findChild<QPushButton *>(u"zoomInButton"_s), Qt::LeftButton);
    QTRY_VERIFY_WITH_TIMEOUT(pinAt(x - 200), 10000);
}

void TestViewers::mapWithoutAPlaceHasNoPin()
{
    auto zuvero = facade(u"wanderer"_s);
    m_window = std::make_unique<QWidget>();
    auto *viewer = new ZuveroChatLocationViewController(m_window.get());
    viewer->setApiInstance(zuvero.get());
    m_window->resize(400, 520);
    viewer->resize(m_window->size());
    m_window->show();
    QWidget *map = viewer->findChild<QWidget *>(u"mapView"_s);
    QImage shown;
    QTRY_VERIFY_WITH_TIMEOUT((shown = map->grab().toImage(),
                              isTile(shown.pixelColor(shown.width() / 2, shown.height() / 2))),
                             10000);
    for (int y = 0; y < shown.height(); y += 2)
        for (int x = 0; x < shown.width(); x += 2)
            QVERIFY(!isPin(shown.pixelColor(x, y)));
}

void TestViewers::cleanupTestCase()
{
    QDesktopServices::unsetUrlHandler(u"file"_s);
}

QTEST_MAIN(TestViewers)
#include "tst_viewers.moc"
