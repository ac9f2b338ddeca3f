import QtQuick
import Tapekeep.Controllers

// The alerts of closing and quitting, as the lifecycle describes them, and the answer of "Check for
// Updates…", over the main window.
Item {
    id: alerts

    readonly property var lifecycleAlert: Lifecycle.alert

    Connections {
        target: Lifecycle
        function onCloseApproved() { alerts.Window.window.close() }
    }
    Connections {
        target: Updater
        function onChecked(title, message) {
            updates.title = title
            updates.text = message
            updates.open()
        }
    }

    M8AlertDialog {
        objectName: "lifecycleAlert"
        visible: alerts.lifecycleAlert.title !== undefined
        title: alerts.lifecycleAlert.title || ""
        text: alerts.lifecycleAlert.text || ""
        buttons: alerts.lifecycleAlert.buttons || []
        suppression: alerts.lifecycleAlert.suppression || ""
        destructive: "Close Anyway"
        onAnswered: (button, suppressed) => Lifecycle.answerAlert(button, suppressed)
    }
    M8AlertDialog {
        id: updates
        objectName: "updatesAlert"
        buttons: ["OK"]
        onAnswered: close()
    }
}
