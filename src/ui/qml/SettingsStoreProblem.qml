import QtQuick
import Tapekeep.Controllers

// Why changes to the settings are not being kept: a damaged settings file, named with its path,
// or a write that failed. Hidden while the file takes writes.
Rectangle {
    id: banner
    readonly property string problem: Settings.storeProblem

    visible: problem !== ""
    implicitHeight: visible ? message.implicitHeight + 16 : 0
    color: Qt.rgba(Theme.palette.err.r, Theme.palette.err.g, Theme.palette.err.b, 0.12)
    border.color: Theme.palette.err
    radius: 2
    Accessible.role: Accessible.AlertMessage
    Accessible.name: problem

    Text {
        id: message
        objectName: "storeProblemText"
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.verticalCenter: parent.verticalCenter
        anchors.leftMargin: 12
        anchors.rightMargin: 12
        text: M8Symbols.glyph("exclamationmark.triangle") + "  " + banner.problem
        color: Theme.palette.err
        font.family: Theme.fontFamily
        font.pointSize: Theme.fontSize(11)
        wrapMode: Text.Wrap
    }
}
