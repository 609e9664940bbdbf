import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch.ContentPacks
import Vantor.Launch.Controls

// Search, filter and refresh above the catalogue's packs; a click or the arrow keys select one.
ColumnLayout {
    id: root


    function focusSearch() {
        search.forceActiveFocus()
        search.selectAll()
    }

    objectName: "packList"
    spacing: 12

    SearchField {
        id: search

        objectName: "packSearch"
        Layout.fillWidth: true
        placeholderText: qsTr("Search packs")
        text: Store.searchText
        Accessible.name: qsTr("Search Content Packs")
        onTextEdited: Store.searchText = search.text
        Keys.onDownPressed: list.forceActiveFocus()
    }

    RowLayout {
        Layout.fillWidth: true
        spacing: 10

        // Narrower in a narrow window, so that the row fits beside the refresh button.
        SegmentedPicker {
            objectName: "packFilter"
            Layout.fillWidth: true
            Layout.minimumWidth: 140
            Layout.maximumWidth: 180
            title: qsTr("Filter")
            options: PackPresentation.filters
            value: Store.packFilter
            onChosen: value => Store.packFilter = value
        }

        Item {
            Layout.fillWidth: true
        }

        LaunchButton {
            objectName: "refreshPacksButton"
            symbol: "arrow.clockwise"
            text: qsTr("Refresh Packs")
            enabled: !Store.packFlows.isRefreshingContentPacks
            onClicked: Store.requestRefreshContentPacks()
        }
    }

    Rectangle {
        Layout.fillWidth: true
        Layout.fillHeight: true
        Layout.topMargin: 4
        radius: 12
        color: LaunchPalette.cardBackground
        border.color: LaunchPalette.cardOutline
        border.width: 1

        ColumnLayout {
            anchors.fill: parent
            anchors.margins: 8
            spacing: 4

            SectionCaption {
                Layout.leftMargin: 10
                Layout.topMargin: 6
                text: qsTr("Catalogue")
                Accessible.name: qsTr("Catalogue")
            }

            ListView {
                id: list

                objectName: "packListView"
                Layout.fillWidth: true
                Layout.fillHeight: true
                clip: true
                spacing: 2
                model: Store.filteredPacks
                activeFocusOnTab: true
                boundsBehavior: Flickable.StopAtBounds
                currentIndex: Store.filteredPacks.selectedRow
                Accessible.role: Accessible.List
                Accessible.name: qsTr("Catalogue")
                ScrollBar.vertical: ScrollBar {}

                Keys.onUpPressed: Store.selectedPackID = PackPresentation.adjacentPackID(
                                      Store.filteredPacks, Store.selectedPackID, -1)
                Keys.onDownPressed: Store.selectedPackID = PackPresentation.adjacentPackID(
                                        Store.filteredPacks, Store.selectedPackID, 1)

                Label {
                    objectName: "noMatchingPacks"
                    anchors.horizontalCenter: parent.horizontalCenter
                    y: 24
                    visible: list.count === 0
                    text: Store.searchText.length > 0 ? qsTr("No packs match this search.")
                                                           : qsTr("No installed packs yet.")
                    font.pixelSize: 13
                    color: LaunchPalette.slate
                }

                delegate: PackListRow {
                    id: packRow

                    required property int index

                    width: list.width
                    selected: packRow.index === list.currentIndex
                    focused: list.activeFocus
                    onClicked: {
                        Store.selectedPackID = packRow.pack.id
                        list.forceActiveFocus()
                    }
                }
            }
        }
    }
}
