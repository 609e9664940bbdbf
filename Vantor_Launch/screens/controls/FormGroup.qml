import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch.Controls

// A titled group of settings on a rounded background.
ColumnLayout {
    id: root

    required property string title
    default property alias content: rows.data

    spacing: 8

    Label {
        Layout.leftMargin: 4
        text: root.title
        font.pixelSize: 13
        font.bold: true
        color: LaunchPalette.slate
        Accessible.role: Accessible.Heading
    }

    Rectangle {
        Layout.fillWidth: true
        implicitHeight: rows.implicitHeight + 28
        radius: 10
        color: LaunchPalette.cardBackground
        border.color: LaunchPalette.cardOutline
        border.width: 1

        ColumnLayout {
            id: rows

            anchors.fill: parent
            anchors.margins: 14
            spacing: 12
        }
    }
}
