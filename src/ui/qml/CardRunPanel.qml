import QtQuick
import QtQuick.Layouts
import Tapekeep.Controllers

// A card's run on the LCD panel: the scan line, the progress bar, percent, files remaining, elapsed
// time, the last lines of the log, and "CANCEL".
FocusScope {
    id: panel
    objectName: "runPanel"
    required property var tile
    implicitHeight: column.implicitHeight
    Keys.onEscapePressed: Cards.cancelRun(tile.uuid)

    ColumnLayout {
        id: column
        width: parent.width
        spacing: 10

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
                        text: panel.tile.percent === null || panel.tile.percent === undefined
                              ? "--%" : panel.tile.percent + "%"
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
                            text: panel.tile.filesRemaining === null || panel.tile.filesRemaining === undefined
                                  ? "--" : String(panel.tile.filesRemaining)
                            color: Theme.palette.ink0
                            font.family: Theme.monoFamily
                            font.pointSize: M8Type.size(13)
                        }
                    }
                    ColumnLayout {
                        spacing: 2
                        M8Label { label: "Elapsed" }
                        Text {
                            objectName: "elapsed"
                            text: panel.tile.elapsed !== "" ? panel.tile.elapsed : "0:00"
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
                        width: parent.width * Math.max(0, Math.min(1, panel.tile.progress || 0))
                        color: Theme.accent
                        Behavior on width { NumberAnimation { duration: 200 } }
                    }
                }

                Repeater {
                    model: panel.tile.recentLog
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

        RowLayout {
            spacing: 10
            M8GhostButton {
                objectName: "cancelRunButton"
                title: "CANCEL"
                action: function() { Cards.cancelRun(panel.tile.uuid) }
            }
            M8GhostButton {
                title: panel.tile.showingLog ? "HIDE LOG" : "SHOW LOG"
                size: "small"
                action: function() { panel.tile.showingLog = !panel.tile.showingLog }
            }
        }
    }
}
