import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import Vantor.Launch.Controls

// A small bold caption above a part of a screen ("FEATURES", "LATEST RELEASE").
Label {
    font.pixelSize: 11
    font.bold: true
    font.letterSpacing: 0.8
    color: LaunchPalette.slate
    Accessible.role: Accessible.Heading
}
