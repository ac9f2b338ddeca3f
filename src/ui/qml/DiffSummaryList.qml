import QtQuick
import QtQuick.Layouts
import Tapekeep.Controllers

// The differences between a card and its latest backup, one line per top-level folder.
ColumnLayout {
    id: list
    objectName: "diffSummary"
    property var rows: []
    property bool loading: false
    spacing: 3

    M8Label {
        visible: list.loading
        label: "Checking"
    }
    Repeater {
        model: list.rows
        delegate: RowLayout {
            required property var modelData
            spacing: 12
            Text {
                Layout.preferredWidth: 160
                text: modelData.name
                color: Theme.palette.ink1
                font.family: Theme.monoFamily
                font.pointSize: M8Type.size(10)
                elide: Text.ElideRight
            }
            Text {
                text: "+" + modelData.added
                color: Theme.palette.ok
                font.family: Theme.monoFamily
                font.pointSize: M8Type.size(10)
            }
            Text {
                text: "~" + modelData.modified
                color: Theme.palette.warn
                font.family: Theme.monoFamily
                font.pointSize: M8Type.size(10)
            }
            Text {
                text: "\u2212" + modelData.deleted
                color: Theme.palette.err
                font.family: Theme.monoFamily
                font.pointSize: M8Type.size(10)
            }
        }
    }
}
