import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch.Account
import Vantor.Launch.Controls

// One status line for the account's sync state, and a second one when cached data is shown.
ColumnLayout {
    id: root

    required property var syncState
    readonly property bool syncing: presenter.syncing

    spacing: 4

    SyncStatusPresenter {
        id: presenter

        syncState: root.syncState
    }

    StatusLabel {
        objectName: "syncStatus"
        Layout.fillWidth: true
        text: presenter.text
        symbol: presenter.symbol
        color: presenter.color
    }

    Label {
        objectName: "cachedDataCaption"
        Layout.fillWidth: true
        visible: presenter.caption !== ""
        text: presenter.caption
        font.pixelSize: 11
        color: LaunchPalette.slate
        wrapMode: Text.WordWrap
    }
}
