import QtQuick
import Tapekeep.Controllers

// The LCD surface for live readings. While `running` is true a scan line sweeps down over it, so
// that a long operation shows it is alive even when its numbers stand still.
Rectangle {
    id: panel
    property bool running: false
    property real padding: 14
    default property alias content: inner.data

    implicitWidth: inner.childrenRect.width + 2 * padding
    implicitHeight: inner.childrenRect.height + 2 * padding
    color: Theme.palette.bgLCD
    border.color: Theme.palette.border0
    border.width: 1
    radius: 2
    clip: true

    // Faint rows, as the segments of a display that are not lit.
    Column {
        anchors.fill: parent
        spacing: 3
        Repeater {
            model: Math.ceil(panel.height / 4)
            Rectangle {
                width: panel.width
                height: 1
                color: Theme.palette.inkGrid
                opacity: 0.35
            }
        }
    }

    Item {
        id: inner
        anchors.fill: parent
        anchors.margins: panel.padding
    }

    Rectangle {
        id: scanLine
        objectName: "scanLine"
        visible: panel.running
        width: panel.width
        height: 2
        gradient: Gradient {
            orientation: Gradient.Horizontal
            GradientStop { position: 0.0; color: "transparent" }
            GradientStop { position: 0.5; color: Theme.accent }
            GradientStop { position: 1.0; color: "transparent" }
        }
        opacity: 0.55

        NumberAnimation on y {
            running: panel.running && panel.visible
            from: 0
            to: Math.max(0, panel.height - scanLine.height)
            duration: 1800
            loops: Animation.Infinite
        }
    }
}
