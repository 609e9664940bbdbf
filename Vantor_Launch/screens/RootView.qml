import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import QtQuick.Shapes
import Vantor.Launch
import Vantor.Launch.Account
import Vantor.Launch.Applications
import Vantor.Launch.Controls

// The content of the main window: the sidebar beside the detail column, the banner above the
// detail content, the prompt of a running update and the panel that locates an application.
SplitView {
    id: root

    required property var launcher

    orientation: Qt.Horizontal

    handle: Rectangle {
        implicitWidth: 1
        color: LaunchPalette.divider
    }

    LaunchSidebar {
        SplitView.minimumWidth: 230
        SplitView.preferredWidth: 270
        SplitView.maximumWidth: 320
    }

    Item {
        id: detailColumn

        SplitView.fillWidth: true

        Shape {
            anchors.fill: parent

            ShapePath {
                strokeWidth: -1
                fillGradient: LinearGradient {
                    x1: 0
                    y1: 0
                    x2: detailColumn.width
                    y2: detailColumn.height
                    GradientStop { position: 0; color: LaunchPalette.midnight }
                    GradientStop { position: 0.5; color: LaunchPalette.gradientMiddle }
                    GradientStop { position: 1; color: LaunchPalette.midnight }
                }
                PathPolyline {
                    path: [Qt.point(0, 0), Qt.point(detailColumn.width, 0),
                        Qt.point(detailColumn.width, detailColumn.height),
                        Qt.point(0, detailColumn.height)]
                }
            }
        }

        ColumnLayout {
            anchors.fill: parent
            spacing: 0

            MessageBanner {
                Layout.alignment: Qt.AlignHCenter
                Layout.topMargin: 16
                Layout.leftMargin: 20
                Layout.rightMargin: 20
                Layout.fillWidth: true
                Layout.maximumWidth: 880
                visible: Store.hasMessage
                message: Store.message
                onDismiss: Store.dismissMessage()
            }

            LaunchDetail {
                Layout.fillWidth: true
                Layout.fillHeight: true
                launcher: root.launcher
            }
        }

        RunningUpdateAlert {
        }

        BrowserSignInSheet {}

        ApplicationLocationPanel {
            anchors.fill: parent
            chooser: root.launcher.locationChooser
        }
    }
}
