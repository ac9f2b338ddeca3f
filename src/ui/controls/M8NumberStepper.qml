import QtQuick
import QtQuick.Controls.Basic
import Tapekeep.Controllers

// A bounded whole number: `value` within `range` ({ from, to }), with a minus and a plus and the
// number between them. Up and Down step it while it has focus. A step asks for the new value
// through `valueModified`; the owner stores it.
Row {
    id: stepper
    property int value: 0
    property var range: ({ from: 0, to: 100 })
    property string unit: ""
    property string accessibleName: ""
    signal valueModified(int value)

    function step(delta) {
        const next = Math.min(range.to, Math.max(range.from, value + delta))
        if (next !== value)
            valueModified(next)
    }

    spacing: -1
    Accessible.role: Accessible.SpinBox
    Accessible.name: accessibleName

    M8ButtonBase {
        objectName: "decrease"
        title: "\u2212"
        size: "small"
        enabled: stepper.value > stepper.range.from
        fill: hovered ? Theme.palette.bg3 : Theme.palette.bg2
        ink: Theme.palette.ink1
        outline: Theme.palette.border0
        scale: 1.0
        Accessible.name: "Decrease"
        action: function() { stepper.step(-1) }
        Keys.onDownPressed: stepper.step(-1)
        Keys.onUpPressed: stepper.step(1)
    }
    Rectangle {
        implicitWidth: Math.max(44, number.implicitWidth + 16)
        implicitHeight: 24
        width: implicitWidth
        height: implicitHeight
        color: Theme.palette.bgLCD
        border.color: Theme.palette.border0
        opacity: stepper.enabled ? 1.0 : 0.4
        Text {
            id: number
            objectName: "stepperValue"
            anchors.centerIn: parent
            text: stepper.value + (stepper.unit ? " " + stepper.unit : "")
            color: Theme.accent
            font.family: Theme.monoFamily
            font.pointSize: Theme.fontSize(11)
            font.weight: Font.DemiBold
        }
    }
    M8ButtonBase {
        objectName: "increase"
        title: "+"
        size: "small"
        enabled: stepper.value < stepper.range.to
        fill: hovered ? Theme.palette.bg3 : Theme.palette.bg2
        ink: Theme.palette.ink1
        outline: Theme.palette.border0
        scale: 1.0
        Accessible.name: "Increase"
        action: function() { stepper.step(1) }
        Keys.onDownPressed: stepper.step(-1)
        Keys.onUpPressed: stepper.step(1)
    }
}
