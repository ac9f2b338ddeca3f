import QtQuick
import QtQuick.Dialogs
import QtQuick.Layouts
import Tapekeep.Controllers

// A sample in the BROWSE screen's preview: its waveform, what the file is, playing it, which songs
// use it, and a trimmed copy, staged for the card or saved anywhere else.
ColumnLayout {
    id: sample
    // The usage line as the pane words it: "3 songs, 1 instrument", "UNUSED", or a wait or failure.
    property string usageText: ""
    property bool usageFailed: false
    // The songs and instruments that use the sample, relative to the version.
    property var users: []

    // The stage sheet opens on this.
    signal stageTrimRequested()

    function rateText(rate) {
        return rate >= 1000 ? (rate / 1000).toLocaleString(Qt.locale("C"), "f", rate % 1000 === 0 ? 0 : 1)
            + " kHz" : Math.round(rate) + " Hz"
    }
    function channelsText(count) {
        return count === 1 ? "Mono" : count === 2 ? "Stereo" : count + " channels"
    }
    function secondsText(seconds) {
        const minutes = Math.floor(seconds / 60)
        const rest = (seconds - minutes * 60).toFixed(2).padStart(5, "0")
        return minutes + ":" + rest
    }

    spacing: 10

    Text {
        objectName: "sampleMessage"
        Layout.fillWidth: true
        visible: text !== ""
        text: SamplePreview.loadError !== "" ? SamplePreview.loadError
            : SamplePreview.isLoading ? "Reading\u2026" : ""
        color: SamplePreview.loadError !== "" ? Theme.palette.err : Theme.palette.ink2
        font.family: Theme.monoFamily
        font.pointSize: M8Type.size(10)
        wrapMode: Text.WordWrap
    }

    Rectangle {
        objectName: "waveform"
        Layout.fillWidth: true
        Layout.preferredHeight: 96
        color: Theme.palette.bg0
        border.color: Theme.palette.border0
        border.width: 1

        Canvas {
            id: bars
            anchors.fill: parent
            anchors.margins: 4
            readonly property var peaks: SamplePreview.peaks
            readonly property real duration: SamplePreview.durationSeconds
            onPeaksChanged: requestPaint()
            onWidthChanged: requestPaint()
            onHeightChanged: requestPaint()
            Connections {
                target: SamplePreview
                function onKeptRangeChanged() { bars.requestPaint() }
            }
            Connections {
                target: Theme
                function onChanged() { bars.requestPaint() }
            }

            // One bar a peak, from the middle line out; what lies outside the kept range dimmed.
            onPaint: {
                const context = getContext("2d")
                context.reset()
                const count = peaks.length
                if (count === 0) return
                const step = width / count
                const middle = height / 2
                const keptFrom = duration > 0 ? SamplePreview.keptLow / duration * width : 0
                const keptTo = duration > 0 ? SamplePreview.keptHigh / duration * width : width
                for (let index = 0; index < count; ++index) {
                    const x = index * step
                    const half = Math.max(0.5, peaks[index] * middle)
                    context.fillStyle = x >= keptFrom && x <= keptTo ? Theme.accent : Theme.palette.ink3
                    context.fillRect(x, middle - half, Math.max(1, step - (step > 2 ? 1 : 0)), half * 2)
                }
            }
        }
    }

    GridLayout {
        objectName: "sampleFacts"
        visible: SamplePreview.hasMetadata
        columns: 2
        columnSpacing: 14
        rowSpacing: 4

        M8Label { label: "Format" }
        Text {
            objectName: "sampleFormat"
            text: SamplePreview.formatName
            color: Theme.palette.ink0
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(11)
        }
        M8Label { label: "Rate" }
        Text {
            objectName: "sampleRate"
            text: sample.rateText(SamplePreview.sampleRate)
            color: Theme.palette.ink0
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(11)
        }
        M8Label { label: "Channels" }
        Text {
            objectName: "sampleChannels"
            text: sample.channelsText(SamplePreview.channelCount)
            color: Theme.palette.ink0
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(11)
        }
        M8Label { label: "Bit depth" }
        Text {
            objectName: "sampleBitDepth"
            text: SamplePreview.bitDepth !== null && SamplePreview.bitDepth !== undefined
                ? SamplePreview.bitDepth + "-bit" : "\u2014"
            color: Theme.palette.ink0
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(11)
        }
        M8Label { label: "Duration" }
        Text {
            objectName: "sampleDuration"
            text: sample.secondsText(SamplePreview.durationSeconds)
            color: Theme.palette.ink0
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(11)
        }
        M8Label { label: "Size" }
        Text {
            objectName: "sampleSize"
            text: SamplePreview.sizeText
            color: Theme.palette.ink0
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(11)
        }
        M8Label { label: "Used by" }
        Text {
            objectName: "sampleUsageLabel"
            Layout.fillWidth: true
            text: sample.usageText
            color: sample.usageFailed ? Theme.palette.err
                : text === "UNUSED" ? Theme.palette.warn : Theme.palette.ink0
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(11)
            wrapMode: Text.WordWrap
        }
    }

    Flow {
        Layout.fillWidth: true
        spacing: 8

        M8AccentButton {
            objectName: "playButton"
            title: SamplePreview.isPlaying ? "STOP" : "PLAY"
            systemImage: SamplePreview.isPlaying ? "stop" : "play"
            enabled: SamplePreview.hasMetadata
            action: function() { SamplePreview.togglePlayback() }
        }
        M8GhostButton {
            objectName: "stageTrimButton"
            title: "STAGE TRIM\u2026"
            enabled: SamplePreview.hasMetadata
            action: function() { sample.stageTrimRequested() }
        }
        M8GhostButton {
            objectName: "saveTrimmedButton"
            title: "SAVE TRIMMED\u2026"
            enabled: SamplePreview.hasMetadata && !SamplePreview.isSavingTrim
            action: function() {
                trimDialog.selectedFile = SamplePreview.defaultTrimURL
                trimDialog.open()
            }
        }
        M8GhostButton {
            objectName: "songListButton"
            visible: sample.users.length > 0
            title: "SONG LIST TO DESKTOP"
            action: function() { SamplePreview.writeSongListOf(sample.users) }
        }
    }

    Text {
        objectName: "sampleStatus"
        Layout.fillWidth: true
        visible: text !== ""
        readonly property bool failed: SamplePreview.trimSaveError !== "" || SamplePreview.songListError !== ""
        text: SamplePreview.isSavingTrim ? "Saving\u2026"
            : SamplePreview.trimSaveError !== "" ? SamplePreview.trimSaveError
            : SamplePreview.songListError !== "" ? SamplePreview.songListError
            : SamplePreview.trimSaveStatus !== "" ? SamplePreview.trimSaveStatus
            : SamplePreview.songListStatus
        color: failed ? Theme.palette.err : SamplePreview.isSavingTrim ? Theme.palette.ink2 : Theme.palette.ok
        font.family: Theme.monoFamily
        font.pointSize: M8Type.size(10)
        wrapMode: Text.WordWrap
    }

    FileDialog {
        id: trimDialog
        title: SamplePreview.trimPanelTitle
        fileMode: FileDialog.SaveFile
        nameFilters: ["WAV audio (*.wav)"]
        onAccepted: SamplePreview.saveTrimmedTo(selectedFile)
    }
}
