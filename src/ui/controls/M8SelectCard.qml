import QtQuick
import QtQuick.Controls.Basic
import Tapekeep.Controllers

// A selectable card of a step: a title, a detail line and a mark when chosen. Click, Space or
// Return chooses it.
Control {
    id: card
    property string title: ""
    property string detail: ""
    property bool selected: false
    signal chosen()

    focusPolicy: Qt.StrongFocus
    activeFocusOnTab: true
    hoverEnabled: true
    Accessible.role: Accessible.RadioButton
    Accessible.name: title
    Accessible.checked: selected
    Accessible.onPressAction: chosen()
    padding: 12
    opacity: enabled ? 1.0 : 0.4

    Keys.onReturnPressed: chosen()
    Keys.onEnterPressed: chosen()
    Keys.onSpacePressed: chosen()

    MouseArea {
        anchors.fill: parent
        enabled: card.enabled
        cursorShape: Qt.PointingHandCursor
        onClicked: card.chosen()
    }

    background: Rectangle {
        radius: 2
        color: card.selected ? Theme.palette.bg3 : card.hovered ? Theme.palette.bg2 : Theme.palette.bg1
        border.width: 1
        border.color: card.selected || card.visualFocus ? Theme.accent : Theme.palette.border0
    }

    contentItem: Row {
        spacing: 10
        Rectangle {
            width: 10; height: 10; radius: 5
            anchors.verticalCenter: parent.verticalCenter
            color: card.selected ? Theme.accent : "transparent"
            border.color: card.selected ? Theme.accent : Theme.palette.ink3
            border.width: 1
        }
        Column {
            spacing: 3
            Text {
                text: card.title
                color: Theme.palette.ink0
                font.family: Theme.monoFamily
                font.pointSize: M8Type.size(12)
                font.weight: Font.DemiBold
            }
            Text {
                text: card.detail
                visible: text !== ""
                color: Theme.palette.ink2
                font.family: Theme.monoFamily
                font.pointSize: M8Type.size(10)
            }
        }
    }
}
