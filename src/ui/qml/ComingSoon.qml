import QtQuick
import Tapekeep.Controllers

// A screen whose work has not landed yet.
Rectangle {
    property string screen: ""
    color: Theme.palette.bg0

    Column {
        anchors.centerIn: parent
        spacing: 8
        M8Label {
            anchors.horizontalCenter: parent.horizontalCenter
            label: parent.parent.screen
        }
        Text {
            anchors.horizontalCenter: parent.horizontalCenter
            text: "Coming soon"
            color: Theme.palette.ink1
            font.family: Theme.fontFamily
            font.pointSize: M8Type.size(18)
        }
    }
}
