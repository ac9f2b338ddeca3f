import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Tapekeep.Controllers

// The main window: the header with the word mark, the card status chip and the tabs, and the
// screen of the chosen tab.
ApplicationWindow {
    id: window
    objectName: "mainWindow"
    width: 1180
    height: 760
    minimumWidth: 960
    minimumHeight: 620
    visible: true
    title: "Tapekeep"
    color: Theme.palette.bgVoid
    font.family: Theme.fontFamily

    readonly property var tabOrder: ["backup", "restore", "browse", "settings"]

    Shortcut { sequence: "Ctrl+1"; onActivated: Settings.mainTab = "backup" }
    Shortcut { sequence: "Ctrl+2"; onActivated: Settings.mainTab = "restore" }
    Shortcut { sequence: "Ctrl+3"; onActivated: Settings.mainTab = "browse" }
    Shortcut { sequence: "Ctrl+4"; onActivated: Settings.mainTab = "settings" }

    menuBar: AppMenuBar {}
    header: AppHeader {}

    // Closing may first ask about a running operation, and without the tray icon it quits.
    onClosing: close => close.accepted = Lifecycle.windowCloseRequested()

    // A settings file that cannot take changes is shown on every screen, not only in SETTINGS.
    SettingsStoreProblem {
        id: storeProblem
        objectName: "storeProblemBanner"
        visible: problem !== "" && Settings.mainTab !== "settings"  // SETTINGS shows it in place
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: parent.top
        anchors.margins: visible ? 8 : 0
    }

    StackLayout {
        anchors.fill: parent
        anchors.topMargin: storeProblem.visible ? storeProblem.height + 16 : 0
        currentIndex: Math.max(0, window.tabOrder.indexOf(Settings.mainTab))

        BackupTab { objectName: "backupTab" }
        RestoreTab { objectName: "restoreTab" }
        BrowseTab { objectName: "browseTab" }
        SettingsTab { objectName: "settingsTab" }
    }

    LifecycleAlerts {}
}
