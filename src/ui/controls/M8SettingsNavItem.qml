import QtQuick
import QtQuick.Controls.Basic
import Tapekeep.Controllers

// An entry of the settings sidebar: its symbol and label, marked in the accent while `selection`
// equals its `tag`. A click, Space or Return asks for it through `selected`.
Control {
    id: item
    property string label: ""
    property string systemImage: ""
    property string tag: ""
    property string selection: ""
    signal selected(string tag)

    readonly property bool current: selection === tag

    implicitWidth: 180
    implicitHeight: 30
    padding: 0
    focusPolicy: Qt.StrongFocus
    activeFocusOnTab: true
    hoverEnabled: true
    Accessible.role: Accessible.PageTab
    Accessible.name: label
    Accessible.selected: current
    Accessible.onPressAction: selected(tag)
    Keys.onSpacePressed: selected(tag)
    Keys.onReturnPressed: selected(tag)
    Keys.onEnterPressed: selected(tag)

    MouseArea {
        anchors.fill: parent
        cursorShape: Qt.PointingHandCursor
        onClicked: item.selected(item.tag)
    }

    background: Rectangle {
        color: item.current ? Theme.palette.bg3 : item.hovered ? Theme.palette.bg2 : "transparent"
        border.width: item.visualFocus ? 1 : 0
        border.color: Theme.accent
        radius: 2
        Rectangle {
            objectName: "navMarker"
            anchors.left: parent.left
            anchors.top: parent.top
            anchors.bottom: parent.bottom
            width: 3
            color: Theme.accent
            visible: item.current
        }
    }
    contentItem: Row {
        leftPadding: 14
        spacing: 8
        Text {
            anchors.verticalCenter: parent.verticalCenter
            width: 14
            text: M8Symbols.glyph(item.systemImage)
            color: item.current ? Theme.accent : Theme.palette.ink2
            font.pointSize: Theme.fontSize(11)
            horizontalAlignment: Text.AlignHCenter
        }
        Text {
            anchors.verticalCenter: parent.verticalCenter
            text: item.label.toUpperCase()
            color: item.current ? Theme.palette.ink0 : Theme.palette.ink1
            font.family: Theme.monoFamily
            font.pointSize: Theme.fontSize(10)
            font.weight: item.current ? Font.DemiBold : Font.Normal
            font.letterSpacing: 1.2
        }
    }
}
