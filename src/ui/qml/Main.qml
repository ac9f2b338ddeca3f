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

    StackLayout {
        anchors.fill: parent
        currentIndex: Math.max(0, window.tabOrder.indexOf(Settings.mainTab))

        BackupTab { objectName: "backupTab" }
        ComingSoon { objectName: "restoreTab"; screen: "RESTORE" }
        ComingSoon { objectName: "browseTab"; screen: "BROWSE" }
        SettingsTab { objectName: "settingsTab" }
    }

    LifecycleAlerts {}
}
