import QtQuick
import QtQuick.Layouts
import Tapekeep.Controllers

// The four tabs of the main window; the selection is the setting "mainTab".
Row {
    id: bar
    property string selection: "backup"
    signal selected(string tab)

    readonly property var tabs: [
        { value: "backup", label: "BACKUP" },
        { value: "restore", label: "RESTORE" },
        { value: "browse", label: "BROWSE" },
        { value: "settings", label: "SETTINGS" }
    ]
    spacing: 2

    Repeater {
        model: bar.tabs
        delegate: M8ButtonBase {
            required property var modelData
            required property int index
            objectName: "tab_" + modelData.value
            title: modelData.label
            size: "small"
            readonly property bool current: bar.selection === modelData.value
            fill: current ? Theme.palette.bg3 : hovered ? Theme.palette.bg2 : "transparent"
            ink: current ? Theme.accent : Theme.palette.ink2
            Accessible.role: Accessible.PageTab
            action: function() { bar.selected(modelData.value) }
            Rectangle {
                anchors.left: parent.left
                anchors.right: parent.right
                anchors.bottom: parent.bottom
                height: 2
                color: Theme.accent
                visible: parent.current
            }
        }
    }
}
