#pragma once

//! \file
//! The viewer of one attachment.

#include "ZuveroChatAttachment.h"

#include <QPointer>
#include <QWidget>

#include <memory>

class Zuvero;
class ZuveroChatAttachmentViewControllerPrivate;

/*!
    One attachment in full, as the chat screen opens it. The attachment's
    preview shows at once; the whole file follows when the screen is first
    shown: a picture to zoom and pan, an animated picture played, a PDF, a
    plain text, or anything else handed to the desktop's application for its
    type. A file that cannot be loaded leaves a label saying why.

    Once the file is here, "Save As…" writes a copy where the user chooses,
    and "Open With…" hands the desktop a link to it named after the
    attachment's own file name.

    Its windowTitle() is the file name, for the navigation bar.
*/
class ZUVERO_EXPORT ZuveroChatAttachmentViewController : public QWidget
{
    Q_OBJECT

public:
    //! A viewer with nothing to show until an attachment and a facade are set.
    explicit ZuveroChatAttachmentViewController(QWidget *parent = nullptr);
    ~ZuveroChatAttachmentViewController() override;

    //! The facade whose connection loads the file.
    Zuvero *apiInstance() const;
    //! The facade whose connection loads the file (not owned).
    void setApiInstance(Zuvero *facade);
    //! The attachment shown.
    ZuveroChatAttachmentPtr attachment() const;
    //! Shows \a attachment, titled by its file name; set it before the viewer shows.
    void setAttachment(const ZuveroChatAttachmentPtr &attachment);

    //! Asks where to save a copy of the file; nothing before it has loaded.
    void saveAs();
    //! Opens the file with the desktop's application for it; nothing before it has loaded.
    void openWith();

    /*!
        A hard link to \a file in the temporary folder named \a name (its
        directories dropped), replacing what was there; the link's path, or
        an empty string when none could be made.
    */
    static QString createLinkToFile(const QString &file, const QString &name);

protected:
    //! Starts loading the file the first time the viewer shows.
    void showEvent(QShowEvent *event) override;
    //! Titles the buttons and the notice again in a new language.
    void changeEvent(QEvent *event) override;

private:
    friend class ZuveroChatAttachmentViewControllerPrivate;
    std::unique_ptr<ZuveroChatAttachmentViewControllerPrivate> d;
};
