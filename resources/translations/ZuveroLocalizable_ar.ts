<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<!-- The library's texts in Arabic; the same keys as the English table. -->
<TS version="2.1" language="ar">
<context>
    <name>ZuveroLocalizable</name>
    <!-- The chat screen -->
    <message>
        <source>zuveroChatTitle</source>
        <translation>الدعم</translation>
    </message>
    <message>
        <source>zuveroBackButtonTitle</source>
        <translation>رجوع</translation>
    </message>
    <message>
        <source>zuveroDoneButtonTitle</source>
        <translation>تم</translation>
    </message>
    <message>
        <source>zuveroLoadMoreMessagesButtonTitle</source>
        <translation>عرض الرسائل السابقة</translation>
    </message>
    <message>
        <source>zuveroWaitingForConnectionLabel</source>
        <translation>بانتظار الاتصال</translation>
    </message>
    <message>
        <source>zuveroCopyButtonTitle</source>
        <translation>نسخ</translation>
    </message>
    <message>
        <source>zuveroKilobytesSize</source>
        <translation>%1 ك.ب</translation>
    </message>
    <message>
        <source>zuveroMegabytesSize</source>
        <translation>%1 م.ب</translation>
    </message>
    <!-- The input bar -->
    <message>
        <source>zuveroMessageFieldTitle</source>
        <translation>رسالة</translation>
    </message>
    <message>
        <source>zuveroSendButtonTitle</source>
        <translation>إرسال</translation>
    </message>
    <message>
        <source>zuveroAttachmentButtonTitle</source>
        <translation>إرفاق ملف</translation>
    </message>
    <message>
        <source>zuveroAttachmentImageTitle</source>
        <translation>صورة للإرسال</translation>
    </message>
    <!-- What a screen reader says of a message: who, what and when -->
    <message>
        <source>zuveroUserName</source>
        <translation>أنت</translation>
    </message>
    <message>
        <source>zuveroAgentName</source>
        <translation>موظف الدعم</translation>
    </message>
    <message>
        <source>zuveroSystemName</source>
        <translation>النظام</translation>
    </message>
    <message>
        <source>zuveroPictureDescription</source>
        <translation>صورة</translation>
    </message>
    <message>
        <source>zuveroLocationDescription</source>
        <translation>موقع</translation>
    </message>
    <message>
        <source>zuveroMessageAccessibleFormat</source>
        <translation>%1: %2</translation>
    </message>
    <message>
        <source>zuveroDatedMessageAccessibleFormat</source>
        <translation>%1: %2، %3</translation>
    </message>
    <!-- Attachments and places -->
    <message>
        <source>zuveroCancelButtonTitle</source>
        <translation>إلغاء</translation>
    </message>
    <message>
        <source>zuveroTakePhotoButtonTitle</source>
        <translation>التقاط صورة</translation>
    </message>
    <message>
        <source>zuveroChoosePhotoButtonTitle</source>
        <translation>اختيار صورة</translation>
    </message>
    <message>
        <source>zuveroLocationButtonTitle</source>
        <translation>مشاركة الموقع</translation>
    </message>
    <message>
        <source>zuveroAttachmentViewTitle</source>
        <translation>مرفق</translation>
    </message>
    <message>
        <source>zuveroLocationViewTitle</source>
        <translation>الموقع</translation>
    </message>
    <message>
        <source>zuveroZoomOutButtonTitle</source>
        <translation>تصغير</translation>
    </message>
    <message>
        <source>zuveroFitButtonTitle</source>
        <translation>ملاءمة</translation>
    </message>
    <message>
        <source>zuveroZoomInButtonTitle</source>
        <translation>تكبير</translation>
    </message>
    <message>
        <source>zuveroSaveAsButtonTitle</source>
        <translation>حفظ باسم…</translation>
    </message>
    <message>
        <source>zuveroOpenWithButtonTitle</source>
        <translation>فتح باستخدام…</translation>
    </message>
    <message>
        <source>zuveroUnreadablePDFMessage</source>
        <translation>تتعذّر قراءة مستند PDF.</translation>
    </message>
    <message>
        <source>zuveroOpenedOutsideMessage</source>
        <translation>فُتح «%1» في التطبيق المخصّص له على سطح المكتب.</translation>
    </message>
    <message>
        <source>zuveroUnopenableAttachmentMessage</source>
        <translation>يتعذّر فتح المرفق.</translation>
    </message>
    <!-- Alerts, notices and notifications -->
    <message>
        <source>zuveroErrorTitle</source>
        <translation>خطأ</translation>
    </message>
    <message>
        <source>zuveroSendFailedMessage</source>
        <translation>تعذّر إرسال الرسالة</translation>
    </message>
    <message>
        <source>zuveroOfflineAlertMessage</source>
        <translation>يبدو أن الاتصال بالإنترنت غير متوفر.</translation>
    </message>
    <message>
        <source>zuveroOKButtonTitle</source>
        <translation>حسنًا</translation>
    </message>
    <message>
        <source>zuveroNotificationOpen</source>
        <translation>فتح</translation>
    </message>
    <message>
        <source>zuveroNotificationReply</source>
        <translation>رد</translation>
    </message>
    <message>
        <source>zuveroSendLocationButtonTitle</source>
        <translation>إرسال الموقع</translation>
    </message>
    <message>
        <source>zuveroLocationSearchTitle</source>
        <translation>ابحث عن مكان</translation>
    </message>
    <message>
        <source>zuveroLocationMapTitle</source>
        <translation>الخريطة</translation>
    </message>
    <message>
        <source>zuveroLocationResultsTitle</source>
        <translation>الأماكن التي عُثر عليها</translation>
    </message>
    <message>
        <source>zuveroLocationAddressTitle</source>
        <translation>العنوان</translation>
    </message>
    <message>
        <source>zuveroLocationLookingUp</source>
        <translation>جارٍ البحث عن العنوان…</translation>
    </message>
    <message>
        <source>zuveroLocationNoAddress</source>
        <translation>لا يوجد عنوان معروف هنا</translation>
    </message>
    <message>
        <source>zuveroLocationAddressFailed</source>
        <translation>العنوان غير متاح</translation>
    </message>
    <message>
        <source>zuveroLocationSearching</source>
        <translation>جارٍ البحث…</translation>
    </message>
    <message>
        <source>zuveroLocationNoResults</source>
        <translation>لم يُعثر على أي مكان</translation>
    </message>
    <message>
        <source>zuveroLocationSearchFailed</source>
        <translation>تعذّر البحث. تحقّق من الاتصال وحاول مرة أخرى.</translation>
    </message>
    <message>
        <source>zuveroMyPositionTitle</source>
        <translation>موقعي</translation>
    </message>
    <message>
        <source>zuveroZoomInTitle</source>
        <translation>تكبير</translation>
    </message>
    <message>
        <source>zuveroZoomOutTitle</source>
        <translation>تصغير</translation>
    </message>
    <message>
        <source>zuveroCameraFailed</source>
        <translation>تعذّر استخدام الكاميرا.</translation>
    </message>
    <message>
        <source>zuveroNotAPictureTitle</source>
        <translation>ليست صورة</translation>
    </message>
    <message>
        <source>zuveroNotAPictureMessage</source>
        <translation>لا يمكن فتح «%1» كصورة.</translation>
    </message>
</context>
</TS>
