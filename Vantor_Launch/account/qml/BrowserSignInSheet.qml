import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import QtQuick.Templates as T
import Vantor.Launch.Account
import Vantor.Launch.Controls

// While a sign-in waits for the website in the browser, says so and offers to cancel it. Shown
// while the store waits; however it closes, a sign-in that still waits is cancelled.
Dialog {
    id: root


    objectName: "browserSignInSheet"
    parent: T.Overlay.overlay
    anchors.centerIn: parent
    width: 420
    modal: true
    closePolicy: Popup.CloseOnEscape
    title: qsTr("Continue in your browser")
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
        text: qsTr("Sign in to your Vantor account on the page that opened in your browser. Vantor Launcher continues as soon as the website sends you back.")
        wrapMode: Text.WordWrap
        color: LaunchPalette.paper
        lineHeight: 1.15
    }

    footer: DialogButtonBox {
        padding: 20
        topPadding: 0
        alignment: Qt.AlignRight
        background: null

        LaunchButton {
            objectName: "cancelSignInButton"
            text: qsTr("Cancel")
            DialogButtonBox.buttonRole: DialogButtonBox.RejectRole
        }
    }

    // Opened and closed imperatively: a binding would be broken by the first close.
    function follow() {
        root.visible = Store.accountFlows.isWaitingForBrowser
    }

    Component.onCompleted: root.follow()

    property Connections waitingChanges: Connections {
        target: Store.accountFlows

        function onIsWaitingForBrowserChanged() {
            root.follow()
        }
    }

    onClosed: Store.accountFlows.cancelSignIn()
}
