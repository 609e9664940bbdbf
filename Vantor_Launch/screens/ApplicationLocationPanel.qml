import QtQml
import QtQuick
import Qt.labs.platform as Platform
import Vantor.Launch

// The folder panel in which the user points at an application bundle, shown for each request of
// the location chooser; the chooser decides what the chosen folder means.
Item {
    id: root

    required property var chooser

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
