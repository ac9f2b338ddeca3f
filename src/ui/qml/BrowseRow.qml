import QtQuick
import Tapekeep.Controllers

// One line of the BROWSE screen's lists that can be chosen: by a click, or by Return or Space when
// it has the keyboard focus. `current` marks the line that is open or shown.
Rectangle {
    id: row
    property bool current: false
    property string accessibleName: ""
    signal activated()

    implicitHeight: 26
    radius: 2
    activeFocusOnTab: true
    color: current ? Theme.palette.bg3 : mouse.containsMouse ? Theme.palette.bg2 : "transparent"
    border.width: activeFocus ? 1 : 0
    border.color: Theme.accent
    Accessible.role: Accessible.ListItem
    Accessible.name: accessibleName
    Accessible.onPressAction: activated()

    Keys.onReturnPressed: activated()
    Keys.onEnterPressed: activated()
    Keys.onSpacePressed: activated()

    MouseArea {
        id: mouse
        anchors.fill: parent
        hoverEnabled: true
        cursorShape: Qt.PointingHandCursor
        onClicked: {
            row.forceActiveFocus()
            row.activated()
        }
    }
}
