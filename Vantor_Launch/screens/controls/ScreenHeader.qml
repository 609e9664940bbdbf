import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch.Controls

// The header of every section: title, subtitle and, in demo mode, the demo badge.
RowLayout {
    id: root

    required property string title
    required property string subtitle
    required property bool demoEnabled

    spacing: 16

    ColumnLayout {
        Layout.fillWidth: true
        Layout.alignment: Qt.AlignTop
        spacing: 4

        Label {
            Layout.fillWidth: true
            text: root.title
            font.pixelSize: 30
            font.bold: true
            color: LaunchPalette.paper
            wrapMode: Text.WordWrap
            Accessible.role: Accessible.Heading
        }

        Label {
            Layout.fillWidth: true
            text: root.subtitle
            font.pixelSize: 16
            color: LaunchPalette.slate
            wrapMode: Text.WordWrap
        }
    }

    DemoBadge {
        Layout.alignment: Qt.AlignTop
        visible: root.demoEnabled
    }
}
