import QtQuick
import QtQuick.Layouts
import Tapekeep.Controllers

// The wizard's sixth page: the dry run's rows, what the restore would add and what it would
// modify, with their counts; "RESTORE" then starts the run.
ColumnLayout {
    id: page
    spacing: 12

    readonly property bool hasRows: Restore.diffResult !== null && Restore.diffResult !== undefined

    M8Prompt {
        Layout.fillWidth: true
        text: "What the restore will change on the card"
    }

    M8LCDPanel {
        objectName: "previewLoading"
        visible: Restore.isLoadingDiff
        running: Restore.isLoadingDiff
        Layout.fillWidth: true
        M8Label {
            label: "Comparing the version with the card"
            color: Theme.accent
        }
    }

    Text {
        objectName: "previewError"
        visible: !Restore.isLoadingDiff && Restore.previewError !== null && Restore.previewError !== undefined
        Layout.fillWidth: true
        text: visible ? Restore.previewError : ""
        color: Theme.palette.err
        font.family: Theme.monoFamily
        font.pointSize: M8Type.size(11)
        wrapMode: Text.WordWrap
    }

    Text {
        objectName: "safetyBackupNote"
        visible: page.hasRows && Restore.safetyBackupPlanned
        text: "The card will be backed up first."
        color: Theme.palette.ink1
        font.family: Theme.monoFamily
        font.pointSize: M8Type.size(10)
    }

    DiffRowGroups {
        objectName: "previewRows"
        visible: page.hasRows
        Layout.fillWidth: true
        Layout.fillHeight: true
        kinds: ["added", "modified"]
        rows: page.hasRows ? Restore.diffResult : []
    }

    Item { visible: !page.hasRows; Layout.fillHeight: true }
}
