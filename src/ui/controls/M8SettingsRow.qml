import QtQuick
import QtQuick.Layouts
import Tapekeep.Controllers

// One setting: its label and, under it, what it does, with its control on the right. The control
// is given as the row's content.
Item {
    id: row
    property string label: ""
    property string description: ""
    property bool showsDivider: true
    default property alias control: controlSlot.data

    Layout.fillWidth: true
    implicitHeight: Math.max(texts.implicitHeight, controlSlot.implicitHeight) + 24
    Accessible.role: Accessible.Row
    Accessible.name: label
    Accessible.description: description

    ColumnLayout {
        id: texts
        anchors.left: parent.left
        anchors.leftMargin: 16
        anchors.right: controlSlot.left
        anchors.rightMargin: 16
        anchors.verticalCenter: parent.verticalCenter
        spacing: 3
        Text {
            objectName: "rowLabel"
            Layout.fillWidth: true
            text: row.label
            color: Theme.palette.ink0
            font.family: Theme.fontFamily
            font.pointSize: Theme.fontSize(12)
            wrapMode: Text.WordWrap
        }
        Text {
            objectName: "rowDescription"
            Layout.fillWidth: true
            visible: text !== ""
            text: row.description
            color: Theme.palette.ink2
            font.family: Theme.fontFamily
            font.pointSize: Theme.fontSize(10)
            wrapMode: Text.WordWrap
        }
    }
    Row {
        id: controlSlot
        anchors.right: parent.right
        anchors.rightMargin: 16
        anchors.verticalCenter: parent.verticalCenter
        spacing: 8
    }
    Rectangle {
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.bottom: parent.bottom
        height: 1
        color: Theme.palette.inkGrid
        visible: row.showsDivider
    }
}
