import QtQuick
import Tapekeep.Controllers

// An action shown by its symbol alone; `title` is its accessible name and tooltip.
M8ButtonBase {
    id: control
    property string icon: systemImage
    implicitWidth: implicitHeight
    fill: hovered ? Theme.palette.bg2 : "transparent"
    ink: hovered ? Theme.palette.ink0 : Theme.palette.ink1
    contentItem: Text {
        text: M8Symbols.glyph(control.icon)
        color: control.ink
        font.pointSize: M8Type.size(control.baseTextSize + 2)
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
    }
}
