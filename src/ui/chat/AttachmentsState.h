#pragma once

//! \file
//! Which kinds of attachment the chat screen offers.

#include "zuvero_export.h"

#include <QVariantMap>

#include <functional>

/*!
    Which kinds of attachment the chat screen offers, for the whole process.

    Five switches: the photo library, the camera and the location start on
    (the same switches as Zuvero::disableLibraryAttachment() and the like),
    removal and editing of a picked picture start off. A source is offered
    only when its switch is on and the host declared why it uses it: a
    non-empty text under "NSPhotoLibraryUsageDescription",
    "NSCameraUsageDescription" or "NSLocationWhenInUseUsageDescription" in
    its "ZuveroConfig" (any facade made from a configuration declares what
    that configuration holds), or given to setUsageDescriptions(). The camera
    is offered only where the system has one.
*/
class ZUVERO_EXPORT AttachmentsState
{
public:
    AttachmentsState() = delete;

    //! Turns the photo library on or off as a source.
    static void toggleLibraryAttachmentState(bool enabled);
    //! Turns the camera on or off as a source.
    static void toggleCameraAttachmentState(bool enabled);
    //! Turns sharing a place on or off.
    static void toggleLocationAttachmentState(bool enabled);
    //! Lets the user take a picked picture away again, or not.
    static void toggleRemovalState(bool allowed);
    //! Lets the user edit a picked picture, or not.
    static void toggleEditingState(bool allowed);
    //! The library, camera and location switches together.
    static void toggleAttachmentsState(bool enabled);

    //! The photo library is offered: switched on and its reason declared.
    static bool isLibraryAttachmentEnabled();
    //! The camera is offered: switched on, its reason declared, and there is one.
    static bool isCameraAttachmentEnabled();
    //! Sharing a place is offered: switched on and its reason declared.
    static bool isLocationAttachmentEnabled();
    //! Whether any of the three sources is offered.
    static bool isAttachmentsEnabled();
    //! Whether a picked picture may be taken away again.
    static bool isRemovalAllowed();
    //! Whether a picked picture may be edited.
    static bool isEditingAllowed();

    //! The reasons declared, by key; only those with text.
    static QVariantMap usageDescriptions();
    /*!
        Declares the reasons for a host that sets the library up in code: the
        three keys above with the text shown to the user. Replaces what was
        declared before; an absent or empty text declares nothing.
    */
    static void setUsageDescriptions(const QVariantMap &descriptions);

    /*!
        Replaces the question "is there a camera?" (by default, whether Qt
        Multimedia lists a video input); an empty function restores it.
    */
    static void setCameraAvailability(std::function<bool()> available);
};
