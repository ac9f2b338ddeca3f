import QtQuick
import Tapekeep.Controllers

// A status dot in a tone ("neutral", "accent", "ok", "warn", "err"); `pulsing` while something
// is under way.
Rectangle {
    id: dot
    property string tone: "neutral"
    property bool pulsing: false

    implicitWidth: 8
    implicitHeight: 8
    radius: width / 2
    color: tone === "accent" ? Theme.accent
        : tone === "ok" ? Theme.palette.ok
        : tone === "warn" ? Theme.palette.warn
        : tone === "err" ? Theme.palette.err
        : Theme.palette.ink3

    SequentialAnimation on opacity {
        running: dot.pulsing && dot.visible
        loops: Animation.Infinite
        alwaysRunToEnd: true
        NumberAnimation { to: 0.3; duration: 600 }
        NumberAnimation { to: 1.0; duration: 600 }
    }
}
