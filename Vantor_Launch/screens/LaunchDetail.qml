import QtQml
import QtQuick
import QtQuick.Layouts
import Vantor.Launch

// The screen of the selected section. The stack's order is the sections' order.
StackLayout {
    id: root

    required property var store
    required property var launcher

    currentIndex: root.store.selection

    OverviewView {
        store: root.store
    }

    ContentPacksView {
        store: root.store
    }

    HelpView {
        store: root.store
        launcher: root.launcher
    }
}
