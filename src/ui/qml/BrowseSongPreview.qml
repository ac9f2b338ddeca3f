import QtQuick
import QtQuick.Layouts
import Tapekeep.Controllers

// What a song or an instrument file says: a song's name, tempo and instrument table, an
// instrument's type, name and sample. Each sample path is marked present or missing in the version,
// and choosing one shows that sample in the preview.
ColumnLayout {
    id: song
    required property var browser
    property bool instrumentOnly: false
    readonly property var metadata: browser ? browser.songMetadata : null

    function slotText(index) {
        return index.toString(16).toUpperCase().padStart(2, "0")
    }

    spacing: 10

    Text {
        objectName: "metadataMessage"
        Layout.fillWidth: true
        visible: text !== ""
        text: song.browser && song.browser.metadataError ? song.browser.metadataError
            : song.browser && song.browser.isLoadingMetadata ? "Reading\u2026" : ""
        color: song.browser && song.browser.metadataError ? Theme.palette.err : Theme.palette.ink2
        font.family: Theme.monoFamily
        font.pointSize: M8Type.size(10)
        wrapMode: Text.WordWrap
    }

    GridLayout {
        visible: song.metadata !== null && song.metadata !== undefined && !song.instrumentOnly
        columns: 2
        columnSpacing: 14
        rowSpacing: 4
        M8Label { label: "Song" }
        Text {
            objectName: "songName"
            Layout.fillWidth: true
            text: song.metadata && song.metadata.name !== "" ? song.metadata.name : "\u2014"
            color: Theme.palette.ink0
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(12)
            font.weight: Font.DemiBold
            elide: Text.ElideRight
        }
        M8Label { label: "Tempo" }
        Text {
            objectName: "songTempo"
            text: song.metadata && song.metadata.tempo !== null && song.metadata.tempo !== undefined
                ? Number(song.metadata.tempo).toFixed(1) + " BPM" : "\u2014"
            color: Theme.palette.ink0
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(12)
        }
    }

    M8Label {
        visible: instruments.count > 0 && !song.instrumentOnly
        topPadding: 6
        label: "Instruments"
    }

    Repeater {
        id: instruments
        objectName: "instrumentTable"
        model: song.metadata ? song.metadata.instruments : []
        delegate: ColumnLayout {
            id: instrument
            required property var modelData
            readonly property bool hasSample: modelData.samplePath !== null && modelData.samplePath !== undefined
            readonly property bool known: modelData.present !== null && modelData.present !== undefined
            objectName: "instrument_" + modelData.index
            Layout.fillWidth: true
            spacing: 2

            RowLayout {
                Layout.fillWidth: true
                spacing: 10
                Text {
                    visible: !song.instrumentOnly
                    text: song.slotText(instrument.modelData.index)
                    color: Theme.accent
                    font.family: Theme.monoFamily
                    font.pointSize: M8Type.size(10)
                    font.weight: Font.DemiBold
                }
                Text {
                    text: instrument.modelData.type
                    color: Theme.palette.ink2
                    font.family: Theme.monoFamily
                    font.pointSize: M8Type.size(10)
                }
                Text {
                    Layout.fillWidth: true
                    text: instrument.modelData.name
                    color: Theme.palette.ink0
                    font.family: Theme.monoFamily
                    font.pointSize: M8Type.size(10)
                    elide: Text.ElideRight
                }
            }
            BrowseRow {
                objectName: "samplePath"
                Layout.fillWidth: true
                implicitHeight: 22
                visible: instrument.hasSample
                accessibleName: instrument.hasSample ? instrument.modelData.samplePath : ""
                onActivated: Browse.previewSample(instrument.modelData.samplePath)

                Text {
                    id: mark
                    objectName: "sampleMark"
                    anchors.left: parent.left
                    anchors.leftMargin: 6
                    anchors.verticalCenter: parent.verticalCenter
                    text: !instrument.known ? "" : instrument.modelData.present ? M8Symbols.glyph("checkmark")
                        : M8Symbols.glyph("xmark") + " MISSING"
                    color: instrument.modelData.present ? Theme.palette.ok : Theme.palette.err
                    font.family: Theme.monoFamily
                    font.pointSize: M8Type.size(9)
                    font.weight: Font.DemiBold
                }
                Text {
                    anchors.left: mark.right
                    anchors.leftMargin: 6
                    anchors.right: parent.right
                    anchors.rightMargin: 6
                    anchors.verticalCenter: parent.verticalCenter
                    text: instrument.hasSample ? instrument.modelData.samplePath : ""
                    color: instrument.known && !instrument.modelData.present ? Theme.palette.err : Theme.palette.ink1
                    font.family: Theme.monoFamily
                    font.pointSize: M8Type.size(9)
                    elide: Text.ElideMiddle
                }
            }
        }
    }
}
