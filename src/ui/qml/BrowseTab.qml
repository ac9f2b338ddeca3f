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
        }
    }
}
