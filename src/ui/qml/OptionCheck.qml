import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Tapekeep.Controllers

// One line of the options sheet that can be ticked: a box, a name and an optional detail (a size).
// Click, Space or Return flips it; `toggled` tells the new value, and the owner decides.
Control {
    id: check
    property string text: ""
    property string detail: ""
    property bool checked: false
    signal toggled(bool checked)

    focusPolicy: Qt.StrongFocus
    activeFocusOnTab: true
    hoverEnabled: true
    Accessible.role: Accessible.CheckBox
    Accessible.name: text
    Accessible.checked: checked
    Accessible.onToggleAction: flip()
    Accessible.onPressAction: flip()
    opacity: enabled ? 1.0 : 0.4
    implicitHeight: 24
    implicitWidth: row.implicitWidth

    Keys.onSpacePressed: flip()
    function flip() { if (enabled) toggled(!checked) }

    MouseArea {
        anchors.fill: parent
        enabled: check.enabled
        cursorShape: Qt.PointingHandCursor
        onClicked: check.flip()
    }

    contentItem: RowLayout {
        id: row
        spacing: 8
        Rectangle {
            implicitWidth: 12
            implicitHeight: 12
            radius: 1
            color: check.checked ? Theme.accent : "transparent"
            border.width: 1
            border.color: check.checked || check.visualFocus ? Theme.accent
                : check.hovered ? Theme.palette.ink1 : Theme.palette.ink3
            Text {
                anchors.centerIn: parent
                visible: check.checked
                text: M8Symbols.glyph("checkmark")
                color: Theme.palette.bg0
                font.pointSize: M8Type.size(9)
                font.weight: Font.Bold
            }
        }
        Text {
            Layout.fillWidth: true
            text: check.text
            color: Theme.palette.ink0
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(11)
            elide: Text.ElideMiddle
        }
        Text {
            text: check.detail
            visible: text !== ""
            color: Theme.palette.ink2
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(10)
        }
    }
}
