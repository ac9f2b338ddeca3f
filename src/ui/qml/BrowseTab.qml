import QtQuick
import QtQuick.Layouts
import Tapekeep.Controllers

// The BROWSE screen: the backup sets and their versions, the open version's folders and search,
// and the preview of the chosen file. The sets are listed again each time the screen is shown.
Rectangle {
    id: tab
    color: Theme.palette.bg0

    onVisibleChanged: if (visible) Browse.loadSets()
    Component.onCompleted: if (visible) Browse.loadSets()

    RowLayout {
        anchors.fill: parent
        spacing: 0

        BrowseSetList {
            objectName: "setPane"
            Layout.fillHeight: true
            Layout.preferredWidth: 264
        }
        BrowseFolderPane {
            objectName: "folderPane"
            Layout.fillHeight: true
            Layout.fillWidth: true
        }
        BrowsePreview {
            objectName: "previewPane"
            Layout.fillHeight: true
            Layout.preferredWidth: 340
            onStageTrimRequested: tab.stageTrim()
        }
    }

    // The pending edits of the open version's set, and the edit sheets over the whole screen.
    M8GhostButton {
        objectName: "pendingEditsButton"
        anchors { left: parent.left; bottom: parent.bottom; margins: 10 }
        title: "PENDING EDITS"
        size: "small"
        visible: Browse.selectedVersionID !== ""
        action: function() { EditSheets.openPendingEdits(EditSheets.setFolderOf(Browse.selectedVersionID)) }
    }
    // The sample on show, staged from the open version: its path inside the version is its card path.
    function stageTrim() {
        const version = Browse.selectedVersionID
        const file = Browse.previewNode.path || ""
        if (version === "" || !file.startsWith(version + "/")) return
        EditSheets.openStageSheet(EditSheets.setFolderOf(version), version, file.substring(version.length))
    }

    PendingEditsSheet { anchors.fill: parent }
    StageSheet { anchors.fill: parent }  // over the pending edits, whose rows it adds to
}
