import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch.Account
import Vantor.Launch.Controls

// The account area at the foot of the sidebar: an invitation to sign in, or who is signed in with
// the sync status and the account actions.
ColumnLayout {
    id: root


    spacing: 10

    ColumnLayout {
        objectName: "signedOutAccount"
        Layout.fillWidth: true
        visible: Store.accountFlows.account === undefined
        spacing: 8

        StatusLabel {
            Layout.fillWidth: true
            text: qsTr("Website account")
            symbol: "person.crop.circle"
            color: LaunchPalette.paper
            font.pixelSize: 13
            font.weight: Font.Bold
        }

        Label {
            Layout.fillWidth: true
            text: qsTr("Sign in to sync your Content Packs and account details.")
            font.pixelSize: 11
            color: LaunchPalette.slate
            wrapMode: Text.WordWrap
        }

        LaunchButton {
            objectName: "signInButton"
            text: qsTr("Sign in")
            highlighted: true
            enabled: Store.signInConfigured
            onClicked: Store.requestSignIn()
        }
    }

    ColumnLayout {
        objectName: "signedInAccount"
        Layout.fillWidth: true
        visible: Store.accountFlows.account !== undefined
        spacing: 8

        StatusLabel {
            objectName: "accountName"
            Layout.fillWidth: true
            text: Store.accountFlows.account === undefined ? "" : Store.accountFlows.account.displayName
            symbol: "person.crop.circle.fill"
            color: LaunchPalette.paper
            font.pixelSize: 13
            font.weight: Font.Bold
            maximumLineCount: 1
        }

        SyncStatusView {
            id: status

            Layout.fillWidth: true
            syncState: Store.accountFlows.syncState
        }

        RowLayout {
            spacing: 8

            LaunchButton {
                objectName: "syncButton"
                text: qsTr("Sync")
                small: true
                enabled: !status.syncing
                onClicked: Store.requestRefreshAccount()
            }

            LaunchButton {
                objectName: "signOutButton"
                text: qsTr("Sign out")
                small: true
                onClicked: Store.requestSignOut()
            }
        }
    }
}
