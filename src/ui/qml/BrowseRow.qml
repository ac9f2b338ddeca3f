import QtQuick
import Tapekeep.Controllers

// One line of the BROWSE screen's lists that can be chosen: by a click, or by Return or Space when
// it has the keyboard focus. `current` marks the line that is open or shown.
Rectangle {
    id: row
    property bool current: false
    property string accessibleName: ""
    // A file of the open version that a press and hold drags out of the window; "" for none.
    property string dragPath: ""
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

    Drag.dragType: Drag.Automatic
    Drag.supportedActions: Qt.CopyAction

    // A song goes out with its samples beside it, prepared off the GUI thread; the drag starts
    // once that is done, while the button is still held.
    Connections {
        target: row.dragPath !== "" ? Browse.browser : null
        function onDragReady(path, url) {
            if (path !== row.dragPath || !mouse.pressed) return
            row.Drag.mimeData = { "text/uri-list": url.toString() }
            row.Drag.startDrag(Qt.CopyAction)
        }
    }

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
        onPressAndHold: if (row.dragPath !== "" && Browse.browser) Browse.browser.prepareDrag(row.dragPath)
    }
}
