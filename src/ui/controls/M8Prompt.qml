import QtQuick
import Tapekeep.Controllers

// The prompt line of a step: the accent's caret, then what to do, in the tracker's small capitals.
Row {
    id: prompt
    property string text: ""
    property real baseSize: 11
    spacing: 8

    Text {
        text: "\u203A"
        color: Theme.accent
        font.family: Theme.monoFamily
        font.pointSize: M8Type.size(prompt.baseSize)
        font.weight: Font.Bold
    }
    Text {
        objectName: "promptText"
        text: prompt.text
        color: Theme.palette.ink1
        font.family: Theme.monoFamily
        font.pointSize: M8Type.size(prompt.baseSize)
        font.letterSpacing: 1
        wrapMode: Text.WordWrap
        width: prompt.width > 0 ? prompt.width - x : implicitWidth
    }
}
