import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch.Applications
import Vantor.Launch.Controls

// The top of the detail sheet: logo, name and tagline, and the actions.
RowLayout {
    id: root

    required property var app
    required property string tagline

    signal dismiss

    spacing: 22

    Rectangle {
        Layout.preferredWidth: 230
        Layout.preferredHeight: 92
        radius: 12
        color: Qt.rgba(LaunchPalette.midnight.r, LaunchPalette.midnight.g,
                       LaunchPalette.midnight.b, 0.76)
        Accessible.role: Accessible.Graphic
        Accessible.name: root.app ? qsTr("%1 logo").arg(root.app.name) : ""

        SymbolIcon {
            anchors.centerIn: parent
            width: parent.width - 28
            height: 56
            name: root.app ? root.app.logoAsset : ""
            Accessible.ignored: true
        }
    }

    ColumnLayout {
        Layout.fillWidth: true
        Layout.alignment: Qt.AlignVCenter
        spacing: 6

        Label {
            objectName: "detailName"
            Layout.fillWidth: true
            text: root.app ? root.app.name : ""
            font.pixelSize: 28
            font.bold: true
            color: LaunchPalette.paper
            elide: Text.ElideRight
            Accessible.role: Accessible.Heading
        }

        Label {
            objectName: "detailTagline"
            Layout.fillWidth: true
            text: root.tagline
            font.pixelSize: 14
            color: LaunchPalette.slate
            wrapMode: Text.WordWrap
        }
    }

    RowLayout {
        Layout.alignment: Qt.AlignVCenter
        spacing: 10

        LaunchButton {
            objectName: "detailOpenButton"
            highlighted: true
            text: root.app && root.app.name === Store.creatorName ? qsTr("Open in VD") : qsTr("Open")
            onClicked: Store.openApplication(root.app.id)
        }

        LaunchButton {
            objectName: "detailCloseButton"
            text: qsTr("Close")
            onClicked: root.dismiss()
        }
    }
}
