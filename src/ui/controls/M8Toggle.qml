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
            x: control.isOn ? parent.width - width - 3 : 3
            color: control.isOn ? Theme.palette.bgVoid : Theme.palette.ink2
            Behavior on x { NumberAnimation { duration: 90 } }
        }
    }
}
