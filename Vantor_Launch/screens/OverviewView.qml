import QtQml
import QtQuick
import QtQuick.Layouts
import Vantor.Launch

// The Overview section.
Item {
    id: root

    required property var store

    objectName: "overviewView"

    ScreenHeader {
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: parent.top
        anchors.margins: 28
        title: "Your Vantor workspace"
        subtitle: "Your apps, their updates and your content, in one place."
        demoEnabled: root.store.demoEnabled
    }
}
