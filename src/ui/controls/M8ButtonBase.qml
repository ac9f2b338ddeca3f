import QtQuick
import QtQuick.Controls.Basic
import Tapekeep.Controllers

// What every M8 button shares: the tracker's small capitals, the press behaviour, keyboard focus,
// and `action` called on a click or on Return.
Control {
    id: control

    signal clicked()
    readonly property bool pressed: mouse.pressed

    property string title: ""
    property string systemImage: ""
    property string size: "regular"  // "small", "regular" or "large"
    property var action: null
    property color fill: "transparent"
    property color ink: Theme.palette.ink0
    property color outline: "transparent"

    readonly property M8PressableStyle pressable: M8PressableStyle {}
    readonly property real baseTextSize: size === "small" ? 10 : size === "large" ? 13 : 11

    focusPolicy: Qt.StrongFocus
    activeFocusOnTab: true
    Accessible.role: Accessible.Button
    Accessible.onPressAction: clicked()
    hoverEnabled: true
    opacity: enabled ? 1.0 : 0.4
    scale: pressable.scaleFor(enabled, hovered, pressed)
    Behavior on scale { NumberAnimation { duration: 80 } }
    implicitHeight: size === "small" ? 24 : size === "large" ? 40 : 30
    implicitWidth: Math.max(implicitHeight, label.implicitWidth + (size === "small" ? 16 : 28))
    Accessible.name: title

    onClicked: if (action) action()
    Keys.onReturnPressed: clicked()
    Keys.onEnterPressed: clicked()
    Keys.onSpacePressed: clicked()

    MouseArea {
        id: mouse
        anchors.fill: parent
        enabled: control.enabled
        cursorShape: Qt.PointingHandCursor
        onClicked: control.clicked()
    }

    background: Rectangle {
        color: control.fill
        border.color: control.visualFocus ? Theme.accent : control.outline
        border.width: control.outline.a > 0 || control.visualFocus ? 1 : 0
        radius: 2
    }
    contentItem: Text {
        id: label
        text: (control.systemImage ? M8Symbols.glyph(control.systemImage) + " " : "") + control.title
        color: control.ink
        font.family: Theme.monoFamily
        font.pointSize: M8Type.size(control.baseTextSize)
        font.weight: Font.DemiBold
        font.letterSpacing: 1
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
        elide: Text.ElideRight
    }
}
