import QtQuick
import QtQuick.Layouts
import Tapekeep.Controllers

// What a card holds ("Songs", "Instruments", "Wavs", "Themes" with counts, or "Scanning"), and what
// its backups amount to: versions, total size and the latest version's note.
ColumnLayout {
    id: facts
    required property var tile
    spacing: 6

    RowLayout {
        objectName: "contentSummary"
        spacing: 18
        Repeater {
            model: facts.tile.contentSummary
            delegate: RowLayout {
                required property var modelData
                spacing: 6
                M8Label {
                    Layout.alignment: Qt.AlignBaseline
                    label: modelData.label
                }
                Text {
                    Layout.alignment: Qt.AlignBaseline
                    text: modelData.count
                    color: Theme.palette.ink0
                    font.family: Theme.monoFamily
                    font.pointSize: M8Type.size(13)
                    font.weight: Font.DemiBold
                }
            }
        }
        M8Label {
            objectName: "contentLabel"
            visible: facts.tile.contentLabel !== ""
            label: facts.tile.contentLabel
            color: facts.tile.contentLabel === "Scanning" ? Theme.accent : Theme.palette.ink2
        }
    }

    RowLayout {
        objectName: "backupFacts"
        spacing: 18
        M8Label {
            objectName: "versionsLabel"
            prefix: String(facts.tile.versions)
            label: facts.tile.versions === 1 ? "version" : "versions"
        }
        M8Label {
            visible: facts.tile.totalSize !== ""
            prefix: facts.tile.totalSize
            label: "in all"
        }
        Text {
            objectName: "latestNote"
            Layout.fillWidth: true
            visible: facts.tile.latestNote !== ""
            text: "\u201C" + facts.tile.latestNote + "\u201D"
            color: Theme.palette.ink1
            font.family: Theme.fontFamily
            font.pointSize: M8Type.size(11)
            font.italic: true
            elide: Text.ElideRight
        }
    }
}
