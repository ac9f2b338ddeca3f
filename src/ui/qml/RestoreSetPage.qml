import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Tapekeep.Controllers

// The wizard's second page: the backup sets of the backup folder, each with its card's name and
// how many versions it holds.
ColumnLayout {
    id: page
    required property var wizard
    spacing: 12

    RowLayout {
        Layout.fillWidth: true
        M8Prompt {
            Layout.fillWidth: true
            text: "Choose the backup set to restore from"
        }
        M8Label {
            visible: Restore.isLoadingSets
            label: "Loading"
            color: Theme.accent
        }
    }

    Text {
        objectName: "noSets"
        visible: !Restore.isLoadingSets && Restore.availableSets.length === 0
        text: "NO BACKUP YET"
        color: Theme.palette.ink2
        font.family: Theme.monoFamily
        font.pointSize: M8Type.size(15)
        font.weight: Font.Bold
    }

    Flow {
        objectName: "setList"
        Layout.fillWidth: true
        spacing: 10
        Repeater {
            model: Restore.availableSets
            delegate: M8SelectCard {
                required property var modelData
                required property int index
                objectName: "set_" + index
                width: Math.max(280, implicitWidth)
                title: modelData.volumeName !== "" ? modelData.volumeName : modelData.folderName
                detail: modelData.folderName + "  " + modelData.versions.length
                        + (modelData.versions.length === 1 ? " version" : " versions")
                selected: index === page.wizard.markedSet
                onChosen: {
                    if (selected)
                        page.wizard.goOn()
                    else
                        page.wizard.markedSet = index
                }
            }
        }
    }

    Item { Layout.fillHeight: true }
}
