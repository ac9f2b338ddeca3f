import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Tapekeep.Controllers

// The BROWSE screen's left pane: the backup sets, each opened to show its versions newest first
// with the latest marked; choosing a version opens it in the other panes.
Rectangle {
    id: pane
    color: Theme.palette.bg1

    // "backup-2026-02-01-100000" reads "2026-02-01 10:00:00"; a name of another shape as it is.
    function versionLabel(folderName) {
        const parts = /^backup-(\d{4}-\d{2}-\d{2})-(\d{2})(\d{2})(\d{2})$/.exec(folderName)
        return parts ? parts[1] + " " + parts[2] + ":" + parts[3] + ":" + parts[4] : folderName
    }

    ColumnLayout {
        anchors.fill: parent
        anchors.topMargin: 14
        spacing: 8

        M8Label {
            Layout.leftMargin: 14
            label: "Backup sets"
        }

        Text {
            objectName: "setsMessage"
            Layout.fillWidth: true
            Layout.leftMargin: 14
            Layout.rightMargin: 14
            visible: text !== ""
            text: Browse.loadError !== null && Browse.loadError !== undefined ? Browse.loadError
                : Browse.isLoadingSets && Browse.availableSets.length === 0 ? "Loading\u2026"
                : Browse.availableSets.length === 0 ? "No backups yet." : ""
            color: Browse.loadError ? Theme.palette.err : Theme.palette.ink2
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(10)
            wrapMode: Text.WordWrap
        }

        ListView {
            id: sets
            objectName: "setList"
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            model: Browse.availableSets
            boundsBehavior: Flickable.StopAtBounds
            ScrollBar.vertical: ScrollBar {}

            delegate: Column {
                id: set
                required property var modelData
                readonly property bool open: Browse.openSetIDs.indexOf(modelData.folderName) >= 0
                readonly property int pending: Browse.pendingEditCounts[modelData.folderName] || 0
                readonly property var pendingPerVersion: Browse.pendingEditPerVersion[modelData.folderName] || ({})
                width: sets.width

                BrowseRow {
                    objectName: "set_" + set.modelData.folderName
                    x: 6
                    width: parent.width - 12
                    accessibleName: set.modelData.folderName
                    onActivated: Browse.toggleSet(set.modelData.folderName)

                    Text {
                        id: chevron
                        anchors.left: parent.left
                        anchors.leftMargin: 6
                        anchors.verticalCenter: parent.verticalCenter
                        text: M8Symbols.glyph(set.open ? "chevron.down" : "chevron.right")
                        color: Theme.palette.ink2
                        font.pointSize: M8Type.size(10)
                    }
                    Text {
                        anchors.left: chevron.right
                        anchors.leftMargin: 6
                        anchors.right: setPending.visible ? setPending.left : count.left
                        anchors.rightMargin: 6
                        anchors.verticalCenter: parent.verticalCenter
                        text: set.modelData.folderName
                        color: Theme.palette.ink0
                        font.family: Theme.monoFamily
                        font.pointSize: M8Type.size(11)
                        font.weight: Font.DemiBold
                        elide: Text.ElideRight
                    }
                    M8Badge {
                        id: setPending
                        objectName: "setPendingCount"
                        anchors.right: count.left
                        anchors.rightMargin: 6
                        anchors.verticalCenter: parent.verticalCenter
                        visible: set.pending > 0
                        text: set.pending + " PENDING"
                        tone: "warn"
                    }
                    Text {
                        id: count
                        anchors.right: parent.right
                        anchors.rightMargin: 8
                        anchors.verticalCenter: parent.verticalCenter
                        text: set.modelData.versions.length
                        color: Theme.palette.ink2
                        font.family: Theme.monoFamily
                        font.pointSize: M8Type.size(9)
                    }
                }

                Repeater {
                    model: set.open ? set.modelData.versions : []
                    delegate: BrowseRow {
                        id: version
                        required property var modelData
                        readonly property int pending: set.pendingPerVersion[modelData.folderName] || 0
                        objectName: "version_" + modelData.folderName
                        x: 22
                        width: set.width - 28
                        current: Browse.selectedVersionID === modelData.path
                        accessibleName: pane.versionLabel(modelData.folderName)
                        onActivated: Browse.selectVersion(set.modelData.folderName, modelData.folderName)

                        Text {
                            anchors.left: parent.left
                            anchors.leftMargin: 8
                            anchors.right: versionPending.visible ? versionPending.left
                                : latest.visible ? latest.left : parent.right
                            anchors.rightMargin: 6
                            anchors.verticalCenter: parent.verticalCenter
                            text: pane.versionLabel(version.modelData.folderName)
                            color: version.current ? Theme.accent : Theme.palette.ink1
                            font.family: Theme.monoFamily
                            font.pointSize: M8Type.size(10)
                            elide: Text.ElideRight
                        }
                        M8Badge {
                            id: versionPending
                            objectName: "versionPendingCount"
                            anchors.right: latest.visible ? latest.left : parent.right
                            anchors.rightMargin: 6
                            anchors.verticalCenter: parent.verticalCenter
                            visible: version.pending > 0
                            text: version.pending + " PENDING"
                            tone: "warn"
                        }
                        M8Badge {
                            id: latest
                            objectName: "latestMark"
                            anchors.right: parent.right
                            anchors.rightMargin: 6
                            anchors.verticalCenter: parent.verticalCenter
                            visible: version.modelData.isLatest
                            text: "LATEST"
                            tone: "accent"
                        }
                    }
                }
            }
        }
    }

    Rectangle {
        anchors.right: parent.right
        anchors.top: parent.top
        anchors.bottom: parent.bottom
        width: 1
        color: Theme.palette.border0
    }
}
