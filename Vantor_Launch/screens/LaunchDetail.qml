import QtQml
import QtQuick
import QtQuick.Layouts
import Vantor.Launch
import Vantor.Launch.ContentPacks
import Vantor.Launch.Controls

// The screen of the selected section. The stack's order is the sections' order.
StackLayout {
    id: root

    required property var launcher

    currentIndex: Store.selection

    OverviewView {
    }

    ContentPacksView {
    }

    HelpView {
        launcher: root.launcher
    }
}
