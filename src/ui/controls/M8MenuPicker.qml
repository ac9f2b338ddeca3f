import QtQuick
import QtQuick.Controls.Basic
import Tapekeep.Controllers

// A choice among many: the chosen option's label with "chevron.down"; a click, Space or Return
// opens the list, Up and Down step through it directly. `options` is a list of { value, label };
// a choice is asked for through `selected` and the owner stores it.
M8ButtonBase {
    id: picker
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

    title: selectedIndex >= 0 ? options[selectedIndex].label : String(selection === undefined ? "" : selection)
    size: "small"
    fill: hovered || list.opened ? Theme.palette.bg3 : Theme.palette.bg2
    ink: Theme.palette.ink0
    outline: list.opened ? Theme.accent : Theme.palette.border0
    scale: 1.0
    Accessible.role: Accessible.ComboBox
    Accessible.name: accessibleName
    Accessible.description: title
    leftPadding: 8
    rightPadding: 8
    implicitWidth: Math.max(120, contentItem.implicitWidth + leftPadding + rightPadding)
    action: function() { list.open() }
    Keys.onUpPressed: step(-1)
    Keys.onDownPressed: step(1)

    contentItem: Item {
        implicitWidth: chosen.implicitWidth + chevron.implicitWidth + 12
        Text {
            id: chosen
            anchors.left: parent.left
            anchors.right: chevron.left
            anchors.rightMargin: 6
            anchors.verticalCenter: parent.verticalCenter
            text: picker.title
            color: picker.ink
            font.family: Theme.monoFamily
            font.pointSize: Theme.fontSize(10)
            elide: Text.ElideRight
        }
        Text {
            id: chevron
            anchors.right: parent.right
            anchors.verticalCenter: parent.verticalCenter
            text: M8Symbols.glyph("chevron.down")
            color: Theme.palette.ink2
            font.pointSize: Theme.fontSize(10)
        }
    }

    Popup {
        id: list
        y: picker.height + 2
        width: Math.max(picker.width, column.implicitWidth)
        padding: 1
        focus: true
        onOpened: {
            const item = optionItems.itemAt(Math.max(0, picker.selectedIndex))
            if (item)
                item.forceActiveFocus()
        }
        background: Rectangle {
            color: Theme.palette.bg2
            border.color: Theme.palette.border0
        }
        contentItem: Column {
            id: column
            Repeater {
                id: optionItems
                model: picker.options
                delegate: M8ButtonBase {
                    required property var modelData
                    required property int index
                    readonly property bool current: index === picker.selectedIndex
                    objectName: "option_" + modelData.value
                    width: column.width
                    title: (current ? M8Symbols.glyph("checkmark") + " " : "  ") + modelData.label
                    size: "small"
                    fill: hovered || activeFocus ? Theme.palette.bg3 : "transparent"
                    ink: current ? Theme.accent : Theme.palette.ink0
                    scale: 1.0
                    Accessible.role: Accessible.MenuItem
                    Keys.onUpPressed: nextItemInFocusChain(false).forceActiveFocus()
                    Keys.onDownPressed: nextItemInFocusChain(true).forceActiveFocus()
                    action: function() {
                        list.close()
                        picker.selected(modelData.value)
                    }
                    contentItem: Text {
                        text: parent.title
                        color: parent.ink
                        font.family: Theme.monoFamily
                        font.pointSize: Theme.fontSize(10)
                        horizontalAlignment: Text.AlignLeft
                        verticalAlignment: Text.AlignVCenter
                    }
                }
            }
        }
    }
}
