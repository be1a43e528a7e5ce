#pragma once

#include "ZuveroImage.h"
#include "zuvero_export.h"

#include <QList>
#include <QObject>
#include <QPointer>

#include <functional>

class QFileDialog;
class QWidget;
class ZVXActionSheetController;

//! What the user did in the attachment picker.
enum class ZVXAttachmentKind {
    //! Nothing chosen: the choice or the picker was cancelled, or the file was no picture.
    None = 0,
    //! A picture was chosen.
    Picture = 1,
    //! The staged picture is to be taken away.
    Removal = 3,
};

//! The choices the picker can offer.
enum class ZVXAttachmentChoice {
    ChoosePhoto,
    Remove,
};

/*!
    Offers the user the kinds of attachment that are enabled, runs the
    picker chosen and hands back the outcome once.

    Pictures come from files: Qt's own file dialog (object name
    "imagePickerDialog", the same on every desktop and on panels without
    one) filtered to pictures. The file's bytes are kept as they are and
    decoded the right way up; a file that does not decode is refused with
    an alert ("alertView") and completes as nothing chosen.

    The picker is made per press and deletes itself once it has completed.
*/
class ZUVERO_EXPORT ZVXAttachmentPickerController : public QObject
{
    Q_OBJECT

public:
    //! Called once: \a success with \a image for a picture, \a success alone for a removal.
    using Completion
        = std::function<void(bool success, ZVXAttachmentKind kind, const ZuveroImagePtr &image)>;

    explicit ZVXAttachmentPickerController(QObject *parent = nullptr);
    ~ZVXAttachmentPickerController() override;

    /*!
        What can be offered now, in the order shown: choosing a picture when
        the library is enabled, removing when that is allowed and \a
        pictureStaged.
    */
    static QList<ZVXAttachmentChoice> offeredChoices(bool pictureStaged);

    /*!
        Pops the choice up above \a view; with nothing to choose from, opens
        the picture dialog at once.
    */
    void showActionSheetFromView(QWidget *view, bool pictureStaged, Completion completion);
    //! Opens the picture dialog over \a view's window.
    void presentImagePickerFromView(QWidget *view, Completion completion);
    //! Closes what is open and completes as nothing chosen, if not yet completed.
    void dismiss();

    ZVXActionSheetController *actionSheetController() const;
    QFileDialog *imagePickerController() const;

private:
    void openImageDialog(QWidget *view);
    void didPickFile(const QString &path);
    void complete(bool success, ZVXAttachmentKind kind, const ZuveroImagePtr &image);

    QPointer<QWidget> m_presentationView;
    QPointer<ZVXActionSheetController> m_sheet;
    QPointer<QFileDialog> m_dialog;
    Completion m_completion;
};
