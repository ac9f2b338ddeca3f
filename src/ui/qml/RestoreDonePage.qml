import QtQuick
import QtQuick.Layouts
import Tapekeep.Controllers

// The wizard's last page: how the run ended, in the controller's words, the log, "EJECT" for the
// card and "START OVER" for the wizard.
ColumnLayout {
    id: page
    spacing: 12

    readonly property bool succeeded: Restore.step.error === null || Restore.step.error === undefined
    property string ejectAnswer: ""
    property bool ejecting: false

    Connections {
        target: Restore
        function onEjectFinished(error) {
            page.ejecting = false
            page.ejectAnswer = error === "" ? "Ejected." : error
        }
    }

    RowLayout {
        objectName: "restoreResult"
        Layout.fillWidth: true
        spacing: 12
        M8Badge {
            objectName: "resultBadge"
            text: page.succeeded ? "DONE" : "FAILED"
            tone: page.succeeded ? "ok" : "err"
        }
        Text {
            objectName: "resultText"
            Layout.fillWidth: true
            text: page.succeeded ? "Restore complete." : Restore.step.error
            color: page.succeeded ? Theme.palette.ink0 : Theme.palette.err
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(12)
            wrapMode: Text.WordWrap
        }
    }

    Text {
        objectName: "safetyVersion"
        visible: Restore.safetyVersion !== null && Restore.safetyVersion !== undefined
        Layout.fillWidth: true
        text: visible ? "Safety backup: " + Restore.safetyVersion : ""
        color: Theme.palette.ink1
        font.family: Theme.monoFamily
        font.pointSize: M8Type.size(10)
        elide: Text.ElideMiddle
    }

    RestoreLog {
        Layout.fillWidth: true
        Layout.fillHeight: true
        lines: Restore.logLines
    }

    RowLayout {
        spacing: 10
        M8PrimaryButton {
            objectName: "startOverButton"
            title: "START OVER"
            action: function() { Restore.startOver() }
        }
        M8GhostButton {
            objectName: "ejectButton"
            title: "EJECT"
            systemImage: "eject"
            enabled: !page.ejecting
            action: function() {
                page.ejecting = true
                page.ejectAnswer = ""
                Restore.ejectTarget()
            }
        }
        Text {
            objectName: "ejectAnswer"
            text: page.ejectAnswer
            color: page.ejectAnswer === "Ejected." ? Theme.palette.ok : Theme.palette.err
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(10)
        }
    }
}
