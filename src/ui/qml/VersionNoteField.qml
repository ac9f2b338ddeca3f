import QtQuick
import QtQuick.Controls.Basic
import Tapekeep.Controllers

// A version's note, edited in place: Return or leaving the field saves it through `saved`, Esc
// puts back the note as it is kept. An empty field deletes the note.
Control {
    id: field
    property string note: ""
    signal saved(string text)

    implicitHeight: 26
    implicitWidth: 240
    padding: 0
    hoverEnabled: true
    focusPolicy: Qt.NoFocus

    onNoteChanged: if (!input.activeFocus) input.text = note
    Component.onCompleted: input.text = note

    function save() {
        if (input.text !== note)
            saved(input.text)
    }

    background: Rectangle {
        radius: 2
        color: input.activeFocus ? Theme.palette.bg2 : "transparent"
        border.width: 1
        border.color: input.activeFocus ? Theme.accent : field.hovered ? Theme.palette.border0 : Theme.palette.border1
    }
    contentItem: TextInput {
        id: input
        objectName: "noteInput"
        leftPadding: 8
        rightPadding: 8
        verticalAlignment: TextInput.AlignVCenter
        clip: true
        activeFocusOnTab: true
        color: Theme.palette.ink0
        selectionColor: Theme.accent
        selectedTextColor: Theme.palette.bgVoid
        font.family: Theme.fontFamily
        font.pointSize: M8Type.size(11)
        Accessible.role: Accessible.EditableText
        Accessible.name: "Note"
        onEditingFinished: field.save()
        // Return is taken here, so that it saves the note and does not also move the wizard on.
        Keys.onReturnPressed: field.save()
        Keys.onEnterPressed: field.save()
        Keys.onEscapePressed: event => {
            text = field.note
            event.accepted = true
        }
        Text {
            anchors.fill: parent
            leftPadding: 8
            verticalAlignment: Text.AlignVCenter
            visible: input.text.length === 0 && !input.activeFocus
            text: "Add a note"
            color: Theme.palette.ink3
            font: input.font
        }
    }
}
