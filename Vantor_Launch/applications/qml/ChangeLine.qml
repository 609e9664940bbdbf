import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch.Applications
import Vantor.Launch.Controls

// One change of a release, as a bulleted line.
RowLayout {
    id: root

    required property string text

    spacing: 8
    Accessible.role: Accessible.StaticText
    Accessible.name: root.text

    Rectangle {
        Layout.alignment: Qt.AlignTop
        Layout.topMargin: 7
        implicitWidth: 5
        implicitHeight: 5
        radius: 2.5
        color: LaunchPalette.teal
    }

    Label {
        Layout.fillWidth: true
        text: root.text
        font.pixelSize: 13
        color: LaunchPalette.paper
        wrapMode: Text.WordWrap
        Accessible.ignored: true
    }
}
