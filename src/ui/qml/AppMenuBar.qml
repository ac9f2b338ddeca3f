import QtQuick
import QtQuick.Controls.Basic
import Tapekeep.Controllers

// The menus: the application menu with "Check for Updates…" and the quit command, "Actions" on
// the cards, and "Navigate" between the tabs (also Ctrl+1 … Ctrl+4).
MenuBar {
    id: bar

    delegate: MenuBarItem {
        id: item
        contentItem: Text {
            text: item.text
            color: item.highlighted ? Theme.accent : Theme.palette.ink1
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(10)
            verticalAlignment: Text.AlignVCenter
        }
        background: Rectangle {
            implicitHeight: 26
            color: item.highlighted ? Theme.palette.bg2 : "transparent"
        }
    }
    background: Rectangle {
        color: Theme.palette.bg0
        Rectangle {
            anchors.left: parent.left
            anchors.right: parent.right
            anchors.bottom: parent.bottom
            height: 1
            color: Theme.palette.border0
        }
    }

    M8Menu {
        objectName: "applicationMenu"
        title: "Tapekeep"
        Action { text: "Check for Updates\u2026"; onTriggered: Updater.checkForUpdates() }
        MenuSeparator {}
        Action { text: "Quit"; shortcut: StandardKey.Quit; onTriggered: Lifecycle.quitRequested() }
    }
    M8Menu {
        objectName: "actionsMenu"
        title: "Actions"
        Action {
            text: "Backup All"
            enabled: Backup.detectedCards.length > 0
            onTriggered: Lifecycle.backupAll()
        }
        Action {
            text: "Eject All"
            enabled: Backup.detectedCards.length > 0
            onTriggered: Lifecycle.ejectAll()
        }
        Action { text: "Refresh"; onTriggered: Lifecycle.refresh() }
    }
    M8Menu {
        objectName: "navigateMenu"
        title: "Navigate"
        Action { text: "Backup"; onTriggered: Settings.mainTab = "backup" }
        Action { text: "Restore"; onTriggered: Settings.mainTab = "restore" }
        Action { text: "Browse"; onTriggered: Settings.mainTab = "browse" }
        Action { text: "Settings"; onTriggered: Settings.mainTab = "settings" }
    }
}
