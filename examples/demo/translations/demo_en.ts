<?xml version='1.0' encoding='utf-8'?>
<TS version="2.1" language="en">
<context>
    <name>DemoBadgeButton</name>
    <message numerus="yes">
        <source>%1, %n unread</source>
        <translation>
            <numerusform>%1, %n unread</numerusform>
            <numerusform>%1, %n unread</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>DemoShopWindow</name>
    <message>
        <source>Amber desk lamp</source>
        <translation>Amber desk lamp</translation>
    </message>
    <message>
        <source>Sage reading lamp</source>
        <translation>Sage reading lamp</translation>
    </message>
    <message>
        <source>Indigo bedside lamp</source>
        <translation>Indigo bedside lamp</translation>
    </message>
    <message>
        <source>Lumen &amp; Co. — Lamps</source>
        <translation>Lumen &amp; Co. — Lamps</translation>
    </message>
    <message>
        <source>Lamps for long evenings</source>
        <translation>Lamps for long evenings</translation>
    </message>
    <message>
        <source>Made by hand in small batches. Questions about an order? Our team answers in the chat.</source>
        <translation>Made by hand in small batches. Questions about an order? Our team answers in the chat.</translation>
    </message>
    <message>
        <source>Contact support</source>
        <translation>Contact support</translation>
    </message>
    <message>
        <source>Chat with the Lumen &amp; Co. team (F1)</source>
        <translation>Chat with the Lumen &amp; Co. team (F1)</translation>
    </message>
    <message>
        <source>Add to basket</source>
        <translation>Add to basket</translation>
    </message>
    <message>
        <source>Add %1 to basket</source>
        <translation>Add %1 to basket</translation>
    </message>
    <message>
        <source>&amp;Account</source>
        <translation>&amp;Account</translation>
    </message>
    <message>
        <source>Switch &amp;User…</source>
        <translation>Switch &amp;User…</translation>
    </message>
    <message>
        <source>&amp;Quit</source>
        <translation>&amp;Quit</translation>
    </message>
    <message>
        <source>&amp;Language</source>
        <translation>&amp;Language</translation>
    </message>
    <message>
        <source>&amp;Help</source>
        <translation>&amp;Help</translation>
    </message>
    <message>
        <source>&amp;Contact Support</source>
        <translation>&amp;Contact Support</translation>
    </message>
    <message>
        <source>a guest</source>
        <translation>a guest</translation>
    </message>
    <message numerus="yes">
        <source>Signed in as %1 · %n item(s) in the basket</source>
        <translation>
            <numerusform>Signed in as %1 · %n item in the basket</numerusform>
            <numerusform>Signed in as %1 · %n items in the basket</numerusform>
        </translation>
    </message>
    <message>
        <source>Switch User</source>
        <translation>Switch User</translation>
    </message>
    <message>
        <source>User &amp;ID:</source>
        <translation>User &amp;ID:</translation>
    </message>
    <message>
        <source>&amp;Name:</source>
        <translation>&amp;Name:</translation>
    </message>
</context>
</TS>