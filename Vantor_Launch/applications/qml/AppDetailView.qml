import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch.Applications
import Vantor.Launch.Controls

// The detail sheet of one managed application, like a store page: header, screenshots and
// features, the latest release, and on request the full changelog in a second sheet.
LaunchSheet {
    id: root

    // The application presented, or null while the sheet is closed.
    required property var app
    readonly property var profile: root.app ? AppDetailProfiles.profile(root.app.name,
                                                                        Store.creatorName)
                                            : null
    property bool showsFullChangelog: false

    signal dismissed

    objectName: "appDetailView"
    visible: root.app !== null
    onClosed: {
        root.showsFullChangelog = false
        root.dismissed()
    }

    ScrollView {
        id: scroll

        objectName: "detailScroll"
        anchors.fill: parent
        contentWidth: availableWidth
        clip: true

        ColumnLayout {
            width: scroll.availableWidth
            spacing: 28

            // The outcome of the sheet's own actions ("Open"), which the window's banner shows
            // behind the sheet.
            MessageBanner {
                objectName: "detailMessage"
                Layout.fillWidth: true
                Layout.topMargin: 20
                Layout.leftMargin: 28
                Layout.rightMargin: 28
                Layout.bottomMargin: -12
                visible: Store.hasMessage
                message: Store.message
                onDismiss: Store.dismissMessage()
            }

            AppDetailHeader {
                Layout.fillWidth: true
                Layout.topMargin: Store.hasMessage ? 0 : 28
                Layout.leftMargin: 28
                Layout.rightMargin: 28
                app: root.app
                tagline: root.profile ? root.profile.tagline : ""
                onDismiss: root.close()
            }

            AppDetailShowcase {
                Layout.fillWidth: true
                Layout.leftMargin: 28
                Layout.rightMargin: 28
                applicationPath: root.app ? root.app.pathText : ""
                screenshotNames: root.profile ? root.profile.screenshotNames : []
                features: root.profile ? root.profile.features : []
            }

            AppDetailChangelog {
                Layout.fillWidth: true
                Layout.leftMargin: 28
                Layout.rightMargin: 28
                Layout.bottomMargin: 28
                version: root.profile ? root.profile.releaseVersion : ""
                released: root.profile ? root.profile.releaseDateText : ""
                additions: root.profile ? root.profile.recentChanges : []
                onShowFullChangelog: root.showsFullChangelog = true
            }
        }
    }
}
