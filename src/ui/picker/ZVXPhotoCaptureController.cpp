#include "ZVXPhotoCaptureController.h"

#include "ZVXLocalization.h"
#include "ZVXLogging.h"

#include <QCamera>
#include <QCloseEvent>
#include <QHBoxLayout>
#include <QImageCapture>
#include <QKeyEvent>
#include <QLabel>
#include <QMediaCaptureSession>
#include <QPushButton>
#include <QVBoxLayout>
#include <QVideoWidget>

class ZVXPhotoCaptureControllerPrivate
{
public:
    void fail(const QString &what, const QString &detail)
    {
        ZVXLogError(QStringLiteral("ZVXPhotoCaptureController: %1: %2").arg(what, detail));
        status->setText(ZVXLocalization::localizeString(QStringLiteral("zuveroCameraFailed")));
        status->show();
        takeButton->setEnabled(false);
    }

    QMediaCaptureSession session;
    QCamera *camera = nullptr;
    QImageCapture *capture = nullptr;
    QVideoWidget *preview = nullptr;
    QLabel *status = nullptr;
    QPushButton *takeButton = nullptr;
    bool finished = false;
};

ZVXPhotoCaptureController::ZVXPhotoCaptureController(QWidget *parent)
    : QWidget(parent, Qt::Window)
    , d(std::make_unique<ZVXPhotoCaptureControllerPrivate>())
{
    setObjectName(QStringLiteral("photoCapture"));
    setAttribute(Qt::WA_DeleteOnClose);
    const QString take
        = ZVXLocalization::localizeString(QStringLiteral("zuveroTakePhotoButtonTitle"));
    setWindowTitle(take);
    resize(640, 520);

    auto *layout = new QVBoxLayout(this);
    d->preview = new QVideoWidget(this);
    d->preview->setObjectName(QStringLiteral("cameraPreview"));
    layout->addWidget(d->preview, 1);
    d->status = new QLabel(this);
    d->status->setObjectName(QStringLiteral("cameraStatus"));
    d->status->setWordWrap(true);
    d->status->hide();
    layout->addWidget(d->status);
    auto *bar = new QHBoxLayout;
    bar->addStretch(1);
    auto *cancelButton = new QPushButton(
        ZVXLocalization::localizeString(QStringLiteral("zuveroCancelButtonTitle")), this);
    cancelButton->setObjectName(QStringLiteral("cancelButton"));
    bar->addWidget(cancelButton);
    d->takeButton = new QPushButton(take, this);
    d->takeButton->setObjectName(QStringLiteral("takePhotoButton"));
    d->takeButton->setDefault(true);
    bar->addWidget(d->takeButton);
    layout->addLayout(bar);

    d->camera = new QCamera(this);
    d->capture = new QImageCapture(this);
    d->session.setCamera(d->camera);
    d->session.setImageCapture(d->capture);
    d->session.setVideoOutput(d->preview);

    connect(cancelButton, &QPushButton::clicked, this, &QWidget::close);
    connect(d->takeButton, &QPushButton::clicked, this, [this] {
        if (d->capture->isReadyForCapture())
            d->capture->capture();
    });
    connect(d->capture, &QImageCapture::readyForCaptureChanged, d->takeButton,
            &QPushButton::setEnabled);
    connect(d->capture, &QImageCapture::imageCaptured, this, [this](int, const QImage &image) {
        const ZuveroImagePtr record = ZuveroImage::initWithImage(image);
        if (!record) {
            d->fail(QStringLiteral("capture"), QStringLiteral("the picture could not be encoded"));
            return;
        }
        d->finished = true;
        Q_EMIT didCapture(record);
        close();
    });
    connect(d->capture, &QImageCapture::errorOccurred, this,
            [this](int, QImageCapture::Error, const QString &message) {
                d->fail(QStringLiteral("capture"), message);
            });
    connect(d->camera, &QCamera::errorOccurred, this,
            [this](QCamera::Error, const QString &message) {
                d->fail(QStringLiteral("camera"), message);
            });
    d->takeButton->setEnabled(false);
}

ZVXPhotoCaptureController::~ZVXPhotoCaptureController() = default;

void ZVXPhotoCaptureController::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    d->camera->start();
}

void ZVXPhotoCaptureController::closeEvent(QCloseEvent *event)
{
    d->camera->stop();
    if (!d->finished) {
        d->finished = true;
        Q_EMIT didCancel();
    }
    QWidget::closeEvent(event);
}

void ZVXPhotoCaptureController::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape) {
        close();
        event->accept();
        return;
    }
    QWidget::keyPressEvent(event);
}
