import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Tapekeep.Controllers

// The wizard's first page: the detected cards to restore to; "REFRESH" looks again.
ColumnLayout {
    id: page
    required property var wizard
    spacing: 12

    RowLayout {
        Layout.fillWidth: true
        M8Prompt {
            Layout.fillWidth: true
            text: "Choose the card to restore to"
        }
        M8Label {
            visible: Restore.isLoadingTargets
            label: "Scanning"
            color: Theme.accent
        }
        M8GhostButton {
            objectName: "refreshTargetsButton"
            title: "REFRESH"
            systemImage: "arrow.clockwise"
            size: "small"
            action: function() { Restore.loadTargets() }
        }
    }

    Text {
        objectName: "noTargets"
        visible: !Restore.isLoadingTargets && Restore.availableTargets.length === 0
        text: "NO CARD"
        color: Theme.palette.ink2
        font.family: Theme.monoFamily
        font.pointSize: M8Type.size(15)
        font.weight: Font.Bold
    }

    Flow {
        objectName: "targetList"
        Layout.fillWidth: true
        spacing: 10
        Repeater {
            model: Restore.availableTargets
            delegate: M8SelectCard {
                required property var modelData
                required property int index
                objectName: "target_" + index
                width: Math.max(280, implicitWidth)
                title: modelData.volumeName
                detail: modelData.uuid.slice(-8) + "  " + modelData.mountPath
                selected: index === page.wizard.markedTarget
                onChosen: {
                    if (selected)
                        page.wizard.goOn()
                    else
                        page.wizard.markedTarget = index
                }
            }
        }
    }

    Item { Layout.fillHeight: true }
}
