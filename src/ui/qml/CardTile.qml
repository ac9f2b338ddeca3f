import QtQuick
import QtQuick.Layouts
import Tapekeep.Controllers

// One detected card: its name and short UUID, what it holds, whether it differs from its latest
// backup, what its backups amount to, and the area of its state (buttons, the options sheet, the
// countdown, the run, or the run's result).
Rectangle {
    id: cardTile
    objectName: "cardTile_" + uuid

    required property string uuid
    required property string volumeName
    required property string shortUuid
    required property string cardState
    required property string stateMessage
    required property int secondsLeft
    required property var progress
    required property var percent
    required property var filesRemaining
    required property string elapsed
    required property var recentLog
    required property int logLineCount
    required property var contentSummary
    required property string contentLabel
    required property string freshness
    required property string freshnessKind
    required property var diffSummary
    required property bool diffLoading
    required property int versions
    required property string totalSize
    required property string latestNote
    required property var folders
    required property var songs
    required property bool songsPartlyChosen
    required property bool sizesLoaded
    required property string destinationOverride

    property bool showingLog: false
    property bool showingDiff: false
    property string ejectError: ""

    readonly property bool finished: cardState === "success" || cardState === "failed"
    readonly property string stateTone: cardState === "running" || cardState === "autoBackupCountdown" ? "accent"
        : cardState === "success" ? "ok" : cardState === "failed" ? "err" : "neutral"

    implicitHeight: body.implicitHeight + 32
    color: Theme.palette.bg1
    border.color: Theme.palette.border0
    border.width: 1
    radius: 2

    Connections {
        target: Backup
        function onEjectFinished(ejected, error) {
            if (ejected === cardTile.uuid) cardTile.ejectError = error
        }
    }
    onCardStateChanged: if (cardState === "running") ejectError = ""

    ColumnLayout {
        id: body
        anchors.fill: parent
        anchors.margins: 16
        spacing: 12

        CardTileHeader {
            id: headerRow
            Layout.fillWidth: true
            tile: cardTile
        }

        CardTileFacts {
            Layout.fillWidth: true
            tile: cardTile
        }

        DiffSummaryList {
            Layout.fillWidth: true
            visible: (cardTile.showingDiff || headerRow.badgeHovered) && cardTile.freshnessKind === "changes"
            rows: cardTile.diffSummary
            loading: cardTile.diffLoading
        }

        Rectangle {
            Layout.fillWidth: true
            height: 1
            color: Theme.palette.border1
        }

        Loader {
            objectName: "stateArea"
            Layout.fillWidth: true
            sourceComponent: cardTile.cardState === "confirming" ? optionsArea
                : cardTile.cardState === "running" ? runArea
                : cardTile.cardState === "autoBackupCountdown" ? countdownArea
                : idleArea
        }

        Text {
            objectName: "ejectError"
            Layout.fillWidth: true
            visible: cardTile.ejectError !== ""
            text: cardTile.ejectError
            color: Theme.palette.err
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(10)
            wrapMode: Text.WordWrap
        }

        CardLog {
            Layout.fillWidth: true
            Layout.preferredHeight: 220
            visible: cardTile.showingLog
            uuid: cardTile.uuid
        }
    }

    Component {
        id: idleArea
        CardIdleArea { tile: cardTile }
    }
    Component {
        id: optionsArea
        CardOptionsSheet { tile: cardTile }
    }
    Component {
        id: runArea
        CardRunPanel { tile: cardTile }
    }
    Component {
        id: countdownArea
        CardCountdownPanel { tile: cardTile }
    }
}
