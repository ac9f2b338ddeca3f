import QtQuick
import Tapekeep.Controllers

// An action in the accent colour.
M8ButtonBase {
    fill: hovered ? Qt.lighter(Theme.accent, 1.08) : Theme.accent
    ink: Theme.palette.bgVoid
}
