import QtQuick
import Tapekeep.Controllers

// A destructive action, outlined in the error colour.
M8ButtonBase {
    fill: hovered ? Qt.rgba(Theme.palette.err.r, Theme.palette.err.g, Theme.palette.err.b, 0.15) : "transparent"
    ink: Theme.palette.err
    outline: Theme.palette.err
}
