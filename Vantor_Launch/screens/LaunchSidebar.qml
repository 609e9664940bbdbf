import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch
import Vantor.Launch.Account
import Vantor.Launch.Applications
import Vantor.Launch.Controls

// The sidebar: the launcher's logo, one row per section, the installed applications, and the
// account area at its foot.
Rectangle {
    id: root


    color: LaunchPalette.midnight

    ColumnLayout {
        anchors.fill: parent
        spacing: 0

        Flickable {
            Layout.fillWidth: true
            Layout.fillHeight: true
            contentHeight: list.implicitHeight
            clip: true
            boundsBehavior: Flickable.StopAtBounds

            ColumnLayout {
                id: list

                width: parent.width
                spacing: 2

                Item {
                    Layout.leftMargin: 18
                    Layout.topMargin: 20
                    Layout.bottomMargin: 16
                    implicitWidth: 214
                    implicitHeight: 38
                    Layout.maximumWidth: list.width - 28
                    Accessible.role: Accessible.Heading
                    Accessible.name: qsTr("Vantor Launcher")

                    SymbolIcon {
                        anchors.fill: parent
                        name: "VantorLaunchLogo"
                        alignment: Qt.AlignLeft | Qt.AlignVCenter
                    }
                }

                Repeater {
                    model: Sections.all

                    SidebarSectionRow {
                        required property var modelData

                        Layout.fillWidth: true
                        Layout.leftMargin: 10
                        Layout.rightMargin: 10
                        section: modelData
                        selected: Store.selection === modelData.section
                        onActivated: Store.selection = modelData.section
                    }
                }

                Label {
                    Layout.leftMargin: 20
                    Layout.topMargin: 18
                    Layout.bottomMargin: 4
                    text: qsTr("Installed apps")
                    font.pixelSize: 11
                    font.bold: true
                    color: LaunchPalette.slate
                    Accessible.role: Accessible.Heading
                }

                Repeater {
                    model: Store.apps

                    SidebarApplicationRow {
                        Layout.fillWidth: true
                        Layout.leftMargin: 20
                        Layout.rightMargin: 14
                    }
                }

                Item {
                    implicitHeight: 12
                }
            }
        }

        Rectangle {
            Layout.fillWidth: true
            implicitHeight: 1
            color: LaunchPalette.divider
        }

        SidebarAccountView {
            Layout.fillWidth: true
            Layout.margins: 16
        }
    }
}
