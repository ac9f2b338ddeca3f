import QtQuick
import Tapekeep.Controllers

// A choice among a few: `options` is a list of { value, label }, `selection` the chosen value.
// Choosing a segment (click, Space or Return) asks for it through `selected`; the owner stores it.
// Left and Right move the choice while the control has focus.
Row {
    id: segmented
    property var selection
    property var options: []
    property string accessibleName: ""
    signal selected(var value)

    readonly property int selectedIndex: {
        for (let index = 0; index < options.length; ++index)
            if (options[index].value === selection)
                return index
        return -1
    }

    function step(delta) {
        const next = selectedIndex + delta
        if (next >= 0 && next < options.length)
            selected(options[next].value)
    }

    spacing: -1  // neighbours share their border
    Accessible.role: Accessible.Grouping
    Accessible.name: accessibleName

    Repeater {
        model: segmented.options
        delegate: M8ButtonBase {
            required property var modelData
            required property int index
            readonly property bool current: index === segmented.selectedIndex
            objectName: "segment_" + modelData.value
            title: modelData.label
            size: "small"
            fill: current ? Theme.accent : hovered ? Theme.palette.bg2 : Theme.palette.bg1
            ink: current ? Theme.palette.bgVoid : Theme.palette.ink1
            outline: current ? Theme.accent : Theme.palette.border0
            scale: 1.0
            Accessible.role: Accessible.RadioButton
            Accessible.checkable: true
            Accessible.checked: current
            action: function() { segmented.selected(modelData.value) }
            Keys.onLeftPressed: segmented.step(-1)
            Keys.onRightPressed: segmented.step(1)
        }
    }
}
