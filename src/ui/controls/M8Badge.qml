import QtQuick
import Tapekeep.Controllers

// A small status mark: upper-case text in a frame of its tone ("neutral", "accent", "ok", "warn",
// "err").
Rectangle {
    id: badge
    property string text: ""
    property string tone: "neutral"

    readonly property color toneColour: tone === "accent" ? Theme.accent
        : tone === "ok" ? Theme.palette.ok
        : tone === "warn" ? Theme.palette.warn
        : tone === "err" ? Theme.palette.err
        : Theme.palette.ink2

    implicitWidth: label.implicitWidth + 12
    implicitHeight: label.implicitHeight + 6
    radius: 2
    color: Qt.rgba(toneColour.r, toneColour.g, toneColour.b, 0.12)
    border.color: Qt.rgba(toneColour.r, toneColour.g, toneColour.b, 0.55)
    border.width: 1
    Accessible.role: Accessible.StaticText
    Accessible.name: text

    Text {
        id: label
        anchors.centerIn: parent
        text: badge.text
        color: badge.toneColour
        font.family: Theme.monoFamily
        font.pointSize: M8Type.size(9)
        font.weight: Font.DemiBold
        font.letterSpacing: 1
    }
}
