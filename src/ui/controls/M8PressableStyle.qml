import QtQuick

// The one press behaviour of the buttons: a little larger under the pointer, a little smaller
// while pressed; a disabled button does neither.
QtObject {
    readonly property real hoverScale: 1.03
    readonly property real pressedScale: 0.97

    function scaleFor(enabled, hovered, pressed) {
        if (!enabled)
            return 1.0
        if (pressed)
            return pressedScale
        return hovered ? hoverScale : 1.0
    }
}
