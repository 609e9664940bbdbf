import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch.Controls

// A label and its value on one line, read together.
RowLayout {
    id: root

    required property string label
    required property string value

    spacing: 12
    Accessible.role: Accessible.StaticText
    Accessible.name: root.label + ": " + root.value

    Label {
        Layout.fillWidth: true
        text: root.label
        color: LaunchPalette.paper
        font.pixelSize: 13
        Accessible.ignored: true
    }

    Label {
        objectName: "value"
        text: root.value
        color: LaunchPalette.slate
        font.pixelSize: 13
        horizontalAlignment: Text.AlignRight
        Accessible.ignored: true
    }
}
