import QtQuick
import QtQuick.Controls.Basic
import Tapekeep.Controllers

// Differences as rsync reported them, grouped by kind in the order of `kinds`, each group under
// its name and count ("ADDED (3)"). `rows` is a list of { path, kind }.
Rectangle {
    id: groups
    property var rows: []
    property var kinds: ["added", "modified", "deleted"]
    readonly property var counts: {
        const result = {}
        for (const kind of kinds)
            result[kind] = 0
        for (const row of rows || [])
            if (result[row.kind] !== undefined)
                ++result[row.kind]
        return result
    }
    readonly property int shownCount: sorted.count

    function tone(kind) {
        return kind === "added" ? Theme.palette.ok : kind === "modified" ? Theme.palette.warn : Theme.palette.err
    }
    function mark(kind) {
        return kind === "added" ? "+" : kind === "modified" ? "~" : "\u2212"
    }

    color: Theme.palette.bgLCD
    border.color: Theme.palette.border0
    border.width: 1
    radius: 2

    onRowsChanged: refill()
    onKindsChanged: refill()
    Component.onCompleted: refill()

    function refill() {
        sorted.clear()
        for (const kind of kinds)
            for (const row of rows || [])
                if (row.kind === kind)
                    sorted.append({ kind: row.kind, path: row.path })
    }

    ListModel { id: sorted }

    // The groups' headers, also for kinds without rows, so that every count is read in one place.
    Row {
        id: totals
        objectName: "diffTotals"
        anchors.left: parent.left
        anchors.top: parent.top
        anchors.margins: 8
        spacing: 18
        Repeater {
            model: groups.kinds
            delegate: Text {
                required property string modelData
                objectName: "diffCount_" + modelData
                text: modelData.toUpperCase() + " (" + groups.counts[modelData] + ")"
                color: groups.tone(modelData)
                font.family: Theme.monoFamily
                font.pointSize: M8Type.size(10)
                font.weight: Font.DemiBold
                font.letterSpacing: 1
            }
        }
    }

    ListView {
        id: list
        objectName: "diffRows"
        anchors.fill: parent
        anchors.margins: 8
        anchors.topMargin: totals.height + 14
        clip: true
        model: sorted
        boundsBehavior: Flickable.StopAtBounds
        ScrollBar.vertical: ScrollBar {}

        section.property: "kind"
        section.delegate: Text {
            objectName: "diffGroup_" + section
            topPadding: 6
            bottomPadding: 2
            text: section.toUpperCase() + " (" + groups.counts[section] + ")"
            color: groups.tone(section)
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(10)
            font.weight: Font.DemiBold
            font.letterSpacing: 1
        }
        delegate: Text {
            required property string kind
            required property string path
            objectName: "diffRow"
            width: list.width
            text: groups.mark(kind) + " " + path
            color: Theme.palette.ink1
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(10)
            elide: Text.ElideMiddle
        }
    }

    Text {
        objectName: "noDifferences"
        anchors.centerIn: parent
        visible: sorted.count === 0
        text: "NO DIFFERENCES"
        color: Theme.palette.ink3
        font.family: Theme.monoFamily
        font.pointSize: M8Type.size(10)
    }
}
