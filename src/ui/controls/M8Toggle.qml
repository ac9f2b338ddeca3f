import QtQuick
import QtQuick.Controls.Basic
import Tapekeep.Controllers

// A switch. `isOn` shows the state; a click, Space or Return asks for the other state through
// `toggled`, and the owner stores it, so the switch never shows a value that was not kept.
Control {
    id: control
    property bool isOn: false
    property string accessibleName: ""
    signal toggled(bool isOn)

    // 0 off, 1 on; only the switching is animated, never a change of size.
    property real knobPosition: isOn ? 1 : 0
    Behavior on knobPosition { NumberAnimation { duration: 90 } }

    function flip() {
        if (enabled)
            toggled(!isOn)
    }

    implicitWidth: 34
    implicitHeight: 18
    padding: 0
    focusPolicy: Qt.StrongFocus
    activeFocusOnTab: true
    hoverEnabled: true
    opacity: enabled ? 1.0 : 0.4
    Accessible.role: Accessible.CheckBox
    Accessible.name: accessibleName
    Accessible.checkable: true
    Accessible.checked: isOn
    Accessible.onPressAction: flip()
    Accessible.onToggleAction: flip()
    Keys.onSpacePressed: flip()
    Keys.onReturnPressed: flip()
    Keys.onEnterPressed: flip()

    MouseArea {
        anchors.fill: parent
        enabled: control.enabled
        cursorShape: Qt.PointingHandCursor
        onClicked: control.flip()
    }

    background: Rectangle {
        radius: 2
        color: control.isOn ? Theme.accent : control.hovered ? Theme.palette.bg3 : Theme.palette.bg2
        border.width: 1
        border.color: control.visualFocus ? Theme.accent : control.isOn ? Theme.accent : Theme.palette.border0
    }
    contentItem: Item {
        Rectangle {
            objectName: "knob"
            width: parent.height - 6
            height: width
            radius: 1
            y: 3
            x: 3 + control.knobPosition * (parent.width - width - 6)
            color: control.isOn ? Theme.palette.bgVoid : Theme.palette.ink2
        }
    }
}
