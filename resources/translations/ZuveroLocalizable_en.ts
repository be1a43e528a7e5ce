<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<!-- The library's own texts. Each source is a key; a host overrides any of
     them in its own translations under the context "Localizable". -->
<TS version="2.1" language="en">
<context>
    <name>ZuveroLocalizable</name>
    <message>
        <source>zuveroChatTitle</source>
        <translation>Support</translation>
    </message>
    <message>
        <source>zuveroSendButtonTitle</source>
        <translation>Send</translation>
    </message>
    <message>
        <source>zuveroMessageFieldTitle</source>
        <translation>Message</translation>
    </message>
    <message>
        <source>zuveroAttachmentButtonTitle</source>
        <translation>Add Attachment</translation>
    </message>
    <message>
        <source>zuveroAttachmentImageTitle</source>
        <translation>Picture to Send</translation>
    </message>
    <message>
        <source>zuveroLoadMoreMessagesButtonTitle</source>
        <translation>Load earlier messages</translation>
    </message>
    <message>
        <source>zuveroCancelButtonTitle</source>
        <translation>Cancel</translation>
    </message>
    <message>
        <source>zuveroTakePhotoButtonTitle</source>
        <translation>Take Photo</translation>
    </message>
    <message>
        <source>zuveroChoosePhotoButtonTitle</source>
        <translation>Choose Photo</translation>
    </message>
    <message>
        <source>zuveroLocationButtonTitle</source>
        <translation>Share Location</translation>
    </message>
    <message>
        <source>zuveroNotificationOpen</source>
        <translation>Open</translation>
    </message>
    <message>
        <source>zuveroNotificationReply</source>
        <translation>Reply</translation>
    </message>
    <message>
        <source>zuveroSendLocationButtonTitle</source>
        <translation>Send Location</translation>
    </message>
    <message>
        <source>zuveroLocationSearchTitle</source>
        <translation>Search for a place</translation>
    </message>
    <message>
        <source>zuveroLocationMapTitle</source>
        <translation>Map</translation>
    </message>
    <message>
        <source>zuveroLocationResultsTitle</source>
        <translation>Places found</translation>
    </message>
    <message>
        <source>zuveroLocationAddressTitle</source>
        <translation>Address</translation>
    </message>
    <message>
        <source>zuveroLocationLookingUp</source>
        <translation>Looking up the address…</translation>
    </message>
    <message>
        <source>zuveroLocationNoAddress</source>
        <translation>No address known here</translation>
    </message>
    <message>
        <source>zuveroLocationAddressFailed</source>
        <translation>Address unavailable</translation>
    </message>
    <message>
        <source>zuveroLocationSearching</source>
        <translation>Searching…</translation>
    </message>
    <message>
        <source>zuveroLocationNoResults</source>
        <translation>No places found</translation>
    </message>
    <message>
        <source>zuveroLocationSearchFailed</source>
        <translation>The search did not work. Check the connection and try again.</translation>
    </message>
    <message>
        <source>zuveroMyPositionTitle</source>
        <translation>My Position</translation>
    </message>
    <message>
        <source>zuveroZoomInTitle</source>
        <translation>Zoom In</translation>
    </message>
    <message>
        <source>zuveroZoomOutTitle</source>
        <translation>Zoom Out</translation>
    </message>
    <message>
        <source>zuveroCameraFailed</source>
        <translation>The camera could not be used.</translation>
    </message>
</context>
</TS>
