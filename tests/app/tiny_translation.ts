<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE">
<context>
    <name>MainWindow</name>
    <message>
        <source>Open</source>
        <translation>Öffnen</translation>
    </message>
    <message>
        <source>Confidence </source>
        <translation>Vertrauen </translation>
    </message>
    <message>
        <source>Ground Map</source>
        <translation>Bodenkarte</translation>
    </message>
</context>
</TS>
