import QtQuick
import Tapekeep.Controllers

// The main action of a screen: filled with the strong ink.
M8ButtonBase {
    fill: hovered ? Qt.lighter(Theme.palette.ink0, 1.05) : Theme.palette.ink0
    ink: Theme.palette.bg0
}
