pragma Singleton
import QtQuick
import Tapekeep.Controllers

// Point sizes from the type ladder. A binding that calls this reads the scale's factor, so every
// text follows a change of the type scale at once.
QtObject {
    function size(base) {
        return Theme.sizeAt(base, Theme.scaleFactor)
    }
}
