import QtQuick
import QtQuick.Layouts
import Tapekeep.Controllers

// The first line of a card tile: state dot, volume name, short UUID, and the freshness badge, which
// shows the per-folder differences on hover or click.
RowLayout {
    id: header
    required property var tile
    readonly property bool badgeHovered: badgeHover.hovered
    spacing: 10

    M8Dot {
        tone: header.tile.stateTone
        pulsing: header.tile.cardState === "running"
    }
    Text {
        objectName: "volumeName"
        text: header.tile.volumeName
        color: Theme.palette.ink0
        font.family: Theme.monoFamily
        font.pointSize: M8Type.size(15)
        font.weight: Font.Bold
        font.letterSpacing: 1
        elide: Text.ElideRight
        Layout.maximumWidth: header.width * 0.5
    }
    Text {
        objectName: "shortUuid"
        text: header.tile.shortUuid
        color: Theme.palette.ink2
        font.family: Theme.monoFamily
        font.pointSize: M8Type.size(10)
    }
    Item { Layout.fillWidth: true }
    M8Badge {
        id: badge
        objectName: "freshnessBadge"
        visible: header.tile.freshness !== ""
        text: header.tile.freshness
        tone: header.tile.freshnessKind === "upToDate" ? "ok"
            : header.tile.freshnessKind === "noBackup" ? "warn"
            : header.tile.freshnessKind === "changes" ? "accent" : "neutral"

        HoverHandler {
            id: badgeHover
            enabled: header.tile.freshnessKind === "changes"
            cursorShape: Qt.PointingHandCursor
            onHoveredChanged: if (hovered) header.showDiff()
        }
        TapHandler {
            enabled: header.tile.freshnessKind === "changes"
            onTapped: {
                header.tile.showingDiff = !header.tile.showingDiff
                if (header.tile.showingDiff) header.showDiff()
            }
        }
    }

    // The summary is worked out on demand; asking again while one is shown or loading does nothing.
    function showDiff() {
        if (tile.diffSummary.length === 0 && !tile.diffLoading) Cards.showDiffSummary(tile.uuid)
    }
}
