import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Tapekeep.Controllers

// The BROWSE screen's right pane: the file chosen in the middle pane, or the sample a song's path
// named. A song or instrument shows what it holds; any other file its size and which songs and
// instruments use it. Any of them can be copied back to the card its set was made from.
Rectangle {
    id: pane
    color: Theme.palette.bg1

    readonly property var browser: Browse.browser
    readonly property var node: Browse.previewNode
    readonly property bool hasNode: node.name !== undefined
    readonly property string extension: hasNode && node.name.lastIndexOf(".") > 0
        ? node.name.slice(node.name.lastIndexOf(".") + 1).toLowerCase() : ""
    readonly property bool isSong: extension === "m8s"
    readonly property bool isInstrument: extension === "m8i"
    // The sample preview decides what is audio; it shows the file on show or nothing.
    readonly property bool isSample: hasNode && SamplePreview.sampleURL !== "" && SamplePreview.sampleURL === node.path

    // The stage sheet opens on this.
    signal stageTrimRequested()

    // The usage of a file: "…" while the index is built, its failure, or who uses it.
    function usageText() {
        if (!browser) return ""
        if (browser.isBuildingSampleIndex) return "\u2026"
        if (browser.sampleIndexError) return browser.sampleIndexError
        if (!browser.sampleIndexBuilt) return ""
        return browser.selectedUsageLabel !== "" ? browser.selectedUsageLabel : "UNUSED"
    }

    Rectangle {
        anchors.left: parent.left
        anchors.top: parent.top
        anchors.bottom: parent.bottom
        width: 1
        color: Theme.palette.border0
    }

    Text {
        objectName: "noPreview"
        anchors.centerIn: parent
        visible: !pane.hasNode
        text: "Choose a file to preview."
        color: Theme.palette.ink3
        font.family: Theme.monoFamily
        font.pointSize: M8Type.size(10)
    }

    Flickable {
        id: page
        anchors.fill: parent
        anchors.margins: 16
        visible: pane.hasNode
        clip: true
        contentHeight: body.implicitHeight
        boundsBehavior: Flickable.StopAtBounds
        ScrollBar.vertical: ScrollBar {}

        ColumnLayout {
            id: body
            width: page.width
            spacing: 12

            RowLayout {
                Layout.fillWidth: true
                spacing: 8
                M8Label {
                    Layout.fillWidth: true
                    label: pane.isSong ? "Song" : pane.isInstrument ? "Instrument" : pane.isSample ? "Sample" : "File"
                }
                M8GhostButton {
                    objectName: "backToSongButton"
                    visible: Browse.hasPreviewOverride
                    title: "BACK TO SONG"
                    size: "small"
                    action: function() { Browse.clearPreviewOverride() }
                }
            }

            Text {
                objectName: "previewName"
                Layout.fillWidth: true
                text: pane.hasNode ? pane.node.name : ""
                color: Theme.palette.ink0
                font.family: Theme.monoFamily
                font.pointSize: M8Type.size(15)
                font.weight: Font.Bold
                wrapMode: Text.WrapAnywhere
            }

            BrowseSongPreview {
                objectName: "songPreview"
                Layout.fillWidth: true
                visible: pane.isSong || pane.isInstrument
                browser: pane.browser
                instrumentOnly: pane.isInstrument
            }

            BrowseSamplePreview {
                objectName: "samplePreview"
                Layout.fillWidth: true
                visible: pane.isSample
                usageText: pane.usageText()
                usageFailed: pane.browser !== null && !!pane.browser.sampleIndexError
                users: pane.browser ? pane.browser.selectedUsers : []
                onStageTrimRequested: pane.stageTrimRequested()
            }

            GridLayout {
                objectName: "filePreview"
                visible: pane.hasNode && !pane.isSong && !pane.isInstrument && !pane.isSample
                columns: 2
                columnSpacing: 14
                rowSpacing: 4
                M8Label { label: "Size" }
                Text {
                    objectName: "fileSize"
                    text: pane.hasNode ? pane.node.sizeText : ""
                    color: Theme.palette.ink0
                    font.family: Theme.monoFamily
                    font.pointSize: M8Type.size(11)
                }
                M8Label { label: "Used by" }
                Text {
                    objectName: "usageLabel"
                    Layout.fillWidth: true
                    text: pane.usageText()
                    color: pane.browser && pane.browser.sampleIndexError ? Theme.palette.err
                        : text === "UNUSED" ? Theme.palette.warn : Theme.palette.ink0
                    font.family: Theme.monoFamily
                    font.pointSize: M8Type.size(11)
                    wrapMode: Text.WordWrap
                }
            }

            RowLayout {
                spacing: 10
                Layout.topMargin: 6
                M8PrimaryButton {
                    objectName: "copyToCardButton"
                    title: "COPY TO CARD"
                    enabled: Browse.canCopyToCard && !(pane.browser && pane.browser.isCopying)
                    action: function() { Browse.copyToCard() }
                }
                M8GhostButton {
                    objectName: "cancelCopyButton"
                    visible: pane.browser !== null && pane.browser.isCopying
                    title: "CANCEL"
                    action: function() { pane.browser.cancelCopy() }
                }
            }

            Text {
                objectName: "copyStatus"
                Layout.fillWidth: true
                visible: text !== ""
                text: pane.browser && pane.browser.copyStatus ? pane.browser.copyStatus : ""
                color: ["Copy failed", "Copy unavailable", "Busy", "Cannot"].some(start => text.startsWith(start))
                    ? Theme.palette.err : text.startsWith("Copied") ? Theme.palette.ok : Theme.palette.ink1
                font.family: Theme.monoFamily
                font.pointSize: M8Type.size(10)
                wrapMode: Text.WordWrap
            }
        }
    }
}
