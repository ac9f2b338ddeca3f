import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Dialogs
import QtQuick.Layouts
import Tapekeep
import Tapekeep.Controllers

// The SETTINGS screen: a sidebar of the five sections and the rows of the chosen one. Every
// control shows the stored value and writes a change straight to the settings; a change that
// could not be stored leaves the control as it was, and the reason stands at the top.
Rectangle {
    id: tab
    property string section: "storage"

    readonly property var sections: [
        { tag: "storage", label: "Storage", systemImage: "externaldrive" },
        { tag: "backup", label: "Backup", systemImage: "arrow.clockwise" },
        { tag: "notifications", label: "Notifications", systemImage: "bell" },
        { tag: "appearance", label: "Appearance", systemImage: "paintpalette" },
        { tag: "system", label: "System", systemImage: "gear" }
    ]
    readonly property var soundNames: ["Glass", "Basso", "Blow", "Bottle", "Frog", "Funk", "Hero",
        "Morse", "Ping", "Pop", "Purr", "Sosumi", "Submarine", "Tink"]

    function options(values, labels) {
        return values.map((value, index) => ({ value: value, label: labels ? labels[index] : value }))
    }
    // Between a folder's path and its file URL, with every character of a name escaped as needed.
    function fileUrl(path) {
        return "file://" + path.split("/").map(encodeURIComponent).join("/")
    }
    function localPath(url) {
        return decodeURIComponent(url.toString().replace(/^file:\/\//, ""))
    }
    function useBackupFolder(url) {
        Settings.backupBaseDirPath = localPath(url)
    }

    color: Theme.palette.bg0
    onVisibleChanged: if (visible) Settings.recheckStore()

    // A line of text that is stored when editing ends (Return or leaving the field).
    component TextEntry: Rectangle {
        id: entry
        property string value: ""
        property string prompt: ""
        signal edited(string value)
        implicitWidth: 240
        implicitHeight: 26
        radius: 2
        color: Theme.palette.bg2
        border.color: input.activeFocus ? Theme.accent : Theme.palette.border0
        TextInput {
            id: input
            anchors.fill: parent
            anchors.leftMargin: 8
            anchors.rightMargin: 8
            verticalAlignment: TextInput.AlignVCenter
            clip: true
            activeFocusOnTab: true
            text: entry.value
            color: Theme.palette.ink0
            selectionColor: Theme.accent
            selectedTextColor: Theme.palette.bgVoid
            font.family: Theme.monoFamily
            font.pointSize: Theme.fontSize(10)
            Accessible.role: Accessible.EditableText
            Accessible.name: entry.prompt
            onEditingFinished: if (text !== entry.value) entry.edited(text)
            Text {
                anchors.fill: parent
                verticalAlignment: Text.AlignVCenter
                visible: input.text === ""
                text: entry.prompt
                color: Theme.palette.ink3
                font: input.font
            }
        }
    }

    RsyncClassLabel {
        id: rsyncClass
        path: Settings.rsyncPath
    }

    FolderDialog {
        id: folderDialog
        objectName: "folderDialog"
        title: "Choose Backup Folder"
        currentFolder: Settings.backupBaseDirPath !== "" ? tab.fileUrl(Settings.backupBaseDirPath) : ""
        onAccepted: tab.useBackupFolder(selectedFolder)
    }

    RowLayout {
        anchors.fill: parent
        spacing: 0

        // The sidebar.
        Rectangle {
            Layout.fillHeight: true
            Layout.preferredWidth: 200
            color: Theme.palette.bg1
            Column {
                anchors.fill: parent
                anchors.topMargin: 18
                anchors.leftMargin: 10
                anchors.rightMargin: 10
                spacing: 2
                M8Label {
                    leftPadding: 6
                    bottomPadding: 8
                    label: "Settings"
                }
                Repeater {
                    model: tab.sections
                    delegate: M8SettingsNavItem {
                        required property var modelData
                        objectName: "nav_" + modelData.tag
                        width: parent.width
                        label: modelData.label
                        systemImage: modelData.systemImage
                        tag: modelData.tag
                        selection: tab.section
                        onSelected: tag => tab.section = tag
                    }
                }
            }
            Rectangle {
                anchors.right: parent.right
                anchors.top: parent.top
                anchors.bottom: parent.bottom
                width: 1
                color: Theme.palette.border0
            }
        }

        Flickable {
            id: page
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            contentHeight: pageColumn.implicitHeight + 48
            boundsBehavior: Flickable.StopAtBounds
            ScrollBar.vertical: ScrollBar {}

            ColumnLayout {
                id: pageColumn
                x: 28
                y: 24
                width: page.width - 56
                spacing: 16

                SettingsStoreProblem {
                    objectName: "settingsStoreProblem"
                    Layout.fillWidth: true
                }

                M8SettingsSection {
                    objectName: "section_storage"
                    visible: tab.section === "storage"
                    Layout.fillWidth: true
                    title: "Storage"

                    M8SettingsRow {
                        label: "Backup folder"
                        description: Settings.backupBaseDirPath !== "" ? Settings.backupBaseDirPath
                                                                      : "Select where M8 backups should be stored"
                        M8GhostButton {
                            objectName: "chooseBackupFolder"
                            title: "Choose Backup Folder"
                            systemImage: "folder"
                            size: "small"
                            action: function() { folderDialog.open() }
                        }
                    }
                    M8SettingsRow {
                        label: "Versions to keep"
                        description: "Older versions of a card are removed after a backup while rotation is on"
                        M8NumberStepper {
                            objectName: "keepCount"
                            accessibleName: "Versions to keep"
                            value: Settings.keepCount
                            range: ({ from: 1, to: 99 })
                            onValueModified: value => Settings.keepCount = value
                        }
                    }
                    M8SettingsRow {
                        label: "Rotate versions"
                        description: "Keep only the newest versions of each card"
                        M8Toggle {
                            objectName: "rotateBackups"
                            accessibleName: "Rotate versions"
                            isOn: Settings.rotateBackups
                            onToggled: isOn => Settings.rotateBackups = isOn
                        }
                    }
                    M8SettingsRow {
                        label: "rsync"
                        description: rsyncClass.problem !== "" ? rsyncClass.problem : Settings.rsyncPath
                        showsDivider: false
                        Text {
                            objectName: "rsyncClassLabel"
                            anchors.verticalCenter: parent.verticalCenter
                            text: rsyncClass.isDetecting ? "checking\u2026" : rsyncClass.label
                            color: rsyncClass.label === "unsupported" ? Theme.palette.err
                                 : rsyncClass.label.startsWith("openrsync") ? Theme.palette.warn
                                 : Theme.palette.ok
                            font.family: Theme.monoFamily
                            font.pointSize: Theme.fontSize(10)
                        }
                        M8MenuPicker {
                            objectName: "rsyncPath"
                            accessibleName: "rsync"
                            selection: Settings.rsyncPath
                            options: tab.options(rsyncClass.installed.indexOf(Settings.rsyncPath) >= 0
                                                 ? rsyncClass.installed
                                                 : [Settings.rsyncPath].concat(rsyncClass.installed))
                            onSelected: value => Settings.rsyncPath = value
                        }
                    }
                }

                M8SettingsSection {
                    objectName: "section_backup"
                    visible: tab.section === "backup"
                    Layout.fillWidth: true
                    title: "Backup"

                    M8SettingsRow {
                        label: "Verify after backup"
                        description: "Compare the new version with the card once it is written"
                        M8Toggle {
                            objectName: "verifyAfterBackup"
                            accessibleName: "Verify after backup"
                            isOn: Settings.verifyAfterBackup
                            onToggled: isOn => Settings.verifyAfterBackup = isOn
                        }
                    }
                    M8SettingsRow {
                        label: "When verification finds a difference"
                        description: "Retry the backup, flag the version, or abort"
                        M8Segmented {
                            objectName: "verifyMismatchAction"
                            accessibleName: "When verification finds a difference"
                            enabled: Settings.verifyAfterBackup
                            selection: Settings.verifyMismatchActionRaw
                            options: tab.options(["retry", "flag", "abort"], ["RETRY", "FLAG", "ABORT"])
                            onSelected: value => Settings.verifyMismatchActionRaw = value
                        }
                    }
                    M8SettingsRow {
                        label: "Back up when a card connects"
                        description: "Start a backup by itself after a short countdown"
                        M8Toggle {
                            objectName: "autoBackupOnConnect"
                            accessibleName: "Back up when a card connects"
                            isOn: Settings.autoBackupOnConnect
                            onToggled: isOn => Settings.autoBackupOnConnect = isOn
                        }
                    }
                    M8SettingsRow {
                        label: "Countdown"
                        description: "Seconds before an automatic backup starts"
                        M8NumberStepper {
                            objectName: "autoBackupDelaySeconds"
                            accessibleName: "Countdown"
                            enabled: Settings.autoBackupOnConnect
                            value: Settings.autoBackupDelaySeconds
                            range: ({ from: 0, to: 60 })
                            unit: "s"
                            onValueModified: value => Settings.autoBackupDelaySeconds = value
                        }
                    }
                    M8SettingsRow {
                        label: "Eject after backup"
                        description: "Eject the card once its backup has succeeded"
                        M8Toggle {
                            objectName: "autoEjectOnCompletion"
                            accessibleName: "Eject after backup"
                            isOn: Settings.autoEjectOnCompletion
                            onToggled: isOn => Settings.autoEjectOnCompletion = isOn
                        }
                    }
                    M8SettingsRow {
                        label: "Excluded volumes"
                        description: "Volume names never examined, separated by commas"
                        showsDivider: false
                        TextEntry {
                            objectName: "excludedVolumes"
                            prompt: "Excluded volumes"
                            value: Settings.excludedVolumes
                            onEdited: value => Settings.excludedVolumes = value
                        }
                    }
                }

                M8SettingsSection {
                    objectName: "section_notifications"
                    visible: tab.section === "notifications"
                    Layout.fillWidth: true
                    title: "Notifications"

                    M8SettingsRow {
                        label: "Play a sound"
                        description: "When a backup has finished"
                        M8Toggle {
                            objectName: "playSoundOnCompletion"
                            accessibleName: "Play a sound"
                            isOn: Settings.playSoundOnCompletion
                            onToggled: isOn => Settings.playSoundOnCompletion = isOn
                        }
                    }
                    M8SettingsRow {
                        label: "Sound"
                        M8MenuPicker {
                            objectName: "completionSoundName"
                            accessibleName: "Sound"
                            enabled: Settings.playSoundOnCompletion
                            selection: Settings.completionSoundName
                            options: tab.options(tab.soundNames.indexOf(Settings.completionSoundName) >= 0
                                                 ? tab.soundNames
                                                 : [Settings.completionSoundName].concat(tab.soundNames))
                            onSelected: value => Settings.completionSoundName = value
                        }
                    }
                    M8SettingsRow {
                        label: "Notify on completion"
                        description: "A desktop notification when a backup succeeds"
                        M8Toggle {
                            objectName: "notifyOnCompletion"
                            accessibleName: "Notify on completion"
                            isOn: Settings.notifyOnCompletion
                            onToggled: isOn => Settings.notifyOnCompletion = isOn
                        }
                    }
                    M8SettingsRow {
                        label: "Notify on failure"
                        description: "A desktop notification when a backup fails"
                        showsDivider: false
                        M8Toggle {
                            objectName: "notifyOnFailure"
                            accessibleName: "Notify on failure"
                            isOn: Settings.notifyOnFailure
                            onToggled: isOn => Settings.notifyOnFailure = isOn
                        }
                    }
                }

                M8SettingsSection {
                    objectName: "section_appearance"
                    visible: tab.section === "appearance"
                    Layout.fillWidth: true
                    title: "Appearance"

                    M8SettingsRow {
                        label: "Appearance"
                        M8Segmented {
                            objectName: "appearance"
                            accessibleName: "Appearance"
                            selection: Settings.appearance
                            options: tab.options(["system", "dark", "light"], ["System", "Dark", "Light"])
                            onSelected: value => Settings.appearance = value
                        }
                    }
                    M8SettingsRow {
                        label: "Accent"
                        M8SwatchPicker {
                            objectName: "accent"
                            selection: Theme.accentName
                            onSelected: name => Settings.m8Accent = name
                        }
                    }
                    M8SettingsRow {
                        label: "Type"
                        description: "Monospaced like the tracker, or a sans-serif"
                        M8Segmented {
                            objectName: "typeMode"
                            accessibleName: "Type"
                            selection: Theme.typeMode
                            options: tab.options(["mono", "sans"], ["MONO", "SANS"])
                            onSelected: value => Settings.m8TypeMode = value
                        }
                    }
                    M8SettingsRow {
                        label: "Type scale"
                        M8Segmented {
                            objectName: "typeScale"
                            accessibleName: "Type scale"
                            selection: Theme.typeScale
                            options: tab.options(["xs", "sm", "md", "lg", "xl"], ["XS", "SM", "MD", "LG", "XL"])
                            onSelected: value => Settings.m8TypeScale = value
                        }
                    }
                    // The live sample: the theme as it is now, in its type and colours.
                    Rectangle {
                        objectName: "appearanceSample"
                        Layout.fillWidth: true
                        Layout.margins: 16
                        implicitHeight: sample.implicitHeight + 28
                        color: Theme.palette.bgLCD
                        border.color: Theme.palette.border0
                        radius: 2
                        Rectangle {
                            objectName: "sampleAccent"
                            anchors.left: parent.left
                            anchors.top: parent.top
                            anchors.bottom: parent.bottom
                            width: 6
                            color: Theme.accent
                        }
                        Column {
                            id: sample
                            x: 22
                            anchors.verticalCenter: parent.verticalCenter
                            spacing: 6
                            M8Label {
                                prefix: "01"
                                label: "Sample"
                            }
                            Text {
                                text: "TAPEKEEP"
                                color: Theme.accent
                                font.family: Theme.monoFamily
                                font.pointSize: Theme.fontSize(15)
                                font.weight: Font.Bold
                                font.letterSpacing: 3
                            }
                            Text {
                                text: "Songs 12  \u2022  Instruments 48  \u2022  Wavs 310"
                                color: Theme.palette.ink0
                                font.family: Theme.fontFamily
                                font.pointSize: Theme.fontSize(12)
                            }
                            Text {
                                text: "Last backup 2 minutes ago"
                                color: Theme.palette.ink2
                                font.family: Theme.fontFamily
                                font.pointSize: Theme.fontSize(10)
                            }
                        }
                    }
                }

                M8SettingsSection {
                    objectName: "section_system"
                    visible: tab.section === "system"
                    Layout.fillWidth: true
                    title: "System"

                    M8SettingsRow {
                        label: "Tray icon"
                        description: "Show Tapekeep in the system tray"
                        M8Toggle {
                            objectName: "menuBarMode"
                            accessibleName: "Tray icon"
                            isOn: Settings.menuBarMode
                            onToggled: isOn => Settings.menuBarMode = isOn
                        }
                    }
                    M8SettingsRow {
                        label: "Launch at login"
                        description: "Start Tapekeep when you log in"
                        M8Toggle {
                            objectName: "launchOnLogin"
                            accessibleName: "Launch at login"
                            isOn: Settings.launchOnLogin
                            onToggled: isOn => Settings.launchOnLogin = isOn
                        }
                    }
                    M8SettingsRow {
                        label: "Ask to eject on quit"
                        description: "Offer to eject connected cards when Tapekeep quits"
                        showsDivider: false
                        M8Toggle {
                            objectName: "askToEjectOnQuit"
                            accessibleName: "Ask to eject on quit"
                            isOn: Settings.askToEjectOnQuit
                            onToggled: isOn => Settings.askToEjectOnQuit = isOn
                        }
                    }
                }
            }
        }
    }
}
