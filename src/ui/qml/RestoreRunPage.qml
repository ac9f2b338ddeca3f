import QtQuick
import QtQuick.Layouts
import Tapekeep.Controllers

// The wizard's seventh page: the run on the LCD panel with its scan line, the share of files done,
// the files remaining and the last lines of the log, with "CANCEL"; the whole log below.
FocusScope {
    id: page
    Keys.onEscapePressed: Restore.cancelRestore()

    readonly property var progress: Restore.progress
    readonly property var lastLines: Restore.logLines.slice(-4)

    ColumnLayout {
        anchors.fill: parent
        spacing: 12

        M8Prompt {
            Layout.fillWidth: true
            text: "Restoring to " + (Restore.selectedTarget ? Restore.selectedTarget.volumeName : "the card")
        }

        M8LCDPanel {
            objectName: "runLcd"
            Layout.fillWidth: true
            running: true

            ColumnLayout {
                width: parent.width
                spacing: 8

                RowLayout {
                    Layout.fillWidth: true
                    spacing: 18
                    Text {
                        objectName: "percent"
                        text: page.progress === null || page.progress === undefined
                              ? "--%" : Math.floor(page.progress * 100) + "%"
                        color: Theme.accent
                        font.family: Theme.monoFamily
                        font.pointSize: M8Type.size(26)
                        font.weight: Font.Bold
                    }
                    ColumnLayout {
                        spacing: 2
                        M8Label { label: "Files remaining" }
                        Text {
                            objectName: "filesRemaining"
                            text: Restore.filesRemaining === null || Restore.filesRemaining === undefined
                                  ? "--" : String(Restore.filesRemaining)
                            color: Theme.palette.ink0
                            font.family: Theme.monoFamily
                            font.pointSize: M8Type.size(13)
                        }
                    }
                    Item { Layout.fillWidth: true }
                }

                Rectangle {
                    objectName: "progressBar"
                    Layout.fillWidth: true
                    implicitHeight: 6
                    color: Theme.palette.lcdDim
                    Rectangle {
                        height: parent.height
                        width: parent.width * Math.max(0, Math.min(1, page.progress || 0))
                        color: Theme.accent
                        Behavior on width { NumberAnimation { duration: 200 } }
                    }
                }

                Repeater {
                    model: page.lastLines
                    delegate: Text {
                        required property string modelData
                        Layout.fillWidth: true
                        text: modelData
                        color: Theme.palette.ink2
                        font.family: Theme.monoFamily
                        font.pointSize: M8Type.size(9)
                        elide: Text.ElideMiddle
                    }
                }
            }
        }

        M8GhostButton {
            objectName: "cancelRestoreButton"
            title: "CANCEL"
            action: function() { Restore.cancelRestore() }
        }

        RestoreLog {
            Layout.fillWidth: true
            Layout.fillHeight: true
            lines: Restore.logLines
        }
    }
}
