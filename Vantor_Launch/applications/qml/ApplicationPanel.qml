import QtQml
import QtQuick
import QtQuick.Layouts
import Vantor.Launch.Applications
import Vantor.Launch.Controls

// The managed applications, one row each, in the store's order. Clicking a row's logo presents
// that application's detail sheet until it is dismissed.
ColumnLayout {
    id: root

    // The application whose detail sheet is shown, or null.
    property var presentedApp: null

    objectName: "applicationPanel"
    spacing: 14

    Repeater {
        model: Store.apps

        ApplicationRow {
            id: row

            Layout.fillWidth: true
            onShowDetails: root.presentedApp = row.app
        }
    }

    AppDetailView {
        id: detail

        app: root.presentedApp
        onDismissed: root.presentedApp = null
    }

    // Over the detail sheet while its "Full Changelog" is asked for.
    FullChangelogView {
        appName: detail.app ? detail.app.name : ""
        releases: detail.profile ? detail.profile.changelog : []
        visible: detail.showsFullChangelog
        onClosed: detail.showsFullChangelog = false
    }
}
