import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import Qt.labs.platform as Platform
import Vantor.Launch.Applications
import Vantor.Launch.Controls

// The folder panel in which the user points at an application bundle, shown for each request of
// the location chooser; the chooser decides what the chosen folder means. The request's message
// stays above the window's content while the panel is open: the folder panel has no place for it.
Item {
    id: root

    required property var chooser

    Rectangle {
        objectName: "locationMessage"
        anchors.top: parent.top
        anchors.topMargin: 16
        anchors.horizontalCenter: parent.horizontalCenter
        width: Math.min(parent.width - 40, message.implicitWidth + 32)
        height: message.implicitHeight + 20
        visible: root.chooser.choosing
        radius: 10
        color: LaunchPalette.bannerBackground
        border.color: LaunchPalette.bannerOutline
        border.width: 1

        Label {
            id: message

            anchors.fill: parent
            anchors.margins: 10
            horizontalAlignment: Text.AlignHCenter
            text: root.chooser.message
            color: LaunchPalette.paper
            font.pixelSize: 13
            wrapMode: Text.Wrap
        }
    }

    Platform.FolderDialog {
        id: dialog

        objectName: "locationDialog"
        title: root.chooser.title
        acceptLabel: root.chooser.prompt
        options: Platform.FolderDialog.ShowDirsOnly
        onAccepted: root.chooser.accept(dialog.folder)
        onRejected: root.chooser.cancel()
    }

    Connections {
        target: root.chooser

        // The folder is set once the panel is open: before, Qt's own panel ignores it.
        function onPanelRequested() {
            dialog.open()
            dialog.currentFolder = root.chooser.folder
        }
    }
}
