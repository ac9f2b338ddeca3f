import QtQuick
import QtQuick.Controls.Basic
import Tapekeep.Controllers

// The five accents as swatches; `selection` is an accent's name. Choosing one (click, Space or
// Return) asks for it through `selected`; the owner stores it.
Row {
    id: picker
    property string selection: "pink"
    signal selected(string name)

    spacing: 8
    Accessible.role: Accessible.Grouping
    Accessible.name: "Accent"

    Repeater {
        model: Theme.accents
        delegate: Control {
            id: swatch
            required property var modelData
            readonly property bool current: picker.selection === modelData.name
            objectName: "swatch_" + modelData.name
            implicitWidth: 26
            implicitHeight: 26
            padding: 0
            focusPolicy: Qt.StrongFocus
            activeFocusOnTab: true
            hoverEnabled: true
            Accessible.role: Accessible.RadioButton
            Accessible.name: modelData.name
            Accessible.checkable: true
            Accessible.checked: current
            Accessible.onPressAction: picker.selected(modelData.name)
            Keys.onSpacePressed: picker.selected(modelData.name)
            Keys.onReturnPressed: picker.selected(modelData.name)
            Keys.onEnterPressed: picker.selected(modelData.name)

            MouseArea {
                anchors.fill: parent
                cursorShape: Qt.PointingHandCursor
                onClicked: picker.selected(swatch.modelData.name)
            }
            background: Rectangle {
                color: "transparent"
                radius: 2
                border.width: swatch.current || swatch.visualFocus ? 2 : swatch.hovered ? 1 : 0
                border.color: swatch.current ? Theme.palette.ink0 : Theme.palette.ink2
            }
            contentItem: Item {
                Rectangle {
                    anchors.fill: parent
                    anchors.margins: 4
                    radius: 1
                    color: swatch.modelData.colour
                }
            }
        }
    }
}
