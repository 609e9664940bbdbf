import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import QtQuick.Templates as T
import Vantor.Launch.Applications
import Vantor.Launch.Controls

// Asks before an update closes the running Vantor Director. Shown while the store has a prompt;
// whichever way it closes, the prompt is answered.
Dialog {
    id: root


    objectName: "runningUpdateAlert"
    parent: T.Overlay.overlay
    anchors.centerIn: parent
    width: 440
    modal: true
    closePolicy: Popup.CloseOnEscape
    title: qsTr("Vantor Director is open")
    padding: 20

    T.Overlay.modal: Rectangle {
        color: Qt.rgba(0, 0, 0, 0.45)
    }

    background: Rectangle {
        color: LaunchPalette.navy
        radius: 12
        border.color: LaunchPalette.divider
    }

    header: Label {
        text: root.title
        font.pixelSize: 15
        font.bold: true
        color: LaunchPalette.paper
        padding: 20
        bottomPadding: 0
        wrapMode: Text.WordWrap
    }

    Label {
        width: parent.width
        text: qsTr("Vantor Director must close to install the update. Update Now will close it, install the verified update, and reopen the app. Save any work before continuing.")
        wrapMode: Text.WordWrap
        color: LaunchPalette.paper
        lineHeight: 1.15
    }

    footer: DialogButtonBox {
        padding: 20
        topPadding: 0
        spacing: 10
        alignment: Qt.AlignRight
        background: null

        LaunchButton {
            objectName: "remindLaterButton"
            text: qsTr("Remind me later")
            DialogButtonBox.buttonRole: DialogButtonBox.RejectRole
        }
        LaunchButton {
            objectName: "updateNowButton"
            text: qsTr("Update Now")
            highlighted: true
            DialogButtonBox.buttonRole: DialogButtonBox.AcceptRole
        }
    }

    // Opened and closed imperatively: a binding would be broken by the first close.
    function follow() {
        root.visible = Store.updateFlow.runningUpdatePromptAppID !== ""
    }

    Component.onCompleted: root.follow()

    property Connections promptChanges: Connections {
        target: Store.updateFlow

        function onRunningUpdatePromptAppIDChanged() {
            root.follow()
        }
    }

    onAccepted: Store.confirmRunningUpdatePrompt()
    onRejected: Store.dismissRunningUpdate()
    onClosed: Store.dismissRunningUpdate()
}
