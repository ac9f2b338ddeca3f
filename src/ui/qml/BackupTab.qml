import QtQuick
import Tapekeep.Controllers

// The BACKUP screen: the detected cards, one tile each.
Rectangle {
    color: Theme.palette.bg0
}
