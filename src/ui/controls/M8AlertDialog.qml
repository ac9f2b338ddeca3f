import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import QtQuick.Templates as T
import Tapekeep.Controllers

// A modal alert in the tracker's style: a title, an optional text, an optional suppression box and
// the buttons. The first button is the default one, on the right and filled, and Return presses it;
// Esc presses the one that backs out ("Cancel", "Don't Close", or a lone button). A button named
// in `destructive` is drawn in the error colour. Each press reports `answered` with the button's
// title and the state of the box.
Popup {
    id: alert

    property string title: ""
    property string text: ""
    property var buttons: []
    property string suppression: ""
    property string destructive: ""
    property bool suppressed: false

    signal answered(string button, bool suppressed)

    readonly property string backOutButton: buttons.indexOf("Cancel") >= 0 ? "Cancel"
        : buttons.indexOf("Don't Close") >= 0 ? "Don't Close"
        : buttons.length === 1 ? buttons[0] : ""

    function press(button) {
        if (button !== "") alert.answered(button, alert.suppressed)
    }

    parent: T.Overlay.overlay
    anchors.centerIn: parent
    modal: true
    focus: true
    closePolicy: Popup.NoAutoClose
    width: 440
    padding: 20
    onAboutToShow: suppressed = false

    T.Overlay.modal: Rectangle { color: Qt.rgba(0, 0, 0, 0.55) }
    background: Rectangle {
        color: Theme.palette.bg1
        border.color: Theme.palette.border1
        radius: 2
    }

    contentItem: ColumnLayout {
        spacing: 14
        focus: true
        Keys.onReturnPressed: alert.press(alert.buttons.length > 0 ? alert.buttons[0] : "")
        Keys.onEnterPressed: alert.press(alert.buttons.length > 0 ? alert.buttons[0] : "")
        Keys.onEscapePressed: alert.press(alert.backOutButton)

        Text {
            objectName: "alertTitle"
            Layout.fillWidth: true
            text: alert.title
            wrapMode: Text.Wrap
            color: Theme.palette.ink0
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(13)
            font.weight: Font.Bold
        }
        Text {
            objectName: "alertText"
            Layout.fillWidth: true
            visible: alert.text !== ""
            text: alert.text
            wrapMode: Text.Wrap
            color: Theme.palette.ink1
            font.family: Theme.fontFamily
            font.pointSize: M8Type.size(11)
        }
        Item {
            objectName: "alertSuppression"
            visible: alert.suppression !== ""
            implicitWidth: suppressionRow.implicitWidth
            implicitHeight: suppressionRow.implicitHeight
            Accessible.role: Accessible.CheckBox
            Accessible.name: alert.suppression
            Accessible.checked: alert.suppressed

            Row {
                id: suppressionRow
                spacing: 8
                Rectangle {
                    width: 14; height: 14; radius: 2
                    anchors.verticalCenter: parent.verticalCenter
                    color: alert.suppressed ? Theme.accent : "transparent"
                    border.color: alert.suppressed ? Theme.accent : Theme.palette.border1
                    Text {
                        anchors.centerIn: parent
                        visible: alert.suppressed
                        text: "\u2713"
                        color: Theme.palette.bg0
                        font.pointSize: M8Type.size(9)
                    }
                }
                Text {
                    text: alert.suppression
                    color: Theme.palette.ink1
                    font.family: Theme.fontFamily
                    font.pointSize: M8Type.size(11)
                }
            }
            MouseArea {
                anchors.fill: parent
                cursorShape: Qt.PointingHandCursor
                onClicked: alert.suppressed = !alert.suppressed
            }
        }
        RowLayout {
            Layout.fillWidth: true
            spacing: 8
            Item { Layout.fillWidth: true }
            Repeater {
                // Right to left, so that the default button ends up on the right.
                model: alert.buttons.slice().reverse()
                delegate: Loader {
                    required property string modelData
                    readonly property bool isDefault: modelData === alert.buttons[0]
                    sourceComponent: modelData === alert.destructive ? dangerButton
                        : isDefault ? primaryButton : ghostButton
                    onLoaded: {
                        item.title = modelData
                        item.objectName = "alertButton:" + modelData
                        item.clicked.connect(() => alert.press(modelData))
                    }
                }
            }
        }
    }

    Component { id: primaryButton; M8PrimaryButton {} }
    Component { id: ghostButton; M8GhostButton {} }
    Component { id: dangerButton; M8DangerButton {} }
}
