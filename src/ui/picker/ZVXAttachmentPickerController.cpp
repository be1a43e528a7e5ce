#include "ZVXAttachmentPickerController.h"

#include "AttachmentsState.h"
#include "ZVXActionSheetController.h"
#include "ZVXAlertView.h"
#include "ZVXLocalization.h"
#include "ZVXLocationPickerController.h"
#include "ZVXLogging.h"
#include "ZVXPhotoCaptureController.h"
#include "Zuvero.h"

#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QStandardPaths>

namespace {

// The formats a picture record can name when sent; others are re-encoded (see didPickFile).
const QStringList PictureFilters{
    QStringLiteral("Pictures (*.png *.jpg *.jpeg *.gif *.tif *.tiff *.bmp *.webp)"),
    QStringLiteral("All files (*)"),
};

QString startDirectory()
{
    const QString pictures = QStandardPaths::writableLocation(QStandardPaths::PicturesLocation);
    return QFileInfo(pictures).isDir() ? pictures : QDir::homePath();
}

} // namespace

ZVXAttachmentPickerController::ZVXAttachmentPickerController(QObject *parent)
    : QObject(parent)
{ }

ZVXAttachmentPickerController::~ZVXAttachmentPickerController()
{
    // Closing it would report a cancel to a caller that may be going away with us.
    m_completion = {};
    if (m_dialog) {
        m_dialog->disconnect(this);
        m_dialog->close();
    }
    for (QWidget *window : {static_cast<QWidget *>(m_locationPicker), m_camera.data()}) {
        if (window) {
            window->disconnect(this);
            window->close();
        }
    }
}

ZVXActionSheetController *ZVXAttachmentPickerController::actionSheetController() const
{
    return m_sheet;
}

QFileDialog *ZVXAttachmentPickerController::imagePickerController() const
{
    return m_dialog;
}

void ZVXAttachmentPickerController::setApiInstance(Zuvero *facade)
{
    m_facade = facade;
}

ZVXLocationPickerController *ZVXAttachmentPickerController::locationPickerController() const
{
    return m_locationPicker;
}

QList<ZVXAttachmentChoice> ZVXAttachmentPickerController::offeredChoices(bool pictureStaged)
{
    QList<ZVXAttachmentChoice> choices;
    if (AttachmentsState::isCameraAttachmentEnabled())
        choices << ZVXAttachmentChoice::TakePhoto;
    if (AttachmentsState::isLibraryAttachmentEnabled())
        choices << ZVXAttachmentChoice::ChoosePhoto;
    if (AttachmentsState::isRemovalAllowed() && pictureStaged)
        choices << ZVXAttachmentChoice::Remove;
    if (AttachmentsState::isLocationAttachmentEnabled())
        choices << ZVXAttachmentChoice::Location;
    return choices;
}

QVariantMap ZVXAttachmentPickerController::locationDictionary(ZVXMapTiles::Coordinate location,
                                                              double longitudinalMeters,
                                                              const std::optional<QString> &address)
{
    QVariantMap dictionary{
        {QStringLiteral("lat"), location.latitude},
        {QStringLiteral("lng"), location.longitude},
        {QStringLiteral("d"), longitudinalMeters},
    };
    if (address)
        dictionary.insert(QStringLiteral("address"), *address);
    return dictionary;
}

void ZVXAttachmentPickerController::showActionSheetFromView(QWidget *view, bool pictureStaged,
                                                            Completion completion)
{
    m_presentationView = view;
    m_completion = std::move(completion);
    const QList<ZVXAttachmentChoice> choices = offeredChoices(pictureStaged);
    if (choices.isEmpty()) {
        openImageDialog(view);
        return;
    }

    m_sheet = ZVXActionSheetController::sheetController(this);
    for (ZVXAttachmentChoice choice : choices) {
        switch (choice) {
        case ZVXAttachmentChoice::TakePhoto:
            m_sheet->addOtherButtonTitle(
                ZVXLocalization::localizeString(QStringLiteral("zuveroTakePhotoButtonTitle")),
                [this] { openCamera(m_presentationView); });
            break;
        case ZVXAttachmentChoice::Location:
            m_sheet->addOtherButtonTitle(
                ZVXLocalization::localizeString(QStringLiteral("zuveroLocationButtonTitle")),
                [this] { openLocationPicker(m_presentationView); });
            break;
        case ZVXAttachmentChoice::ChoosePhoto:
            m_sheet->addOtherButtonTitle(
                ZVXLocalization::localizeString(QStringLiteral("zuveroChoosePhotoButtonTitle")),
                [this] { openImageDialog(m_presentationView); });
            break;
        case ZVXAttachmentChoice::Remove:
            // The host names this one itself; the library has no text for it.
            m_sheet->addOtherButtonTitle(ZVXLocalization::hostString(QStringLiteral("Remove")),
                                         [this] { complete(true, ZVXAttachmentKind::Removal); });
            break;
        }
    }
    m_sheet->setCancelButtonTitle(
        ZVXLocalization::localizeString(QStringLiteral("zuveroCancelButtonTitle")),
        [this] { complete(false, ZVXAttachmentKind::None); });
    m_sheet->showFromView(view);
}

void ZVXAttachmentPickerController::presentImagePickerFromView(QWidget *view, Completion completion)
{
    m_presentationView = view;
    m_completion = std::move(completion);
    openImageDialog(view);
}

void ZVXAttachmentPickerController::presentLocationPickerFromView(QWidget *view, Zuvero *facade,
                                                                  Completion completion)
{
    m_presentationView = view;
    m_facade = facade;
    m_completion = std::move(completion);
    openLocationPicker(view);
}

void ZVXAttachmentPickerController::presentCameraFromView(QWidget *view, Completion completion)
{
    m_presentationView = view;
    m_completion = std::move(completion);
    openCamera(view);
}

void ZVXAttachmentPickerController::openLocationPicker(QWidget *view)
{
    auto *picker = new ZVXLocationPickerController(m_facade, view ? view->window() : nullptr);
    picker->setWindowModality(Qt::WindowModal);
    connect(picker, &ZVXLocationPickerController::didFinishPickingLocation, this,
            [this](ZVXMapTiles::Coordinate location, double longitudinalMeters,
                   const std::optional<QString> &address) {
                complete(true, ZVXAttachmentKind::Location, {},
                         locationDictionary(location, longitudinalMeters, address));
            });
    connect(picker, &ZVXLocationPickerController::didCancel, this,
            [this] { complete(false, ZVXAttachmentKind::None); });
    m_locationPicker = picker;
    picker->show();
}

void ZVXAttachmentPickerController::openCamera(QWidget *view)
{
    auto *camera = new ZVXPhotoCaptureController(view ? view->window() : nullptr);
    camera->setWindowModality(Qt::WindowModal);
    // Staged as a picture chosen from a file is.
    connect(
        camera, &ZVXPhotoCaptureController::didCapture, this,
        [this](const ZuveroImagePtr &image) { complete(true, ZVXAttachmentKind::Picture, image); });
    connect(camera, &ZVXPhotoCaptureController::didCancel, this,
            [this] { complete(false, ZVXAttachmentKind::None); });
    m_camera = camera;
    camera->show();
}

void ZVXAttachmentPickerController::openImageDialog(QWidget *view)
{
    auto *dialog = new QFileDialog(
        view ? view->window() : nullptr,
        ZVXLocalization::localizeString(QStringLiteral("zuveroChoosePhotoButtonTitle")),
        startDirectory());
    dialog->setObjectName(QStringLiteral("imagePickerDialog"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    // Qt's own dialog: kiosks and panels have no desktop one, and every host gets the same.
    dialog->setOption(QFileDialog::DontUseNativeDialog);
    dialog->setFileMode(QFileDialog::ExistingFile);
    dialog->setAcceptMode(QFileDialog::AcceptOpen);
    dialog->setNameFilters(PictureFilters);
    connect(dialog, &QFileDialog::fileSelected, this, &ZVXAttachmentPickerController::didPickFile);
    connect(dialog, &QDialog::rejected, this, [this] { complete(false, ZVXAttachmentKind::None); });
    m_dialog = dialog;
    dialog->open();
}

void ZVXAttachmentPickerController::didPickFile(const QString &path)
{
    QFile file(path);
    ZuveroImagePtr record;
    if (file.open(QIODevice::ReadOnly))
        record = ZuveroImage::initWithRawData(file.readAll());
    if (!record || record->image().isNull()) {
        ZVXLog(QStringLiteral("ZVXAttachmentPickerController: not a picture: %1").arg(path));
        auto *alert = new ZVXAlertView(
            ZVXLocalization::localizeString(QStringLiteral("zuveroNotAPictureTitle"),
                                            QStringLiteral("Not a picture")),
            ZVXLocalization::localizeString(QStringLiteral("zuveroNotAPictureMessage"),
                                            QStringLiteral("\"%1\" cannot be opened as a picture."))
                .arg(QFileInfo(path).fileName()),
            ZVXLocalization::localizeString(QStringLiteral("zuveroOKButtonTitle"),
                                            QStringLiteral("OK")),
            {}, m_presentationView ? m_presentationView->window() : nullptr);
        alert->showWithBlock({});
        complete(false, ZVXAttachmentKind::None);
        return;
    }
    // A picture the record cannot name (BMP, WebP, little-endian TIFF) would go out without a
    // media type: send it as JPEG instead.
    if (record->type() == ZuveroImageType::Unknown)
        record = ZuveroImage::initWithImage(record->image());
    complete(true, ZVXAttachmentKind::Picture, record);
}

void ZVXAttachmentPickerController::dismiss()
{
    if (m_sheet)
        m_sheet->cleanupOAActionSheet();
    if (m_dialog)
        m_dialog->close();
    for (QWidget *window : {static_cast<QWidget *>(m_locationPicker), m_camera.data()})
        if (window)
            window->close();
    complete(false, ZVXAttachmentKind::None);
}

void ZVXAttachmentPickerController::complete(bool success, ZVXAttachmentKind kind,
                                             const ZuveroImagePtr &image,
                                             const QVariantMap &location)
{
    if (!m_completion)
        return;
    const Completion completion = std::exchange(m_completion, {});
    completion(success, kind, image, location);
    deleteLater();
}
