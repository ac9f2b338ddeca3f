import QtQuick
import Tapekeep.Controllers

// One marker of the restore wizard: the step's number in a square and its label. The current step
// is lit in the accent, a passed step carries the strong ink, a step ahead stays faint.
Item {
    id: marker
    property string stepId: ""
    property string label: ""
    property int number: 0
    property bool current: false
    property bool passed: false

    objectName: "wizardStep_" + stepId
    implicitWidth: row.implicitWidth
    implicitHeight: row.implicitHeight
    Accessible.role: Accessible.StaticText
    Accessible.name: number + " " + label

    readonly property color tint: current ? Theme.accent : passed ? Theme.palette.ink1 : Theme.palette.ink3

    Row {
        id: row
        spacing: 6
        Rectangle {
            width: numberText.implicitHeight + 6
            height: width
            radius: 2
            color: marker.current ? Theme.accent : "transparent"
            border.width: 1
            border.color: marker.tint
            Text {
                id: numberText
                anchors.centerIn: parent
                text: marker.number
                color: marker.current ? Theme.palette.bgVoid : marker.tint
                font.family: Theme.monoFamily
                font.pointSize: M8Type.size(10)
                font.weight: Font.Bold
            }
        }
        Text {
            objectName: "stepLabel"
            anchors.verticalCenter: parent.verticalCenter
            text: marker.label
            color: marker.tint
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(10)
            font.weight: marker.current ? Font.Bold : Font.Normal
            font.letterSpacing: 1.2
        }
    }
}
