import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch.Controls

// A running transfer: its bar with Cancel beside it, and below them how much has arrived, how
// fast and how long is left. The view that shows it decides what Cancel reaches.
ColumnLayout {
    id: root

    // The store's Transfer; null draws an empty bar.
    required property QtObject transfer
    // What the bar and Cancel are read as, naming what they act on.
    required property string progressName
    required property string cancelName
    // The list row's size: a thinner bar, smaller text and button.
    property bool compact: false

    signal cancelClicked

    spacing: root.compact ? 2 : 4

    RowLayout {
        Layout.fillWidth: true
        spacing: 8

        ProgressBar {
            objectName: "transferBar"
            Layout.fillWidth: true
            Layout.preferredHeight: root.compact ? 6 : implicitHeight
            from: 0
            to: 1
            value: Math.max(0, root.transfer?.fraction ?? 0)
            indeterminate: (root.transfer?.fraction ?? -1) < 0
            Accessible.name: root.progressName
        }

        LaunchButton {
            objectName: "cancelTransferButton"
            small: true
            text: qsTr("Cancel")
            enabled: root.transfer?.cancellable ?? false
            Accessible.name: root.cancelName
            onClicked: root.cancelClicked()
        }
    }

    Label {
        objectName: "transferText"
        Layout.fillWidth: true
        text: TransferPresentation.progressText(root.transfer?.receivedBytes ?? 0,
                                                root.transfer?.expectedBytes ?? -1,
                                                root.transfer?.bytesPerSecond ?? 0,
                                                root.transfer?.secondsRemaining ?? -1)
        font.pixelSize: 11
        color: LaunchPalette.slate
        wrapMode: Text.WordWrap
    }
}
