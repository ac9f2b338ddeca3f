import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Dialogs
import QtQuick.Layouts
import Tapekeep.Controllers

// The options sheet of a card: its top-level folders with sizes as they load, the songs one by one
// when Songs as a whole is not chosen, a destination for this run alone, verification, and "START"
// or "CANCEL". Return starts, Esc cancels.
FocusScope {
    id: sheet
    objectName: "optionsSheet"
    required property var tile
    implicitHeight: content.implicitHeight
    focus: true
    Component.onCompleted: forceActiveFocus()

    Keys.onReturnPressed: Cards.backUp(tile.uuid)
    Keys.onEnterPressed: Cards.backUp(tile.uuid)
    Keys.onEscapePressed: Cards.cancelConfirmation(tile.uuid)

    FolderDialog {
        id: destinationDialog
        title: "Choose a destination for this backup"
        onAccepted: Cards.chooseDestination(sheet.tile.uuid, selectedFolder)
    }

    ColumnLayout {
        id: content
        width: parent.width
        spacing: 10

        RowLayout {
            spacing: 10
            M8Label { label: "Folders" }
            M8Label {
                visible: !sheet.tile.sizesLoaded
                label: "Measuring"
                color: Theme.accent
            }
        }
        GridLayout {
            objectName: "folderList"
            Layout.fillWidth: true
            columns: Math.max(1, Math.floor(width / 260))
            columnSpacing: 18
            rowSpacing: 2
            Repeater {
                model: sheet.tile.folders
                delegate: OptionCheck {
                    required property var modelData
                    Layout.fillWidth: true
                    text: modelData.name
                    detail: modelData.sizeText !== "" ? modelData.sizeText
                        : sheet.tile.sizesLoaded ? "" : "\u2026"
                    checked: modelData.selected
                    enabled: !modelData.locked
                    onToggled: on => Cards.setFolderSelected(sheet.tile.uuid, modelData.name, on)
                }
            }
        }

        M8Label {
            visible: sheet.tile.songsPartlyChosen
            label: "Songs"
        }
        Flow {
            objectName: "songList"
            visible: sheet.tile.songsPartlyChosen
            Layout.fillWidth: true
            spacing: 4
            Repeater {
                model: sheet.tile.songsPartlyChosen ? sheet.tile.songs : []
                delegate: OptionCheck {
                    required property var modelData
                    width: 240
                    text: modelData.name
                    detail: modelData.sizeText
                    checked: modelData.selected
                    onToggled: on => Cards.setSongSelected(sheet.tile.uuid, modelData.relativePath, on)
                }
            }
        }

        RowLayout {
            Layout.fillWidth: true
            spacing: 10
            M8Label { label: "Destination" }
            Text {
                objectName: "destination"
                Layout.fillWidth: true
                text: sheet.tile.destinationOverride !== "" ? sheet.tile.destinationOverride
                    : Settings.backupBaseDirPath !== "" ? Settings.backupBaseDirPath : "Usual backup folder"
                color: sheet.tile.destinationOverride !== "" ? Theme.accent : Theme.palette.ink1
                font.family: Theme.monoFamily
                font.pointSize: M8Type.size(10)
                elide: Text.ElideMiddle
            }
            M8GhostButton {
                objectName: "chooseDestinationButton"
                title: "CHOOSE\u2026"
                systemImage: "folder"
                size: "small"
                action: function() { destinationDialog.open() }
            }
            M8GhostButton {
                visible: sheet.tile.destinationOverride !== ""
                title: "USUAL FOLDER"
                size: "small"
                action: function() { Cards.openOptions(sheet.tile.uuid) }
            }
        }

        OptionCheck {
            objectName: "verifyToggle"
            text: "Verify after backup"
            checked: Settings.verifyAfterBackup
            onToggled: on => Settings.verifyAfterBackup = on
        }

        RowLayout {
            spacing: 10
            M8PrimaryButton {
                objectName: "startButton"
                title: "START"
                action: function() { Cards.backUp(sheet.tile.uuid) }
            }
            M8GhostButton {
                objectName: "cancelButton"
                title: "CANCEL"
                action: function() { Cards.cancelConfirmation(sheet.tile.uuid) }
            }
        }
    }
}
