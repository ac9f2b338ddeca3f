import QtQuick
import QtQuick.Layouts
import Tapekeep.Controllers

// What the BACKUP screen shows while no card is detected: how to bring the M8's card up as a
// drive, what the last scan examined, and a way to look again.
Item {
    id: panel
    readonly property var status: Backup.scannerStatus
    readonly property bool examinedSome: status !== undefined && status.examinedCount !== undefined
                                         && status.examinedCount > 0

    M8LCDPanel {
        objectName: "noCardPanel"
        anchors.centerIn: parent
        width: Math.min(parent.width - 48, 560)
        padding: 28
        running: Backup.isScanning

        ColumnLayout {
            width: parent.width
            spacing: 14

            Text {
                objectName: "noCardTitle"
                text: "NO CARD"
                color: Theme.accent
                font.family: Theme.monoFamily
                font.pointSize: M8Type.size(26)
                font.weight: Font.Bold
                font.letterSpacing: 4
            }
            M8Prompt {
                Layout.fillWidth: true
                text: "Connect the M8 by USB and put it in USB Drive Mode. Its card then mounts "
                      + "as a drive and shows here."
            }
            Text {
                objectName: "scanSummary"
                Layout.fillWidth: true
                visible: panel.examinedSome
                text: panel.examinedSome
                      ? panel.status.examinedCount
                        + (panel.status.examinedCount === 1 ? " volume" : " volumes")
                        + " examined, " + panel.status.excludedCount + " excluded: no M8 card among them."
                      : ""
                color: Theme.palette.warn
                font.family: Theme.monoFamily
                font.pointSize: M8Type.size(10)
                wrapMode: Text.WordWrap
            }
            Text {
                objectName: "scanError"
                Layout.fillWidth: true
                visible: Backup.scanError !== ""
                text: Backup.scanError
                color: Theme.palette.err
                font.family: Theme.monoFamily
                font.pointSize: M8Type.size(10)
                wrapMode: Text.WordWrap
            }
            RowLayout {
                spacing: 12
                M8PrimaryButton {
                    objectName: "refreshButton"
                    title: "REFRESH"
                    systemImage: "arrow.clockwise"
                    enabled: !Backup.isScanning
                    action: function() { Cards.refresh() }
                }
                M8Label {
                    visible: Backup.isScanning
                    label: "Scanning"
                }
            }
        }
    }
}
