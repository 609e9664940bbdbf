import QtQml
import QtQuick
import QtQuick.Layouts
import Vantor.Launch

// The managed applications, one row each, in the store's order.
LaunchCard {
    id: root

    required property var store

    objectName: "applicationPanel"
    spacing: 14

    Repeater {
        model: root.store.apps

        ApplicationRow {
            required property var modelData

            Layout.fillWidth: true
            store: root.store
            app: modelData
        }
    }
}
