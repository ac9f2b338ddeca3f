import QtQuick
import QtQuick.Layouts
import Tapekeep.Controllers

// The comparison sheet over the restore wizard: two version pickers, "COMPARE", and what the first
// version has over the second, grouped as added, modified and deleted with counts; the
// comparison's messages in place. Return compares, Esc closes.
FocusScope {
    id: sheet
    objectName: "comparisonSheet"
    readonly property var comparison: Comparison.comparison
    visible: comparison !== null && comparison !== undefined
    onVisibleChanged: if (visible) forceActiveFocus()

    readonly property var options: {
        const list = []
        const versions = visible ? comparison.versions : []
        for (let index = 0; index < versions.length; ++index) {
            const version = versions[index]
            const date = version.date === null || version.date === undefined ? version.folderName
                : Qt.formatDateTime(new Date(version.date), "yyyy-MM-dd  HH:mm:ss")
            list.push({ value: index, label: date + (version.isLatest ? "  LATEST" : "") })
        }
        return list
    }
    readonly property bool hasRows: visible && comparison.diffResult !== null && comparison.diffResult !== undefined
    readonly property string message: visible && comparison.errorMessage !== null
                                      && comparison.errorMessage !== undefined ? comparison.errorMessage : ""

    Keys.onEscapePressed: Comparison.close()
    Keys.onReturnPressed: if (visible) comparison.compare()
    Keys.onEnterPressed: if (visible) comparison.compare()

    Rectangle {
        anchors.fill: parent
        color: Theme.palette.bgVoid
        opacity: 0.7
        MouseArea {
            anchors.fill: parent
            onClicked: Comparison.close()
        }
    }

    Rectangle {
        anchors.centerIn: parent
        width: Math.min(parent.width - 60, 820)
        height: Math.min(parent.height - 60, 560)
        color: Theme.palette.bg1
        border.color: Theme.palette.border0
        border.width: 1
        radius: 2
        MouseArea { anchors.fill: parent }  // clicks on the sheet stay on it

        ColumnLayout {
            anchors.fill: parent
            anchors.margins: 18
            spacing: 12

            RowLayout {
                Layout.fillWidth: true
                M8Label {
                    Layout.fillWidth: true
                    label: "Compare versions"
                    baseSize: 12
                }
                M8IconButton {
                    objectName: "closeComparisonButton"
                    icon: "xmark"
                    title: "Close"
                    size: "small"
                    action: function() { Comparison.close() }
                }
            }

            RowLayout {
                spacing: 10
                M8MenuPicker {
                    objectName: "versionAPicker"
                    accessibleName: "From version"
                    options: sheet.options
                    selection: sheet.visible ? sheet.comparison.versionA : -1
                    onSelected: value => sheet.comparison.versionA = value
                }
                M8Label { label: "against" }
                M8MenuPicker {
                    objectName: "versionBPicker"
                    accessibleName: "To version"
                    options: sheet.options
                    selection: sheet.visible ? sheet.comparison.versionB : -1
                    onSelected: value => sheet.comparison.versionB = value
                }
                M8PrimaryButton {
                    objectName: "compareVersionsButton"
                    title: "COMPARE"
                    size: "small"
                    enabled: sheet.visible && !sheet.comparison.isComparing
                    action: function() { sheet.comparison.compare() }
                }
                M8Label {
                    visible: sheet.visible && sheet.comparison.isComparing
                    label: "Comparing"
                    color: Theme.accent
                }
            }

            Text {
                objectName: "comparisonMessage"
                visible: sheet.message !== ""
                Layout.fillWidth: true
                text: sheet.message
                color: Theme.palette.err
                font.family: Theme.monoFamily
                font.pointSize: M8Type.size(11)
                wrapMode: Text.WordWrap
            }

            DiffRowGroups {
                objectName: "comparisonRows"
                visible: sheet.hasRows
                Layout.fillWidth: true
                Layout.fillHeight: true
                rows: sheet.hasRows ? sheet.comparison.diffResult : []
            }
            Item { visible: !sheet.hasRows; Layout.fillHeight: true }
        }
    }
}
