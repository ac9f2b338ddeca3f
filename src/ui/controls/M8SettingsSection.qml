import QtQuick
import QtQuick.Layouts
import Tapekeep.Controllers

// A block of the settings: its title as a tracker label over a panel that holds the rows given as
// its content, each separated from the next by a grid line.
ColumnLayout {
    id: section
    property string title: ""
    default property alias content: rows.data

    spacing: 8
    Accessible.role: Accessible.Grouping
    Accessible.name: title

    M8Label {
        objectName: "sectionTitle"
        prefix: "//"
        label: section.title
        baseSize: 10
    }
    Rectangle {
        Layout.fillWidth: true
        implicitHeight: rows.implicitHeight
        color: Theme.palette.bg1
        border.color: Theme.palette.border1
        radius: 2
        ColumnLayout {
            id: rows
            anchors.left: parent.left
            anchors.right: parent.right
            spacing: 0
        }
    }
}
