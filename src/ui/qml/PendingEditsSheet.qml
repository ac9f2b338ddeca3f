import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import QtQuick.Templates as T
import Tapekeep.Controllers

// The pending edits sheet of a set over the BROWSE screen: the edits with their live-check states
// and a box each, the queue's notices, per-row progress while an apply runs, and "APPLY",
// "DISCARD", "Discard All", "RENAME TARGET" and "RETRY", the card-writing and destroying ones
// behind their confirmations. Return asks to apply; Esc closes (or stops an apply under way).
FocusScope {
    id: sheet
    objectName: "pendingEditsSheet"
    readonly property var queue: EditSheets.pendingEdits
    readonly property var texts: EditSheets.texts
    visible: queue !== null && queue !== undefined
    onVisibleChanged: if (visible) forceActiveFocus()

    readonly property var rows: visible ? queue.rows : []
    readonly property bool busy: visible && (queue.isApplying || queue.isLoading)
    readonly property string loadError: visible && queue.loadError !== null && queue.loadError !== undefined
                                        ? queue.loadError : ""
    readonly property var result: visible ? queue.lastApplyResult : null

    function dismiss() {
        if (visible && queue.isApplying) queue.cancel()
        else EditSheets.closePendingEdits()
    }
    function retry(id) {
        queue.selectAll(false)
        queue.setSelected(id, true)
        applyAlert.open()
    }

    readonly property bool canApply: !busy && visible && queue.canApply && queue.selectedCount > 0
    function requestApply() { if (canApply) applyAlert.open() }

    Keys.onEscapePressed: dismiss()
    Keys.onReturnPressed: requestApply()
    Keys.onEnterPressed: requestApply()

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
        width: Math.min(parent.width - 60, 900)
        height: Math.min(parent.height - 60, 620)
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
                    label: "Pending edits"
                    baseSize: 12
                }
                Text {
                    objectName: "pendingEditsSet"
                    Layout.fillWidth: true
                    text: EditSheets.pendingEditsSet
                    elide: Text.ElideRight
                    color: Theme.palette.ink1
                    font.family: Theme.monoFamily
                    font.pointSize: M8Type.size(11)
                }
                M8Label {
                    visible: sheet.busy
                    label: sheet.visible && sheet.queue.isApplying ? "Applying" : "Checking"
                    color: Theme.accent
                }
                M8IconButton {
                    objectName: "closePendingEditsButton"
                    icon: "xmark"
                    title: "Close"
                    size: "small"
                    action: function() { sheet.dismiss() }
                }
            }

            Repeater {
                objectName: "pendingEditsNotices"
                model: sheet.visible ? sheet.queue.notices : []
                Text {
                    required property string modelData
                    Layout.fillWidth: true
                    text: modelData
                    color: modelData === "NO PENDING EDITS" ? Theme.palette.ink2 : Theme.palette.warn
                    font.family: Theme.monoFamily
                    font.pointSize: M8Type.size(11)
                    wrapMode: Text.WordWrap
                }
            }
            Text {
                objectName: "pendingEditsError"
                visible: text !== ""
                Layout.fillWidth: true
                text: sheet.loadError
                color: Theme.palette.err
                font.family: Theme.monoFamily
                font.pointSize: M8Type.size(11)
                wrapMode: Text.WordWrap
            }
            Text {
                objectName: "applyResult"
                visible: sheet.result !== null && sheet.result !== undefined
                Layout.fillWidth: true
                text: visible ? sheet.result.succeeded + " APPLIED, " + sheet.result.failed + " FAILED" : ""
                color: visible && sheet.result.failed > 0 ? Theme.palette.err : Theme.palette.ok
                font.family: Theme.monoFamily
                font.pointSize: M8Type.size(11)
            }

            OptionCheck {
                objectName: "selectAllEdits"
                visible: sheet.rows.length > 0
                text: "Select all"
                enabled: !sheet.busy
                checked: sheet.visible && sheet.rows.length > 0 && sheet.queue.selectedCount === sheet.rows.length
                onToggled: checked => sheet.queue.selectAll(checked)
            }

            ListView {
                id: list
                objectName: "pendingEditRows"
                Layout.fillWidth: true
                Layout.fillHeight: true
                clip: true
                spacing: 6
                model: sheet.rows
                delegate: Rectangle {
                    id: row
                    required property var modelData
                    readonly property bool failed: modelData.progressText === "FAILED"
                                                   || (modelData.applyError !== null && modelData.applyError !== undefined)
                    width: ListView.view.width
                    implicitHeight: rowColumn.implicitHeight + 12
                    color: Theme.palette.bg2
                    border.color: modelData.blocked ? Theme.palette.err : Theme.palette.border1
                    border.width: 1
                    radius: 2

                    RowLayout {
                        anchors.fill: parent
                        anchors.margins: 6
                        spacing: 10
                        OptionCheck {
                            objectName: "editSelected"
                            Layout.alignment: Qt.AlignTop
                            Accessible.name: "Select " + row.modelData.target
                            enabled: !sheet.busy
                            checked: row.modelData.selected
                            onToggled: checked => sheet.queue.setSelected(row.modelData.id, checked)
                        }
                        ColumnLayout {
                            id: rowColumn
                            Layout.fillWidth: true
                            spacing: 3
                            RowLayout {
                                spacing: 8
                                M8Badge { text: row.modelData.modeLabel }
                                Text {
                                    Layout.fillWidth: true
                                    text: row.modelData.source + "  →  " + row.modelData.target
                                    elide: Text.ElideMiddle
                                    color: Theme.palette.ink0
                                    font.family: Theme.monoFamily
                                    font.pointSize: M8Type.size(11)
                                }
                            }
                            Repeater {
                                model: row.modelData.states
                                Text {
                                    required property string modelData
                                    text: modelData
                                    color: modelData === "LIVE SCAN MATCHES MANIFEST" ? Theme.palette.ok : Theme.palette.warn
                                    font.family: Theme.monoFamily
                                    font.pointSize: M8Type.size(10)
                                }
                            }
                            Text {
                                visible: text !== ""
                                text: row.modelData.blockReason || ""
                                color: Theme.palette.err
                                font.family: Theme.monoFamily
                                font.pointSize: M8Type.size(10)
                            }
                            Text {
                                objectName: "editProgress"
                                visible: text !== ""
                                Layout.fillWidth: true
                                text: row.modelData.progressText
                                      + (row.modelData.progressMessage !== "" ? "  " + row.modelData.progressMessage : "")
                                color: row.failed ? Theme.palette.err : Theme.accent
                                font.family: Theme.monoFamily
                                font.pointSize: M8Type.size(10)
                                wrapMode: Text.WordWrap
                            }
                            Text {
                                visible: text !== "" && row.modelData.progressText === ""
                                Layout.fillWidth: true
                                text: row.modelData.applyError || ""
                                color: Theme.palette.err
                                font.family: Theme.monoFamily
                                font.pointSize: M8Type.size(10)
                                wrapMode: Text.WordWrap
                            }
                        }
                        M8GhostButton {
                            objectName: "renameTargetButton"
                            Layout.alignment: Qt.AlignTop
                            visible: row.modelData.canRename
                            enabled: !sheet.busy
                            title: sheet.texts.renameTarget
                            size: "small"
                            action: function() { renameDialog.ask(row.modelData.id, row.modelData.target) }
                        }
                        M8AccentButton {
                            objectName: "retryEditButton"
                            Layout.alignment: Qt.AlignTop
                            visible: row.failed
                            enabled: !sheet.busy && sheet.queue.canApply
                            title: sheet.texts.retry
                            size: "small"
                            action: function() { sheet.retry(row.modelData.id) }
                        }
                    }
                }
            }

            RowLayout {
                Layout.fillWidth: true
                spacing: 10
                M8DangerButton {
                    objectName: "discardAllButton"
                    title: "Discard All"
                    enabled: !sheet.busy && sheet.rows.length > 0
                    action: function() { discardAllAlert.open() }
                }
                M8GhostButton {
                    objectName: "discardSelectedButton"
                    title: "DISCARD"
                    enabled: !sheet.busy && sheet.visible && sheet.queue.selectedCount > 0
                    action: function() { sheet.queue.discardSelected() }
                }
                Item { Layout.fillWidth: true }
                M8GhostButton {
                    objectName: "cancelApplyButton"
                    visible: sheet.visible && sheet.queue.isApplying
                    title: "CANCEL"
                    action: function() { sheet.queue.cancel() }
                }
                M8PrimaryButton {
                    objectName: "applyEditsButton"
                    title: "APPLY"
                    enabled: sheet.canApply
                    action: function() { sheet.requestApply() }
                }
            }
        }
    }

    M8AlertDialog {
        id: applyAlert
        objectName: "applyAlert"
        title: sheet.texts.applyTitle
        text: sheet.visible ? sheet.queue.applyConfirmation : ""
        buttons: ["Apply", "Cancel"]
        onAnswered: button => {
            close()
            if (button === "Apply" && sheet.visible) sheet.queue.apply()
            sheet.forceActiveFocus()
        }
    }

    M8AlertDialog {
        id: discardAllAlert
        objectName: "discardAllAlert"
        title: sheet.texts.discardAllTitle
        text: sheet.texts.discardAllText
        buttons: ["Discard All", "Cancel"]
        destructive: "Discard All"
        onAnswered: button => {
            close()
            if (button === "Discard All" && sheet.visible) sheet.queue.discardAll()
            sheet.forceActiveFocus()
        }
    }

    // The new target of a new-file edit, typed; the queue refuses a path the card already holds.
    Popup {
        id: renameDialog
        objectName: "renameDialog"
        property string editID: ""
        function ask(id, target) {
            editID = id
            renameInput.text = target
            open()
            renameInput.forceActiveFocus()
            renameInput.selectAll()
        }
        function accept() {
            close()
            if (sheet.visible && renameInput.text !== "") sheet.queue.rename(editID, renameInput.text)
            sheet.forceActiveFocus()
        }

        parent: T.Overlay.overlay
        anchors.centerIn: parent
        modal: true
        focus: true
        closePolicy: Popup.CloseOnEscape
        width: 480
        padding: 20
        T.Overlay.modal: Rectangle { color: Qt.rgba(0, 0, 0, 0.55) }
        background: Rectangle {
            color: Theme.palette.bg1
            border.color: Theme.palette.border1
            radius: 2
        }
        onClosed: sheet.forceActiveFocus()

        contentItem: ColumnLayout {
            spacing: 14
            M8Label {
                label: sheet.texts.renameTarget
                baseSize: 12
            }
            Rectangle {
                Layout.fillWidth: true
                implicitHeight: 28
                radius: 2
                color: Theme.palette.bg2
                border.width: 1
                border.color: Theme.accent
                TextInput {
                    id: renameInput
                    objectName: "renameInput"
                    anchors.fill: parent
                    leftPadding: 8
                    rightPadding: 8
                    verticalAlignment: TextInput.AlignVCenter
                    clip: true
                    color: Theme.palette.ink0
                    selectionColor: Theme.accent
                    selectedTextColor: Theme.palette.bgVoid
                    font.family: Theme.monoFamily
                    font.pointSize: M8Type.size(11)
                    Accessible.role: Accessible.EditableText
                    Accessible.name: "New target path"
                    Keys.onReturnPressed: renameDialog.accept()
                    Keys.onEnterPressed: renameDialog.accept()
                }
            }
            RowLayout {
                Layout.fillWidth: true
                Item { Layout.fillWidth: true }
                M8GhostButton {
                    title: "CANCEL"
                    action: function() { renameDialog.close() }
                }
                M8PrimaryButton {
                    objectName: "renameConfirmButton"
                    title: "RENAME"
                    enabled: renameInput.text !== ""
                    action: function() { renameDialog.accept() }
                }
            }
        }
    }
}
