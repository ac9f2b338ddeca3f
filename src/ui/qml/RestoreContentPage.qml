import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Tapekeep.Controllers

// The wizard's fourth page: the whole version, or chosen folders; a folder opens to its entries,
// and Songs is restored as a whole folder or song by song, each song showing the samples that
// come along with it.
ColumnLayout {
    id: page
    spacing: 12

    readonly property bool byFolders: Restore.restoreMode === "folders"
    readonly property bool songBySong: Restore.songsRestoreMode === "individual"
    property var openFolders: ({})

    function isSongs(name) { return name.toLowerCase() === "songs" }
    function toggleOpen(path) {
        const next = Object.assign({}, openFolders)
        next[path] = !next[path]
        openFolders = next
        if (next[path] && Restore.folderChildren[path] === undefined)
            Restore.openFolder(path)
    }

    M8Prompt {
        Layout.fillWidth: true
        text: "Choose what to restore"
    }

    M8Segmented {
        objectName: "restoreMode"
        accessibleName: "What to restore"
        selection: Restore.restoreMode
        options: [{ value: "fullBackup", label: "FULL BACKUP" }, { value: "folders", label: "FOLDERS" }]
        onSelected: value => Restore.restoreMode = value
    }

    RowLayout {
        visible: page.byFolders
        spacing: 10
        M8Label { label: "Folders" }
        M8Label {
            visible: Restore.isLoadingSongs || !Restore.folderSizesLoaded
            label: "Measuring"
            color: Theme.accent
        }
    }

    ScrollView {
        objectName: "contentChoice"
        visible: page.byFolders
        Layout.fillWidth: true
        Layout.fillHeight: true
        clip: true
        contentWidth: availableWidth

        ColumnLayout {
            width: parent.width
            spacing: 2

            Repeater {
                model: page.byFolders ? Restore.availableFolders : []
                delegate: ColumnLayout {
                    id: folderRow
                    required property var modelData
                    readonly property string path: modelData.relativePath || modelData.name
                    readonly property bool open: page.openFolders[path] === true
                    Layout.fillWidth: true
                    spacing: 2

                    RowLayout {
                        Layout.fillWidth: true
                        spacing: 4
                        M8IconButton {
                            objectName: "openFolder_" + folderRow.modelData.name
                            icon: folderRow.open ? "chevron.down" : "chevron.right"
                            title: folderRow.open ? "Close " + folderRow.modelData.name : "Open " + folderRow.modelData.name
                            size: "small"
                            visible: !page.isSongs(folderRow.modelData.name) || !page.songBySong
                            action: function() { page.toggleOpen(folderRow.path) }
                        }
                        OptionCheck {
                            objectName: "folder_" + folderRow.modelData.name
                            Layout.fillWidth: true
                            text: folderRow.modelData.name
                            detail: folderRow.modelData.sizeText !== "" ? folderRow.modelData.sizeText
                                : Restore.folderSizesLoaded ? "" : "\u2026"
                            checked: folderRow.modelData.selected
                            enabled: !folderRow.modelData.locked
                                     && !(page.isSongs(folderRow.modelData.name) && page.songBySong)
                            onToggled: on => Restore.chooseFolder(folderRow.modelData.name, on)
                        }
                    }

                    // Songs: as a whole folder or one by one.
                    M8Segmented {
                        objectName: "songsMode"
                        Layout.leftMargin: 28
                        visible: page.isSongs(folderRow.modelData.name)
                        accessibleName: "How to restore Songs"
                        selection: Restore.songsRestoreMode
                        options: [{ value: "fullFolder", label: "FULL FOLDER" },
                                  { value: "individual", label: "INDIVIDUAL" }]
                        onSelected: value => Restore.songsRestoreMode = value
                    }
                    Repeater {
                        model: page.isSongs(folderRow.modelData.name) && page.songBySong ? Restore.availableSongs : []
                        delegate: ColumnLayout {
                            required property var modelData
                            Layout.leftMargin: 28
                            Layout.fillWidth: true
                            spacing: 0
                            OptionCheck {
                                objectName: "song_" + modelData.relativePath
                                Layout.fillWidth: true
                                text: modelData.relativePath
                                detail: modelData.sizeText
                                checked: modelData.selected
                                onToggled: on => Restore.chooseSong(modelData.relativePath, on)
                            }
                            Text {
                                objectName: "songSamples"
                                Layout.leftMargin: 20
                                Layout.fillWidth: true
                                visible: modelData.samplePaths.length > 0
                                text: "+ " + modelData.samplePaths.join("  ")
                                color: Theme.palette.ink2
                                font.family: Theme.monoFamily
                                font.pointSize: M8Type.size(9)
                                elide: Text.ElideRight
                            }
                        }
                    }

                    // The folder's entries, one level, when it is open.
                    M8Label {
                        Layout.leftMargin: 28
                        visible: folderRow.open && Restore.loadingFolderChildren.indexOf(folderRow.path) >= 0
                        label: "Loading"
                        color: Theme.accent
                    }
                    Repeater {
                        model: folderRow.open && !(page.isSongs(folderRow.modelData.name) && page.songBySong)
                               ? (Restore.folderChildren[folderRow.path] || []) : []
                        delegate: OptionCheck {
                            required property var modelData
                            objectName: "child_" + modelData.relativePath
                            Layout.leftMargin: 28
                            Layout.fillWidth: true
                            text: modelData.name + (modelData.isDirectory ? "/" : "")
                            detail: modelData.sizeText
                            checked: modelData.selected
                            onToggled: on => Restore.chooseChild(folderRow.path, modelData.relativePath, on)
                        }
                    }
                }
            }
        }
    }

    Text {
        objectName: "fullBackupNote"
        visible: !page.byFolders
        Layout.fillWidth: true
        text: "Everything in the version goes back on the card."
        color: Theme.palette.ink1
        font.family: Theme.monoFamily
        font.pointSize: M8Type.size(11)
        wrapMode: Text.WordWrap
    }
    Item { visible: !page.byFolders; Layout.fillHeight: true }
}
