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
</context>
</TS>
