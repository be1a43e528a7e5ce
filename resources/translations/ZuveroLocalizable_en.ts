<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<!-- The library's own texts. Each source is a key; a host overrides any of
     them in its own translations under the context "Localizable". The French
     and Arabic tables hold the same keys. -->
<TS version="2.1" language="en">
<context>
    <name>ZuveroLocalizable</name>
    <!-- The chat screen -->
    <message>
        <source>zuveroChatTitle</source>
        <translation>Support</translation>
    </message>
    <message>
        <source>zuveroBackButtonTitle</source>
        <translation>Back</translation>
    </message>
    <message>
        <source>zuveroDoneButtonTitle</source>
        <translation>Done</translation>
    </message>
    <message>
        <source>zuveroLoadMoreMessagesButtonTitle</source>
        <translation>Load earlier messages</translation>
    </message>
    <message>
        <source>zuveroWaitingForConnectionLabel</source>
        <translation>Waiting for connection</translation>
    </message>
    <message>
        <source>zuveroCopyButtonTitle</source>
        <translation>Copy</translation>
    </message>
    <message>
        <source>zuveroKilobytesSize</source>
        <translation>%1 Ko</translation>
    </message>
    <message>
        <source>zuveroMegabytesSize</source>
        <translation>%1 Mo</translation>
    </message>
    <!-- The input bar -->
    <message>
        <source>zuveroMessageFieldTitle</source>
        <translation>Message</translation>
    </message>
    <message>
        <source>zuveroSendButtonTitle</source>
        <translation>Send</translation>
    </message>
    <message>
        <source>zuveroAttachmentButtonTitle</source>
        <translation>Add Attachment</translation>
    </message>
    <message>
        <source>zuveroAttachmentImageTitle</source>
        <translation>Picture to Send</translation>
    </message>
    <!-- What a screen reader says of a message: who, what and when -->
    <message>
        <source>zuveroUserName</source>
        <translation>You</translation>
    </message>
    <message>
        <source>zuveroAgentName</source>
        <translation>Agent</translation>
    </message>
    <message>
        <source>zuveroSystemName</source>
        <translation>System</translation>
    </message>
    <message>
        <source>zuveroPictureDescription</source>
        <translation>Picture</translation>
    </message>
    <message>
        <source>zuveroLocationDescription</source>
        <translation>Location</translation>
    </message>
    <message>
        <source>zuveroMessageAccessibleFormat</source>
        <translation>%1: %2</translation>
    </message>
    <message>
        <source>zuveroDatedMessageAccessibleFormat</source>
        <translation>%1: %2, %3</translation>
    </message>
    <!-- Attachments and places -->
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
        <source>zuveroAttachmentViewTitle</source>
        <translation>Attachment</translation>
    </message>
    <message>
        <source>zuveroLocationViewTitle</source>
        <translation>Location</translation>
    </message>
    <message>
        <source>zuveroZoomOutButtonTitle</source>
        <translation>Zoom Out</translation>
    </message>
    <message>
        <source>zuveroFitButtonTitle</source>
        <translation>Fit</translation>
    </message>
    <message>
        <source>zuveroZoomInButtonTitle</source>
        <translation>Zoom In</translation>
    </message>
    <message>
        <source>zuveroSaveAsButtonTitle</source>
        <translation>Save As…</translation>
    </message>
    <message>
        <source>zuveroOpenWithButtonTitle</source>
        <translation>Open With…</translation>
    </message>
    <message>
        <source>zuveroUnreadablePDFMessage</source>
        <translation>The PDF document cannot be read.</translation>
    </message>
    <message>
        <source>zuveroOpenedOutsideMessage</source>
        <translation>“%1” was opened with the desktop's application for it.</translation>
    </message>
    <message>
        <source>zuveroUnopenableAttachmentMessage</source>
        <translation>The attachment cannot be opened.</translation>
    </message>
    <!-- Alerts, notices and notifications -->
    <message>
        <source>zuveroErrorTitle</source>
        <translation>Error</translation>
    </message>
    <message>
        <source>zuveroSendFailedMessage</source>
        <translation>Could not send the message</translation>
    </message>
    <message>
        <source>zuveroOfflineAlertMessage</source>
        <translation>The Internet connection appears to be offline.</translation>
    </message>
    <message>
        <source>zuveroOKButtonTitle</source>
        <translation>OK</translation>
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
    <message>
        <source>zuveroNotAPictureTitle</source>
        <translation>Not a picture</translation>
    </message>
    <message>
        <source>zuveroNotAPictureMessage</source>
        <translation>“%1” cannot be opened as a picture.</translation>
    </message>
</context>
</TS>
