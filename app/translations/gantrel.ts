<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1">
<context>
    <name>MainWindow</name>
    <message>
        <source>Tessival Gantrel</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Open</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Close</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>DepthMode</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Standard</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Fill</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>WorkMode</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Fast</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Medium</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Slow</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Exposure</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Auto</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>.kova Replay</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Pause</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Play 1 frame</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Loop</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Obstacle Min Height</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Ground Min Area</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Up</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Down</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Using IMU</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Tutorials</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Near</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Far</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Distance Range</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Confidence 100%</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Keep Ratio</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Flip</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>v </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>1.6.0</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>select .kova file</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Kova file (*.kova)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Open depth camera failed: <byte value="xd"/>
</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Select a .kova file first</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>.kova file open failed: <byte value="xd"/>
</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>0</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Start obstacle detection failed: <byte value="xd"/>
</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Error</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Confidence 100 %</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Play</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>radioButtonStandard</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>radioButtonFill</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>radioButtonFast</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>radioButtonMedium</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>radioButtonSlow</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Change work mode failed: <byte value="xd"/>
</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Image With Obstacle</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Image With Ground</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Top View</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Ground Map</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Image With Stixels</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Stixels</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Quelvar R0</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Quelvar R1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Quelvar T1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Quelvar P0</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Quelvar P1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>HD800_120FPS</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>HD800_100FPS</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>HD800_60FPS</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>HD800_50FPS</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>HD800_30FPS</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>HD800_15FPS</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>HD720_120FPS</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>HD720_100FPS</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>HD720_60FPS</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>HD720_50FPS</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>HD720_30FPS</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>HD720_15FPS</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>SD400_120FPS</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>SD400_100FPS</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>SD400_90FPS</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>SD400_60FPS</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>SD400_30FPS</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>SD400_15FPS</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Calculation time: </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source> ms</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Confidence </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source> %</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Distance Range  (</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>SN </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>HW </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Distance [x,y,z] at (</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>, </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>) = [</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>] mm</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Distance between (</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>), (</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>) : </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source> mm</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source><byte value="xd"/>
</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>When IMU is not being used, the camera should be almost parallel to the ground (without roll angle).<byte value="xd"/>
When IMU is being used, roll angle can be fixed.<byte value="xd"/>
There must be ground in the image, or obstacle detection can not be done.<byte value="xd"/>
</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Image With Obstacle: Draw nearest obstacle objects in each column and horizontal point on image.<byte value="xd"/>
Red points: Obstacle objects. Green line: Horizontal point.<byte value="xd"/>
</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Image With Ground: Draw ground with blue color on image.<byte value="xd"/>
</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Top View: Show obstacle objects from the top.<byte value="xd"/>
In side-range, &gt;far: green, mid~far: yellow, near~mid: orange, &lt;near: red.<byte value="xd"/>
Out of side-range, &gt;mid: green, near~mid: yellow, &lt;near: orange<byte value="xd"/>
</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Ground Map: Show ground map.<byte value="xd"/>
0: obstacle objects, 127: not sure, 255: ground<byte value="xd"/>
</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Image With Stixels: Draw stixels on the image.<byte value="xd"/>
</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Stixels: Draw stixels only.<byte value="xd"/>
</source>
        <translation type="unfinished"></translation>
    </message>
</context>
</TS>
