import QtQuick
import QtQuick.Layouts
import Tapekeep.Controllers

// The countdown to an automatic backup of a newly connected card: the seconds left on the LCD
// panel and "CANCEL".
RowLayout {
    id: panel
    objectName: "countdownPanel"
    required property var tile
    spacing: 14

    M8LCDPanel {
        objectName: "countdownLcd"
        padding: 12
        running: true
        Row {
            spacing: 12
            M8Label {
                anchors.verticalCenter: parent.verticalCenter
                label: "Auto backup in"
            }
            Text {
                objectName: "secondsLeft"
                text: panel.tile.secondsLeft + " s"
                color: Theme.accent
                font.family: Theme.monoFamily
                font.pointSize: M8Type.size(26)
                font.weight: Font.Bold
            }
        }
    }
    M8GhostButton {
        objectName: "cancelCountdownButton"
        title: "CANCEL"
        action: function() { Cards.cancelCountdown(panel.tile.uuid) }
    }
    Item { Layout.fillWidth: true }
}
