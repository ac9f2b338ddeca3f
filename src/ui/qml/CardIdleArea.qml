import QtQuick
import QtQuick.Layouts
import Tapekeep.Controllers

// The state area of a card that is not busy: after a run its message, elapsed time and "SHOW LOG";
// always "BACK UP", "OPTIONS…" and "EJECT".
ColumnLayout {
    id: area
    required property var tile
    spacing: 10

    RowLayout {
        objectName: "runResult"
        visible: area.tile.finished
        Layout.fillWidth: true
        spacing: 12
        M8Badge {
            text: area.tile.cardState === "success" ? "DONE" : "FAILED"
            tone: area.tile.cardState === "success" ? "ok" : "err"
        }
        Text {
            objectName: "stateMessage"
            Layout.fillWidth: true
            text: area.tile.stateMessage
            color: area.tile.cardState === "success" ? Theme.palette.ink0 : Theme.palette.err
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(11)
            wrapMode: Text.WordWrap
        }
        M8Label {
            objectName: "elapsed"
            visible: area.tile.elapsed !== ""
            prefix: area.tile.elapsed
            label: "elapsed"
        }
        M8GhostButton {
            objectName: "showLogButton"
            title: area.tile.showingLog ? "HIDE LOG" : "SHOW LOG"
            size: "small"
            action: function() { area.tile.showingLog = !area.tile.showingLog }
        }
    }

    RowLayout {
        spacing: 10
        M8PrimaryButton {
            objectName: "backUpButton"
            title: "BACK UP"
            action: function() { Cards.backUp(area.tile.uuid) }
        }
        M8GhostButton {
            objectName: "optionsButton"
            title: "OPTIONS\u2026"
            action: function() { Cards.openOptions(area.tile.uuid) }
        }
        M8GhostButton {
            objectName: "ejectButton"
            title: "EJECT"
            systemImage: "eject"
            action: function() { Cards.eject(area.tile.uuid) }
        }
    }
}
