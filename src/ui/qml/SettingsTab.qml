import QtQuick
import Tapekeep.Controllers

// The SETTINGS screen.
Rectangle {
    color: Theme.palette.bg0
}
