import QtQuick
import QtQuick.Controls.Basic
import Tapekeep.Controllers

// Search text with "magnifyingglass" before it and, once there is text, a clear control "xmark"
// labelled "Clear search". `prompt` shows while it is empty; `text` is what was typed.
Control {
    id: field
    property string prompt: ""
    property alias text: input.text
    readonly property alias inputFocus: input.activeFocus
    signal accepted()

    function clear() {
        input.clear()
        input.forceActiveFocus()
    }

    implicitWidth: 220
    implicitHeight: 28
    padding: 0
    hoverEnabled: true
    focusPolicy: Qt.NoFocus

    background: Rectangle {
        radius: 2
        color: Theme.palette.bg1
        border.width: 1
        border.color: input.activeFocus ? Theme.accent : field.hovered ? Theme.palette.ink3 : Theme.palette.border0
    }
    contentItem: Item {
        Text {
            id: glass
            anchors.left: parent.left
            anchors.leftMargin: 8
            anchors.verticalCenter: parent.verticalCenter
            text: M8Symbols.glyph("magnifyingglass")
            color: Theme.palette.ink2
            font.pointSize: Theme.fontSize(12)
        }
        TextInput {
            id: input
            objectName: "searchInput"
            anchors.left: glass.right
            anchors.leftMargin: 6
            anchors.right: clearButton.visible ? clearButton.left : parent.right
            anchors.rightMargin: 6
            anchors.verticalCenter: parent.verticalCenter
            clip: true
            focus: true
            activeFocusOnTab: true
            color: Theme.palette.ink0
            selectionColor: Theme.accent
            selectedTextColor: Theme.palette.bgVoid
            font.family: Theme.fontFamily
            font.pointSize: Theme.fontSize(11)
            Accessible.role: Accessible.EditableText
            Accessible.name: field.prompt
            Keys.onEscapePressed: event => {
                if (text.length > 0) {
                    clear()
                    event.accepted = true
                } else {
                    event.accepted = false
                }
            }
            onAccepted: field.accepted()
            Text {
                anchors.fill: parent
                verticalAlignment: Text.AlignVCenter
                text: field.prompt
                visible: input.text.length === 0
                color: Theme.palette.ink3
                font: input.font
                elide: Text.ElideRight
            }
        }
        M8IconButton {
            id: clearButton
            objectName: "clearSearch"
            anchors.right: parent.right
            anchors.rightMargin: 2
            anchors.verticalCenter: parent.verticalCenter
            size: "small"
            icon: "xmark"
            title: "Clear search"
            visible: input.text.length > 0
            action: function() { field.clear() }
        }
    }
}
