import QtQuick
import QtQuick.Layouts
import Tapekeep.Controllers

// The stage sheet over the BROWSE screen: a sample's waveform with the kept range drawn on it and
// dragged by its two edges, the range's times, "+ NEW" or "REPLACE", the target path with the
// suggested name, and every warning of the staging rules where it applies. A replace asks first.
// Return stages, Esc cancels a staging under way or closes.
FocusScope {
    id: sheet
    objectName: "stageSheet"
    readonly property var stage: EditSheets.stageSheet
    visible: stage !== null && stage !== undefined
    onVisibleChanged: if (visible) forceActiveFocus()

    readonly property bool isNewFile: visible && stage.mode === "+ NEW"
    readonly property var modeOptions: {
        if (!visible) return []
        const options = [{ value: "+ NEW", label: "+ NEW" }]
        if (stage.canReplace) options.push({ value: "REPLACE", label: "REPLACE" })
        return options
    }

    function requestStage() {
        if (!visible || !stage.canStage) return
        if (stage.replaceQuestion !== "") replaceAlert.open()
        else stage.stage()
    }
    function dismiss() {
        if (visible && stage.isStaging) stage.cancel()
        else EditSheets.closeStageSheet()
    }

    Keys.onEscapePressed: dismiss()
    Keys.onReturnPressed: requestStage()
    Keys.onEnterPressed: requestStage()

    Rectangle {
        anchors.fill: parent
        color: Theme.palette.bgVoid
        opacity: 0.7
        MouseArea {
            anchors.fill: parent
            onClicked: sheet.dismiss()
        }
    }

    Rectangle {
        anchors.centerIn: parent
        width: Math.min(parent.width - 60, 760)
        height: Math.min(parent.height - 60, 600)
        color: Theme.palette.bg1
        border.color: Theme.palette.border0
        border.width: 1
        radius: 2
        MouseArea { anchors.fill: parent }  // clicks on the sheet stay on it

        ColumnLayout {
            anchors.fill: parent
            anchors.margins: 18
            spacing: 10

            RowLayout {
                Layout.fillWidth: true
                M8Label {
                    label: "Stage trim"
                    baseSize: 12
                }
                Text {
                    objectName: "stageSource"
                    Layout.fillWidth: true
                    text: sheet.visible ? sheet.stage.source : ""
                    elide: Text.ElideMiddle
                    color: Theme.palette.ink1
                    font.family: Theme.monoFamily
                    font.pointSize: M8Type.size(11)
                }
                M8IconButton {
                    objectName: "closeStageSheetButton"
                    icon: "xmark"
                    title: "Close"
                    size: "small"
                    action: function() { sheet.dismiss() }
                }
            }

            Text {
                objectName: "stageLoadMessage"
                visible: text !== ""
                Layout.fillWidth: true
                text: sheet.visible ? sheet.stage.loadMessage : ""
                color: sheet.visible && sheet.stage.isLoading ? Theme.accent : Theme.palette.err
                font.family: Theme.monoFamily
                font.pointSize: M8Type.size(11)
                wrapMode: Text.WordWrap
            }
            Text {
                objectName: "stageLoadError"
                visible: text !== ""
                Layout.fillWidth: true
                text: sheet.visible ? sheet.stage.loadError : ""
                color: Theme.palette.ink2
                font.family: Theme.monoFamily
                font.pointSize: M8Type.size(10)
                wrapMode: Text.WordWrap
            }

            // The waveform, the kept range over it and its two edges.
            Rectangle {
                id: wave
                objectName: "stageWaveform"
                Layout.fillWidth: true
                Layout.preferredHeight: 120
                color: Theme.palette.bgLCD
                border.color: Theme.palette.border1
                border.width: 1
                radius: 2
                readonly property var peaks: sheet.visible ? sheet.stage.peaks : []
                readonly property real duration: sheet.visible ? sheet.stage.duration : 0
                function xOf(seconds) { return duration > 0 ? seconds / duration * width : 0 }
                function secondsAt(x) { return duration > 0 ? Math.max(0, Math.min(width, x)) / width * duration : 0 }
                readonly property real lowX: sheet.visible ? xOf(sheet.stage.low) : 0
                readonly property real highX: sheet.visible ? xOf(sheet.stage.high) : 0

                Rectangle {
                    objectName: "keptRange"
                    x: wave.lowX
                    width: Math.max(0, wave.highX - wave.lowX)
                    height: parent.height
                    color: Theme.accent
                    opacity: 0.14
                }
                Repeater {
                    model: wave.peaks.length
                    Rectangle {
                        required property int index
                        readonly property real step: wave.width / Math.max(1, wave.peaks.length)
                        readonly property real center: (index + 0.5) * step
                        x: index * step
                        width: Math.max(1, step - 1)
                        height: Math.max(1, wave.peaks[index] * (wave.height - 12))
                        y: (wave.height - height) / 2
                        color: center >= wave.lowX && center <= wave.highX ? Theme.accent : Theme.palette.ink3
                    }
                }
                Text {
                    anchors.centerIn: parent
                    visible: text !== ""
                    text: sheet.visible ? sheet.stage.waveformError : ""
                    color: Theme.palette.err
                    font.family: Theme.monoFamily
                    font.pointSize: M8Type.size(10)
                }
                Repeater {
                    model: [{ name: "lowEdge", edge: "low" }, { name: "highEdge", edge: "high" }]
                    Rectangle {
                        required property var modelData
                        objectName: modelData.name
                        readonly property bool isLow: modelData.edge === "low"
                        x: (isLow ? wave.lowX : wave.highX) - width / 2
                        width: 3
                        height: wave.height
                        color: Theme.palette.ink0
                        visible: sheet.visible && sheet.stage.isLoaded
                        MouseArea {
                            anchors.fill: parent
                            anchors.margins: -6
                            cursorShape: Qt.SizeHorCursor
                            preventStealing: true
                            onPositionChanged: mouse => {
                                if (!pressed) return
                                const seconds = wave.secondsAt(mapToItem(wave, mouse.x, 0).x)
                                if (parent.isLow) sheet.stage.low = seconds
                                else sheet.stage.high = seconds
                            }
                        }
                    }
                }
            }

            RowLayout {
                spacing: 16
                M8Label { prefix: "IN "; label: sheet.visible ? sheet.stage.lowText : "" }
                M8Label { prefix: "OUT "; label: sheet.visible ? sheet.stage.highText : "" }
                M8Label { prefix: "KEPT "; label: sheet.visible ? sheet.stage.keptText : "" }
            }

            RowLayout {
                spacing: 12
                M8Segmented {
                    objectName: "stageMode"
                    accessibleName: "Stage as"
                    options: sheet.modeOptions
                    selection: sheet.visible ? sheet.stage.mode : ""
                    onSelected: value => sheet.stage.mode = value
                }
                Text {
                    objectName: "sourceFormatWarning"
                    visible: text !== ""
                    Layout.fillWidth: true
                    text: sheet.visible ? sheet.stage.sourceFormatWarning : ""
                    color: Theme.palette.warn
                    font.family: Theme.monoFamily
                    font.pointSize: M8Type.size(10)
                    wrapMode: Text.WordWrap
                }
            }

            // The target: typed for a new file, the sample itself for a replace.
            RowLayout {
                Layout.fillWidth: true
                spacing: 10
                M8Label { label: "Target" }
                Rectangle {
                    Layout.fillWidth: true
                    implicitHeight: 28
                    radius: 2
                    color: targetInput.activeFocus ? Theme.palette.bg2 : "transparent"
                    border.width: 1
                    border.color: targetInput.activeFocus ? Theme.accent : Theme.palette.border1
                    TextInput {
                        id: targetInput
                        objectName: "stageTarget"
                        anchors.fill: parent
                        leftPadding: 8
                        rightPadding: 8
                        verticalAlignment: TextInput.AlignVCenter
                        clip: true
                        focus: true
                        activeFocusOnTab: true
                        readOnly: !sheet.isNewFile
                        color: sheet.isNewFile ? Theme.palette.ink0 : Theme.palette.ink2
                        selectionColor: Theme.accent
                        selectedTextColor: Theme.palette.bgVoid
                        font.family: Theme.monoFamily
                        font.pointSize: M8Type.size(11)
                        Accessible.role: Accessible.EditableText
                        Accessible.name: "Target path"
                        text: sheet.visible ? sheet.stage.target : ""
                        onTextEdited: sheet.stage.target = text
                    }
                }
                M8GhostButton {
                    objectName: "useSuggestedTarget"
                    title: "SUGGESTED"
                    size: "small"
                    visible: sheet.isNewFile && sheet.stage.suggestedTarget !== ""
                             && sheet.stage.suggestedTarget !== sheet.stage.target
                    action: function() { sheet.stage.target = sheet.stage.suggestedTarget }
                }
            }
            Text {
                objectName: "stageTargetMessage"
                visible: text !== ""
                Layout.fillWidth: true
                text: sheet.visible ? sheet.stage.targetMessage : ""
                color: Theme.palette.err
                font.family: Theme.monoFamily
                font.pointSize: M8Type.size(11)
                wrapMode: Text.WordWrap
            }

            RowLayout {
                visible: sheet.visible && sheet.stage.pendingEditNotice !== ""
                spacing: 10
                Text {
                    objectName: "pendingEditNotice"
                    text: sheet.visible ? sheet.stage.pendingEditNotice : ""
                    color: Theme.palette.warn
                    font.family: Theme.monoFamily
                    font.pointSize: M8Type.size(11)
                }
                M8Toggle {
                    objectName: "replacePendingEdit"
                    accessibleName: "Replace the pending edit"
                    isOn: sheet.visible && sheet.stage.replacesPendingEdit
                    onToggled: isOn => sheet.stage.replacesPendingEdit = isOn
                }
                M8Label { label: "Replace pending edit" }
            }

            Text {
                objectName: "stageUsersHeading"
                visible: text !== ""
                Layout.fillWidth: true
                text: sheet.visible ? sheet.stage.usersHeading : ""
                color: sheet.visible && sheet.stage.users.length > 0 ? Theme.palette.warn : Theme.palette.ok
                font.family: Theme.monoFamily
                font.pointSize: M8Type.size(11)
                wrapMode: Text.WordWrap
            }
            ListView {
                objectName: "stageUsers"
                Layout.fillWidth: true
                Layout.fillHeight: true
                clip: true
                model: sheet.visible ? sheet.stage.users : []
                delegate: Text {
                    required property string modelData
                    width: ListView.view.width
                    text: "  " + modelData
                    elide: Text.ElideMiddle
                    color: Theme.palette.ink1
                    font.family: Theme.monoFamily
                    font.pointSize: M8Type.size(10)
                }
            }

            Text {
                objectName: "stageError"
                visible: text !== ""
                Layout.fillWidth: true
                text: sheet.visible ? sheet.stage.stageError : ""
                color: Theme.palette.err
                font.family: Theme.monoFamily
                font.pointSize: M8Type.size(11)
                wrapMode: Text.WordWrap
            }

            RowLayout {
                Layout.fillWidth: true
                M8Label {
                    visible: sheet.visible && sheet.stage.isStaging
                    label: "Staging"
                    color: Theme.accent
                }
                Item { Layout.fillWidth: true }
                M8GhostButton {
                    objectName: "cancelStageButton"
                    title: "CANCEL"
                    action: function() { sheet.dismiss() }
                }
                M8PrimaryButton {
                    objectName: "stageButton"
                    title: "STAGE"
                    enabled: sheet.visible && sheet.stage.canStage
                    action: function() { sheet.requestStage() }
                }
            }
        }
    }

    M8AlertDialog {
        id: replaceAlert
        objectName: "replaceAlert"
        title: sheet.visible ? sheet.stage.replaceQuestion : ""
        buttons: ["Replace", "Cancel"]
        destructive: "Replace"
        onAnswered: button => {
            close()
            if (button === "Replace" && sheet.visible) sheet.stage.stage()
            sheet.forceActiveFocus()
        }
    }
}
