import QtQuick
import QtQuick.Layouts
import Tapekeep.Controllers

// The word mark, the card status chip and the tab bar.
Rectangle {
    id: header
    implicitHeight: 52
    color: Theme.palette.bg0

    // "CONNECTED • READY" when a card is there, "PENDING" while the first scan runs, "ERROR" when
    // scanning failed, "NO CARD" otherwise.
    readonly property string chipText: Backup.scanError !== "" ? "ERROR"
        : Backup.detectedCards.length > 0 ? "CONNECTED \u2022 READY"
        : Backup.isScanning ? "PENDING" : "NO CARD"
    readonly property color chipColour: chipText === "ERROR" ? Theme.palette.err
        : chipText === "PENDING" ? Theme.palette.warn
        : chipText === "NO CARD" ? Theme.palette.ink2 : Theme.palette.ok

    RowLayout {
        anchors.fill: parent
        anchors.leftMargin: 18
        anchors.rightMargin: 18
        spacing: 18

        Text {
            objectName: "wordMark"
            text: "TAPEKEEP"
            color: Theme.accent
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(15)
            font.weight: Font.Bold
            font.letterSpacing: 3
        }

        Rectangle {
            objectName: "statusChip"
            implicitWidth: chipRow.implicitWidth + 16
            implicitHeight: 22
            radius: 2
            color: Theme.palette.bg2
            border.color: Theme.palette.border0
            Row {
                id: chipRow
                anchors.centerIn: parent
                spacing: 6
                Rectangle {
                    width: 6; height: 6; radius: 3
                    anchors.verticalCenter: parent.verticalCenter
                    color: header.chipColour
                }
                Text {
                    objectName: "statusChipText"
                    text: header.chipText
                    color: Theme.palette.ink1
                    font.family: Theme.monoFamily
                    font.pointSize: M8Type.size(9)
                    font.letterSpacing: 1
                }
            }
        }

        Item { Layout.fillWidth: true }

        M8TabBar {
            objectName: "tabBar"
            selection: Settings.mainTab
            onSelected: tab => Settings.mainTab = tab
        }
    }

    Rectangle {
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.bottom: parent.bottom
        height: 1
        color: Theme.palette.border0
    }
}
