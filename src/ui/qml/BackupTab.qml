import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Tapekeep.Controllers

// The BACKUP screen: the detected cards, one tile each in the scanner's order, or the NO CARD
// panel when there is none.
Rectangle {
    id: tab
    color: Theme.palette.bg0

    NoCardPanel {
        anchors.fill: parent
        visible: Cards.count === 0
    }

    ListView {
        id: tiles
        objectName: "cardTiles"
        anchors.fill: parent
        anchors.margins: 18
        visible: Cards.count > 0
        model: Cards
        spacing: 14
        clip: true
        boundsBehavior: Flickable.StopAtBounds
        ScrollBar.vertical: ScrollBar {}

        delegate: CardTile {
            width: tiles.width
        }
    }
}
