import QtQuick
import QtQuick.Controls.Basic
import Tapekeep.Controllers

// A menu of the menu bar in the theme's colours: the tracker's panel, mono text, the accent under
// the pointer.
Menu {
    id: menu

    delegate: MenuItem {
        id: item
        implicitHeight: 28
        implicitWidth: 220
        contentItem: Row {
            leftPadding: 6
            spacing: 12
            Text {
                text: item.text
                color: item.enabled ? (item.highlighted ? Theme.palette.bg0 : Theme.palette.ink0) : Theme.palette.ink3
                font.family: Theme.monoFamily
                font.pointSize: M8Type.size(10)
                anchors.verticalCenter: parent.verticalCenter
            }
        }
        background: Rectangle {
            color: item.highlighted && item.enabled ? Theme.accent : "transparent"
        }
    }
    background: Rectangle {
        implicitWidth: 220
        color: Theme.palette.bg1
        border.color: Theme.palette.border1
        radius: 2
    }
}
