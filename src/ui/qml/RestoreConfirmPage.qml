import QtQuick
import QtQuick.Layouts
import Tapekeep.Controllers

// The wizard's fifth page: what goes back on which card, and the rule a restore keeps.
ColumnLayout {
    id: page
    spacing: 12

    // The chosen content in words: the whole version, or the chosen folders and songs.
    readonly property var chosen: {
        if (Restore.restoreMode !== "folders")
            return ["Full backup"]
        const lines = []
        const songBySong = Restore.songsRestoreMode === "individual"
        for (const folder of Restore.availableFolders) {
            if (songBySong && folder.name.toLowerCase() === "songs")
                continue
            if (folder.selected)
                lines.push(folder.name + "/")
        }
        if (songBySong)
            for (const song of Restore.availableSongs)
                if (song.selected)
                    lines.push(song.relativePath + (song.samplePaths.length > 0
                        ? "  + " + song.samplePaths.length + " sample(s)" : ""))
        return lines
    }

    M8Prompt {
        Layout.fillWidth: true
        text: "Check what will be restored"
    }

    GridLayout {
        columns: 2
        columnSpacing: 18
        rowSpacing: 6
        M8Label { label: "Card" }
        Text {
            objectName: "confirmTarget"
            text: Restore.selectedTarget ? Restore.selectedTarget.volumeName : ""
            color: Theme.palette.ink0
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(12)
        }
        M8Label { label: "Set" }
        Text {
            text: Restore.selectedSet ? Restore.selectedSet.folderName : ""
            color: Theme.palette.ink0
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(12)
        }
        M8Label { label: "Version" }
        Text {
            objectName: "confirmVersion"
            text: Restore.selectedVersion ? Restore.selectedVersion.folderName : ""
            color: Theme.palette.ink0
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(12)
        }
        M8Label { label: "Content"; Layout.alignment: Qt.AlignTop }
        Column {
            objectName: "confirmContent"
            spacing: 2
            Repeater {
                model: page.chosen
                delegate: Text {
                    required property string modelData
                    text: modelData
                    color: Theme.palette.ink0
                    font.family: Theme.monoFamily
                    font.pointSize: M8Type.size(11)
                }
            }
            Text {
                visible: page.chosen.length === 0
                text: "Nothing selected to restore."
                color: Theme.palette.err
                font.family: Theme.monoFamily
                font.pointSize: M8Type.size(11)
            }
        }
    }

    M8LCDPanel {
        Layout.fillWidth: true
        Column {
            width: parent.width
            spacing: 4
            Text {
                objectName: "restoreRule"
                width: parent.width
                text: "Files on the card that are newer than in the backup are kept. Nothing on the card is deleted."
                color: Theme.palette.ink0
                font.family: Theme.monoFamily
                font.pointSize: M8Type.size(11)
                wrapMode: Text.WordWrap
            }
            Text {
                visible: Settings.backupBeforeRestore
                width: parent.width
                text: "The card will be backed up first."
                color: Theme.palette.ink1
                font.family: Theme.monoFamily
                font.pointSize: M8Type.size(10)
                wrapMode: Text.WordWrap
            }
        }
    }

    Item { Layout.fillHeight: true }
}
