import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Tapekeep.Controllers

// The BROWSE screen's middle pane: where in the open version the reader is, the search over it
// with its filter, and either the folder's files or the search's hits. Choosing a folder opens it,
// choosing a file shows it in the preview.
Rectangle {
    id: pane
    color: Theme.palette.bg0

    readonly property var browser: Browse.browser
    readonly property bool searching: Browse.isSearchActive
    readonly property var filters: ["all", "songs", "instruments", "samples", "themes", "scales", "bundles",
        "renders", "unused", "other"].map(value => ({ value: value, label: value.toUpperCase() }))
    readonly property string versionName: Browse.selectedVersionID.split("/").pop()

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 14
        spacing: 10

        // The breadcrumb: the version's top, then each folder of the path.
        Flow {
            objectName: "breadcrumb"
            Layout.fillWidth: true
            spacing: 2
            visible: pane.browser !== null

            BrowseRow {
                objectName: "crumb_0"
                width: topLabel.implicitWidth + 12
                current: Browse.path.length === 0
                accessibleName: pane.versionName
                onActivated: Browse.goToDepth(0)
                Text {
                    id: topLabel
                    anchors.centerIn: parent
                    text: pane.versionName
                    color: Browse.path.length === 0 ? Theme.palette.ink0 : Theme.palette.ink2
                    font.family: Theme.monoFamily
                    font.pointSize: M8Type.size(10)
                }
            }
            Repeater {
                model: Browse.path
                delegate: Row {
                    id: crumb
                    required property var modelData
                    required property int index
                    readonly property bool last: index === Browse.path.length - 1
                    spacing: 2
                    Text {
                        height: 26
                        verticalAlignment: Text.AlignVCenter
                        text: "/"
                        color: Theme.palette.ink3
                        font.family: Theme.monoFamily
                        font.pointSize: M8Type.size(10)
                    }
                    BrowseRow {
                        objectName: "crumb_" + (crumb.index + 1)
                        width: crumbLabel.implicitWidth + 12
                        current: crumb.last
                        accessibleName: crumb.modelData.name
                        onActivated: Browse.goToDepth(crumb.index + 1)
                        Text {
                            id: crumbLabel
                            objectName: "crumbText"
                            anchors.centerIn: parent
                            text: crumb.modelData.name
                            color: crumb.last ? Theme.palette.ink0 : Theme.palette.ink2
                            font.family: Theme.monoFamily
                            font.pointSize: M8Type.size(10)
                        }
                    }
                }
            }
        }

        M8SearchField {
            id: search
            objectName: "searchField"
            Layout.fillWidth: true
            enabled: pane.browser !== null
            prompt: "Search this version"
            text: Browse.searchQuery
            onTextChanged: Browse.searchQuery = text
            onAccepted: if (hits.count > 0) Browse.openHitAt(0)
        }

        Flickable {
            Layout.fillWidth: true
            Layout.preferredHeight: filter.implicitHeight + 8
            enabled: pane.browser !== null
            contentWidth: filter.implicitWidth
            clip: true
            flickableDirection: Flickable.HorizontalFlick
            boundsBehavior: Flickable.StopAtBounds
            ScrollBar.horizontal: ScrollBar { policy: ScrollBar.AsNeeded }

            M8Segmented {
                id: filter
                objectName: "searchFilter"
                accessibleName: "Filter"
                options: pane.filters
                selection: Browse.searchFilter
                onSelected: value => Browse.searchFilter = value
            }
        }

        Text {
            objectName: "paneMessage"
            Layout.fillWidth: true
            visible: text !== ""
            text: pane.browser === null ? "Choose a version to browse."
                : pane.browser.isLoadingTree ? "Loading\u2026"
                : !pane.searching && Browse.folderEntries.length === 0 ? "This folder is empty." : ""
            color: Theme.palette.ink2
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(10)
        }

        // Why the last drag out of the window could not start, until the next one or another folder.
        Text {
            id: dragProblem
            objectName: "dragProblem"
            Layout.fillWidth: true
            visible: text !== ""
            wrapMode: Text.Wrap
            color: Theme.palette.err
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(10)

            Connections {
                target: pane.browser
                function onDragFailed(path, message) { dragProblem.text = message }
                function onDragReady(path, url) { dragProblem.text = "" }
            }
            Connections {
                target: Browse
                function onPathChanged() { dragProblem.text = "" }
                function onSelectionChanged() { dragProblem.text = "" }
            }
        }

        ListView {
            id: entries
            objectName: "folderEntries"
            Layout.fillWidth: true
            Layout.fillHeight: true
            visible: !pane.searching
            clip: true
            activeFocusOnTab: true
            model: pane.searching ? [] : Browse.folderEntries
            boundsBehavior: Flickable.StopAtBounds
            ScrollBar.vertical: ScrollBar {}
            Keys.onReturnPressed: if (currentItem) currentItem.activated()
            Keys.onEnterPressed: if (currentItem) currentItem.activated()

            delegate: BrowseRow {
                id: entry
                required property var modelData
                required property int index
                objectName: "entry_" + modelData.name
                width: entries.width
                activeFocusOnTab: false  // the list takes the focus; arrows move within it
                current: ListView.isCurrentItem && entries.activeFocus
                    || (!modelData.isDirectory && Browse.previewNode.path === modelData.path)
                accessibleName: modelData.name
                dragPath: modelData.isDirectory ? "" : modelData.path
                onActivated: {
                    entries.currentIndex = index
                    entries.forceActiveFocus()
                    Browse.activateEntry(modelData.name)
                }

                Text {
                    id: glyph
                    anchors.left: parent.left
                    anchors.leftMargin: 8
                    anchors.verticalCenter: parent.verticalCenter
                    width: 14
                    text: entry.modelData.isDirectory ? M8Symbols.glyph("folder") : ""
                    color: Theme.accent
                    font.pointSize: M8Type.size(10)
                }
                Text {
                    anchors.left: glyph.right
                    anchors.leftMargin: 6
                    anchors.right: size.left
                    anchors.rightMargin: 8
                    anchors.verticalCenter: parent.verticalCenter
                    text: entry.modelData.name
                    color: Theme.palette.ink0
                    font.family: Theme.monoFamily
                    font.pointSize: M8Type.size(11)
                    elide: Text.ElideMiddle
                }
                Text {
                    id: size
                    objectName: "entrySize"
                    anchors.right: parent.right
                    anchors.rightMargin: 8
                    anchors.verticalCenter: parent.verticalCenter
                    text: entry.modelData.sizeText
                    color: Theme.palette.ink2
                    font.family: Theme.monoFamily
                    font.pointSize: M8Type.size(10)
                }
            }
        }

        ListView {
            id: hits
            objectName: "searchHits"
            Layout.fillWidth: true
            Layout.fillHeight: true
            visible: pane.searching
            clip: true
            activeFocusOnTab: true
            model: pane.searching ? Browse.searchHits : []
            boundsBehavior: Flickable.StopAtBounds
            ScrollBar.vertical: ScrollBar {}
            Keys.onReturnPressed: if (currentItem) currentItem.activated()
            Keys.onEnterPressed: if (currentItem) currentItem.activated()

            delegate: BrowseRow {
                id: hit
                required property var modelData
                required property int index
                objectName: "hit_" + modelData.path
                width: hits.width
                implicitHeight: 36
                activeFocusOnTab: false
                current: ListView.isCurrentItem && hits.activeFocus
                accessibleName: modelData.path
                onActivated: {
                    hits.currentIndex = index
                    hits.forceActiveFocus()
                    Browse.openHitAt(index)
                }

                Column {
                    anchors.left: parent.left
                    anchors.leftMargin: 8
                    anchors.right: parent.right
                    anchors.rightMargin: 8
                    anchors.verticalCenter: parent.verticalCenter
                    Text {
                        width: parent.width
                        text: (hit.modelData.isDirectory ? M8Symbols.glyph("folder") + " " : "") + hit.modelData.name
                        color: Theme.palette.ink0
                        font.family: Theme.monoFamily
                        font.pointSize: M8Type.size(11)
                        elide: Text.ElideMiddle
                    }
                    Text {
                        width: parent.width
                        text: hit.modelData.relativeFolder !== "" ? hit.modelData.relativeFolder : "/"
                        color: Theme.palette.ink2
                        font.family: Theme.monoFamily
                        font.pointSize: M8Type.size(9)
                        elide: Text.ElideMiddle
                    }
                }
            }
        }

        Text {
            objectName: "truncatedNote"
            Layout.fillWidth: true
            visible: pane.searching && Browse.searchTruncated
            text: "Showing 500 of more"
            color: Theme.palette.warn
            font.family: Theme.monoFamily
            font.pointSize: M8Type.size(10)
        }
    }
}
