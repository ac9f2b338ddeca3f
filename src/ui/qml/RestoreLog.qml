import QtQuick
import QtQuick.Controls.Basic
import Tapekeep.Controllers

// The restore's log, monospaced. It follows new lines while it is scrolled to the bottom, and
// keeps its place when the reader has scrolled up.
Rectangle {
    id: log
    objectName: "restoreLog"
    property var lines: []
    color: Theme.palette.bgLCD
    border.color: Theme.palette.border0
    border.width: 1
    radius: 2

    ListView {
        id: list
        objectName: "logLines"
        anchors.fill: parent
        anchors.margins: 8
        clip: true
        model: log.lines
        boundsBehavior: Flickable.StopAtBounds
        ScrollBar.vertical: ScrollBar {}

        property bool following: true
        onContentYChanged: following = atYEnd
        onCountChanged: if (following) Qt.callLater(positionViewAtEnd)

        delegate: Text {
            required property string modelData
            width: list.width
            text: modelData
            color: Theme.palette.ink1
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(9)
            wrapMode: Text.WrapAnywhere
        }
    }

    Text {
        anchors.centerIn: parent
        visible: list.count === 0
        text: "EMPTY LOG"
        color: Theme.palette.ink3
        font.family: Theme.monoFamily
        font.pointSize: M8Type.size(10)
    }
}
