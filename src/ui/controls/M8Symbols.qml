pragma Singleton
import QtQuick

// The symbols the screens name, drawn as text so that they take the palette's colours.
QtObject {
    readonly property var glyphs: ({
        "chevron.down": "\u25BE",
        "chevron.right": "\u25B8",
        "magnifyingglass": "\u2315",
        "xmark": "\u2715",
        "arrow.clockwise": "\u21BB",
        "eject": "\u23CF",
        "folder": "\u25A4",
        "checkmark": "\u2713",
        "exclamationmark.triangle": "\u26A0",
        "play": "\u25B6",
        "stop": "\u25A0",
        "plus": "+",
        "gear": "\u2699",
        "bell": "\u266A",
        "paintpalette": "\u25D0",
        "externaldrive": "\u25A3"
    })

    function glyph(name) {
        return glyphs[name] !== undefined ? glyphs[name] : ""
    }
}
