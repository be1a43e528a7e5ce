<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<!-- A host application's own German table, overriding one library text. -->
<TS version="2.1" language="de">
<context>
    <name>Localizable</name>
    <message>
        <source>zuveroChatTitle</source>
        <translation>Kundendienst</translation>
    </message>
    <message>
        <source>Error</source>
        <translation>Fehler</translation>
    </message>
</context>
</TS>
