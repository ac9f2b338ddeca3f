import QtQuick
import QtQuick.Controls.Basic
import Tapekeep.Controllers

// A card's whole log, monospaced. It follows new lines while it is scrolled to the bottom, and
// keeps its place when the reader has scrolled up.
Rectangle {
    id: log
    objectName: "cardLog"
    property string uuid: ""
    color: Theme.palette.bgLCD
    border.color: Theme.palette.border0
    border.width: 1
    radius: 2

    ListView {
        id: lines
        objectName: "logLines"
        anchors.fill: parent
        anchors.margins: 8
        clip: true
        model: log.visible ? Cards.logModel(log.uuid) : null
        boundsBehavior: Flickable.StopAtBounds
        ScrollBar.vertical: ScrollBar {}

        // Whether the reader is at the end: new lines at the end move no row, so the view stays
        // where the reader left it unless it follows the end.
        property bool following: true
        onContentYChanged: following = atYEnd
        onCountChanged: if (following) Qt.callLater(positionViewAtEnd)
        onModelChanged: { following = true; Qt.callLater(positionViewAtEnd) }

        delegate: Text {
            required property string line
            width: lines.width
            text: line
            color: Theme.palette.ink1
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(9)
            wrapMode: Text.WrapAnywhere
        }
    }

    Text {
        anchors.centerIn: parent
        visible: lines.count === 0
        text: "EMPTY LOG"
        color: Theme.palette.ink3
        font.family: Theme.monoFamily
        font.pointSize: M8Type.size(10)
    }
}
