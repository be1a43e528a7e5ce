<?xml version='1.0' encoding='utf-8'?>
<TS version="2.1" language="ar">
<context>
    <name>DemoBadgeButton</name>
    <message numerus="yes">
        <source>%1, %n unread</source>
        <translation>
            <numerusform>%1، لا رسائل غير مقروءة</numerusform>
            <numerusform>%1، رسالة واحدة غير مقروءة</numerusform>
            <numerusform>%1، رسالتان غير مقروءتين</numerusform>
            <numerusform>%1، %n رسائل غير مقروءة</numerusform>
            <numerusform>%1، %n رسالة غير مقروءة</numerusform>
            <numerusform>%1، %n رسالة غير مقروءة</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>DemoShopWindow</name>
    <message>
        <source>Amber desk lamp</source>
        <translation>مصباح مكتب كهرماني</translation>
    </message>
    <message>
        <source>Sage reading lamp</source>
        <translation>مصباح قراءة بلون المريمية</translation>
    </message>
    <message>
        <source>Indigo bedside lamp</source>
        <translation>مصباح سرير نيلي</translation>
    </message>
    <message>
        <source>Lumen &amp; Co. — Lamps</source>
        <translation>لومن وشركاه — مصابيح</translation>
    </message>
    <message>
        <source>Lamps for long evenings</source>
        <translation>مصابيح للأمسيات الطويلة</translation>
    </message>
    <message>
        <source>Made by hand in small batches. Questions about an order? Our team answers in the chat.</source>
        <translation>مصنوعة يدويًا بكميات صغيرة. هل لديك سؤال عن طلب؟ يجيبك فريقنا في المحادثة.</translation>
    </message>
    <message>
        <source>Contact support</source>
        <translation>تواصل مع الدعم</translation>
    </message>
    <message>
        <source>Chat with the Lumen &amp; Co. team (F1)</source>
        <translation>تحدّث مع فريق لومن وشركاه (F1)</translation>
    </message>
    <message>
        <source>Add to basket</source>
        <translation>أضف إلى السلة</translation>
    </message>
    <message>
        <source>Add %1 to basket</source>
        <translation>أضف %1 إلى السلة</translation>
    </message>
    <message>
        <source>&amp;Account</source>
        <translation>ال&amp;حساب</translation>
    </message>
    <message>
        <source>Switch &amp;User…</source>
        <translation>تبديل ال&amp;مستخدم…</translation>
    </message>
    <message>
        <source>&amp;Quit</source>
        <translation>&amp;خروج</translation>
    </message>
    <message>
        <source>&amp;Language</source>
        <translation>ال&amp;لغة</translation>
    </message>
    <message>
        <source>&amp;Help</source>
        <translation>م&amp;ساعدة</translation>
    </message>
    <message>
        <source>&amp;Contact Support</source>
        <translation>&amp;تواصل مع الدعم</translation>
    </message>
    <message>
        <source>a guest</source>
        <translation>زائر</translation>
    </message>
    <message numerus="yes">
        <source>Signed in as %1 · %n item(s) in the basket</source>
        <translation>
            <numerusform>مسجّل الدخول باسم %1 · السلة فارغة</numerusform>
            <numerusform>مسجّل الدخول باسم %1 · قطعة واحدة في السلة</numerusform>
            <numerusform>مسجّل الدخول باسم %1 · قطعتان في السلة</numerusform>
            <numerusform>مسجّل الدخول باسم %1 · %n قطع في السلة</numerusform>
            <numerusform>مسجّل الدخول باسم %1 · %n قطعة في السلة</numerusform>
            <numerusform>مسجّل الدخول باسم %1 · %n قطعة في السلة</numerusform>
        </translation>
    </message>
    <message>
        <source>Switch User</source>
        <translation>تبديل المستخدم</translation>
    </message>
    <message>
        <source>User &amp;ID:</source>
        <translation>م&amp;عرّف المستخدم:</translation>
    </message>
    <message>
        <source>&amp;Name:</source>
        <translation>الا&amp;سم:</translation>
    </message>
</context>
</TS>