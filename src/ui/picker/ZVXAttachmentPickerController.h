#pragma once

#include "ZVXMapTiles.h"
#include "ZuveroImage.h"
#include "zuvero_export.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QVariantMap>

#include <functional>
#include <optional>

class QFileDialog;
class QWidget;
class ZVXActionSheetController;
class ZVXLocationPickerController;
class Zuvero;

//! What the user did in the attachment picker.
enum class ZVXAttachmentKind {
    //! Nothing chosen: the choice or the picker was cancelled, or the file was no picture.
    None = 0,
    //! A picture was chosen or taken.
    Picture = 1,
    //! A place was chosen: the location dictionary ("lat", "lng", "d", "address" when known).
    Location = 2,
    //! The staged picture is to be taken away.
    Removal = 3,
};

//! The choices the picker can offer.
enum class ZVXAttachmentChoice {
    TakePhoto,
    ChoosePhoto,
    Remove,
    Location,
};

/*!
    Offers the user the kinds of attachment that are enabled, runs the
    picker chosen and hands back the outcome once.

    Pictures come from files: Qt's own file dialog (object name
    "imagePickerDialog", the same on every desktop and on panels without
    one) filtered to pictures. The file's bytes are kept as they are and
    decoded the right way up; a file that does not decode is refused with
    an alert ("alertView") and completes as nothing chosen. Where there is
    a camera, a photo can be taken instead (ZVXPhotoCaptureController).
    A place comes from the location picker (ZVXLocationPickerController)
    as its location dictionary.

    The picker is made per press and deletes itself once it has completed.
*/
class ZUVERO_EXPORT ZVXAttachmentPickerController : public QObject
{
    Q_OBJECT

public:
    /*!
        Called once: \a success with \a image for a picture, with \a location
        for a place, \a success alone for a removal.
    */
    using Completion
        = std::function<void(bool success, ZVXAttachmentKind kind, const ZuveroImagePtr &image,
                             const QVariantMap &location)>;

    explicit ZVXAttachmentPickerController(QObject *parent = nullptr);
    ~ZVXAttachmentPickerController() override;

    /*!
        What can be offered now, in the order shown: taking a photo when the
        camera is enabled (and there is one), choosing a picture when the
        library is enabled, removing when that is allowed and \a
        pictureStaged, sharing a place when the location is enabled.
    */
    static QList<ZVXAttachmentChoice> offeredChoices(bool pictureStaged);
    /*!
        The location dictionary of a place chosen: "lat" and "lng" in
        degrees, "d" the metres the map spanned from west to east, and
        "address" only when \a address is known.
    */
    static QVariantMap locationDictionary(ZVXMapTiles::Coordinate location,
                                          double longitudinalMeters,
                                          const std::optional<QString> &address);

    /*!
        Pops the choice up above \a view; with nothing to choose from, opens
        the picture dialog at once.
    */
    void showActionSheetFromView(QWidget *view, bool pictureStaged, Completion completion);
    /*!
        The facade whose map tiles, geocoder and connection the location
        picker uses (not owned); without one, the place cannot be offered.
    */
    void setApiInstance(Zuvero *facade);
    //! Opens the picture dialog over \a view's window.
    void presentImagePickerFromView(QWidget *view, Completion completion);
    //! Opens the location picker (ZVXLocationPickerController) over \a view's window.
    void presentLocationPickerFromView(QWidget *view, Zuvero *facade, Completion completion);
    //! Opens the camera window (ZVXPhotoCaptureController) over \a view's window.
    void presentCameraFromView(QWidget *view, Completion completion);
    //! Closes what is open and completes as nothing chosen, if not yet completed.
    void dismiss();

    ZVXActionSheetController *actionSheetController() const;
    QFileDialog *imagePickerController() const;
    ZVXLocationPickerController *locationPickerController() const;

private:
    void openImageDialog(QWidget *view);
    void openLocationPicker(QWidget *view);
    void openCamera(QWidget *view);
    void didPickFile(const QString &path);
    void complete(bool success, ZVXAttachmentKind kind, const ZuveroImagePtr &image = {},
                  const QVariantMap &location = {});

    QPointer<QWidget> m_presentationView;
    QPointer<ZVXActionSheetController> m_sheet;
    QPointer<QFileDialog> m_dialog;
    QPointer<ZVXLocationPickerController> m_locationPicker;
    QPointer<QWidget> m_camera;
    QPointer<Zuvero> m_facade;
    Completion m_completion;
};
