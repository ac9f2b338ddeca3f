import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Dialogs
import QtQuick.Layouts
import Tapekeep.Controllers

// The wizard's third page: the set's versions newest first, each with its date, size, note (edited
// in place), the latest mark and "EXPORT ZIP…"; "COMPARE…" opens the comparison sheet with the
// marked version over the one before it.
ColumnLayout {
    id: page
    required property var wizard
    property int noteRow: -1  // the row whose note was saved last: its failure shows under it
    property int exportRow: -1
    spacing: 12

    function exportTo(row, destination) {
        Restore.exportVersion(row, destination)
    }
    function dateText(version) {
        return version.date === null || version.date === undefined ? version.folderName
            : Qt.formatDateTime(new Date(version.date), "yyyy-MM-dd  HH:mm:ss")
    }
    // The last line that an export wrote to the log.
    readonly property string exportStatus: {
        const lines = Restore.logLines
        for (let index = lines.length - 1; index >= 0; --index)
            if (lines[index].startsWith("Export") || lines[index].startsWith("Calculating size"))
                return lines[index]
        return ""
    }

    FileDialog {
        id: exportDialog
        title: "Export the version as a ZIP archive"
        fileMode: FileDialog.SaveFile
        nameFilters: ["ZIP archives (*.zip)"]
        onAccepted: page.exportTo(page.exportRow, selectedFile)
    }

    RowLayout {
        Layout.fillWidth: true
        M8Prompt {
            Layout.fillWidth: true
            text: "Choose the version to restore"
        }
        M8Label {
            visible: Restore.isLoadingVersionSizes
            label: "Loading"
            color: Theme.accent
        }
        M8GhostButton {
            objectName: "compareButton"
            title: "COMPARE\u2026"
            size: "small"
            enabled: page.wizard.versions.length >= 2
            action: function() {
                const marked = Math.max(0, page.wizard.markedVersion)
                Comparison.open(marked, Math.min(marked + 1, page.wizard.versions.length - 1))
            }
        }
    }

    ListView {
        id: rows
        objectName: "versionList"
        Layout.fillWidth: true
        Layout.fillHeight: true
        clip: true
        spacing: 6
        boundsBehavior: Flickable.StopAtBounds
        ScrollBar.vertical: ScrollBar {}
        model: page.wizard.versions

        delegate: ColumnLayout {
            id: row
            required property var modelData
            required property int index
            objectName: "version_" + index
            width: rows.width
            spacing: 2

            RowLayout {
                Layout.fillWidth: true
                spacing: 10
                M8SelectCard {
                    objectName: "versionCard"
                    Layout.preferredWidth: 300
                    title: page.dateText(row.modelData)
                    detail: Restore.versionSizeTexts[row.modelData.folderName] !== undefined
                            ? Restore.versionSizeTexts[row.modelData.folderName]
                            : Restore.isLoadingVersionSizes ? "\u2026" : ""
                    selected: row.index === page.wizard.markedVersion
                    onChosen: {
                        if (selected)
                            page.wizard.goOn()
                        else
                            page.wizard.markedVersion = row.index
                    }
                }
                M8Badge {
                    objectName: "latestBadge"
                    visible: row.modelData.isLatest
                    text: "LATEST"
                    tone: "accent"
                }
                VersionNoteField {
                    objectName: "noteField"
                    Layout.fillWidth: true
                    note: Restore.versionNotes[row.modelData.folderName] || ""
                    onSaved: text => {
                        page.noteRow = row.index
                        Restore.saveNote(row.index, text)
                    }
                }
                M8GhostButton {
                    objectName: "exportButton"
                    title: "EXPORT ZIP\u2026"
                    size: "small"
                    enabled: !Restore.isExporting
                    action: function() {
                        page.exportRow = row.index
                        exportDialog.open()
                    }
                }
            }
            Text {
                objectName: "noteError"
                Layout.fillWidth: true
                Layout.leftMargin: 310
                visible: row.index === page.noteRow && Restore.noteSaveError !== null
                         && Restore.noteSaveError !== undefined
                text: visible ? Restore.noteSaveError : ""
                color: Theme.palette.err
                font.family: Theme.monoFamily
                font.pointSize: M8Type.size(10)
                wrapMode: Text.WordWrap
            }
        }
    }

    RowLayout {
        objectName: "exportStatus"
        Layout.fillWidth: true
        visible: Restore.isExporting || page.exportStatus !== ""
        spacing: 12
        M8LCDPanel {
            visible: Restore.isExporting
            running: Restore.isExporting
            padding: 6
            Layout.preferredWidth: 220
            Rectangle {
                width: 200
                height: 6
                y: 2
                color: Theme.palette.lcdDim
                Rectangle {
                    height: parent.height
                    width: parent.width * Math.max(0, Math.min(1, Restore.exportProgress))
                    color: Theme.accent
                }
            }
        }
        Text {
            objectName: "exportPercent"
            visible: Restore.isExporting
            text: Restore.exportPercent + "%"
            color: Theme.accent
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(11)
        }
        Text {
            objectName: "exportLine"
            Layout.fillWidth: true
            text: page.exportStatus
            color: page.exportStatus.startsWith("Export failed") || page.exportStatus.startsWith("Export unavailable")
                   ? Theme.palette.err : Theme.palette.ink1
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(10)
            elide: Text.ElideMiddle
        }
        M8GhostButton {
            objectName: "cancelExportButton"
            visible: Restore.isExporting
            title: "CANCEL"
            size: "small"
            action: function() { Restore.cancelExport() }
        }
    }
}
