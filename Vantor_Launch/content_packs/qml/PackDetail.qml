import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch.ContentPacks
import Vantor.Launch.Controls

// The selected pack: artwork, name, descriptions, facts and the action for its state; or
// "Select a Content Pack" when none is selected.
Item {
    id: root

    objectName: "packDetail"

    ContentUnavailableView {
        objectName: "noPackSelected"
        anchors.centerIn: parent
        anchors.verticalCenterOffset: -40
        visible: Store.selectedPack.count === 0
        title: qsTr("Select a Content Pack")
        symbol: "shippingbox"
    }

    // The one row of the selected pack, so that the detail follows the pack's changes.
    Repeater {
        model: Store.selectedPack

        ScrollView {
            id: scroll

            required property var pack
            required property QtObject transfer

            anchors.fill: parent
            contentWidth: availableWidth
            clip: true

            ColumnLayout {
                width: scroll.availableWidth
                spacing: 12

                PackArtwork {
                    objectName: "detailArtwork"
                    Layout.fillWidth: true
                    Layout.preferredHeight: 260
                    url: scroll.pack.artwork
                    accessibleName: qsTr("%1 collection artwork").arg(scroll.pack.name)
                }

                Label {
                    objectName: "packName"
                    Layout.fillWidth: true
                    Layout.topMargin: 6
                    text: scroll.pack.name
                    font.pixelSize: 28
                    font.bold: true
                    color: LaunchPalette.paper
                    wrapMode: Text.WordWrap
                    Accessible.role: Accessible.Heading
                }

                StatusLabel {
                    objectName: "packInstalled"
                    visible: PackPresentation.isInstalled(scroll.pack)
                    text: qsTr("Installed")
                    symbol: "checkmark.circle.fill"
                    color: LaunchPalette.green
                    font.pixelSize: 13
                }

                Label {
                    Layout.fillWidth: true
                    text: scroll.pack.summary
                    font.pixelSize: 20
                    color: LaunchPalette.paper
                    wrapMode: Text.WordWrap
                }

                Label {
                    Layout.fillWidth: true
                    text: scroll.pack.detail
                    font.pixelSize: 13
                    color: LaunchPalette.slate
                    wrapMode: Text.WordWrap
                }

                Flow {
                    Layout.fillWidth: true
                    Layout.topMargin: 6
                    spacing: 28

                    Repeater {
                        model: PackPresentation.facts(scroll.pack)

                        ColumnLayout {
                            required property var modelData

                            objectName: "packFact"
                            spacing: 3
                            Accessible.role: Accessible.StaticText
                            Accessible.name: modelData.label + ": " + modelData.value

                            Label {
                                text: modelData.label
                                font.pixelSize: 11
                                color: LaunchPalette.slate
                                Accessible.ignored: true
                            }

                            Label {
                                objectName: "packFactValue"
                                text: modelData.value
                                font.pixelSize: 15
                                font.weight: Font.DemiBold
                                color: LaunchPalette.paper
                                Accessible.ignored: true
                            }
                        }
                    }
                }

                StatusLabel {
                    Layout.fillWidth: true
                    Layout.topMargin: 6
                    text: qsTr("Packs installed here are also available in Vantor Creator’s background library.")
                    symbol: "info.circle.fill"
                    color: LaunchPalette.slate
                    font.pixelSize: 11
                    font.weight: Font.Normal
                }

                RowLayout {
                    Layout.topMargin: 8
                    Layout.bottomMargin: 8
                    spacing: 12

                    LaunchButton {
                        objectName: "packActionButton"
                        highlighted: true
                        text: PackPresentation.actionTitle(scroll.pack)
                        onClicked: {
                            if (PackPresentation.opensCreator(scroll.pack))
                                Store.requestOpenContentPackManagement()
                            else
                                Store.requestInstallPack(scroll.pack.id)
                        }
                    }

                    BusyIndicator {
                        objectName: "packBusy"
                        visible: PackPresentation.isDownloading(scroll.pack)
                        running: visible
                        implicitWidth: 22
                        implicitHeight: 22
                    }

                    TransferProgress {
                        objectName: "packProgress"
                        Layout.preferredWidth: 320
                        visible: scroll.transfer !== null
                        transfer: scroll.transfer
                        progressName: qsTr("Progress of installing %1").arg(scroll.pack.name)
                        cancelName: qsTr("Cancel installing %1").arg(scroll.pack.name)
                        onCancelClicked: Store.packFlows.cancelInstall(scroll.pack.id)
                    }
                }
            }
        }
    }
}
