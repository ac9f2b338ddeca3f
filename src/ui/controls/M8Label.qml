import QtQuick
import Tapekeep.Controllers

// A small tracker-style label: upper case, spaced, with an optional prefix in the accent.
Text {
    property string prefix: ""
    property string label: ""
    property real baseSize: 10

    text: (prefix ? "<font color='" + Theme.accent + "'>" + prefix + "</font> " : "") + label.toUpperCase()
    textFormat: prefix ? Text.StyledText : Text.PlainText
    color: Theme.palette.ink2
    font.family: Theme.monoFamily
    font.pointSize: M8Type.size(baseSize)
    font.letterSpacing: 1.2
}
