import QtQuick
import Tapekeep.Controllers

// A secondary action: an outline only.
M8ButtonBase {
    fill: hovered ? Theme.palette.bg2 : "transparent"
    ink: Theme.palette.ink1
    outline: Theme.palette.border0
}
