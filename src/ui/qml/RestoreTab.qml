import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Tapekeep.Controllers

// The RESTORE screen: the wizard's eight markers, the prompt and page of the current step, and
// "BACK" and "NEXT" as the step allows. A choice on a page is marked here and made with "NEXT";
// Return does what the page's main button does, Esc closes the comparison sheet.
FocusScope {
    id: tab

    readonly property var steps: [
        { id: "selectTarget", label: "TARGET" },
        { id: "selectSet", label: "SET" },
        { id: "selectVersion", label: "VERSION" },
        { id: "selectFolders", label: "CONTENT" },
        { id: "confirm", label: "CONFIRM" },
        { id: "previewDiff", label: "PREVIEW" },
        { id: "running", label: "RUNNING" },
        { id: "done", label: "DONE" }
    ]
    readonly property string stepKind: Restore.step.kind
    readonly property int stepIndex: {
        for (let index = 0; index < steps.length; ++index)
            if (steps[index].id === stepKind)
                return index
        return 0
    }

    // The marked choices of the first three pages, as indexes into the controller's lists.
    property int markedTarget: -1
    property int markedSet: -1
    property int markedVersion: -1
    readonly property var versions: Restore.selectedSet ? Restore.selectedSet.versions : []

    readonly property bool canGoBack: stepIndex >= 1 && stepIndex <= 5
    readonly property bool canGoOn: {
        switch (stepKind) {
        case "selectTarget": return markedTarget >= 0 && !Restore.isLoadingTargets
        case "selectSet": return markedSet >= 0 && !Restore.isLoadingSets
        case "selectVersion": return markedVersion >= 0 && !Restore.isLoadingVersionSizes
        case "selectFolders": return !Restore.isLoadingSongs
        case "confirm": return true
        case "previewDiff": return !Restore.isLoadingDiff && Restore.diffResult !== null
                                   && Restore.diffResult !== undefined
        default: return false
        }
    }

    function goOn() {
        if (!canGoOn)
            return
        switch (stepKind) {
        case "selectTarget": Restore.selectTarget(markedTarget); break
        case "selectSet": Restore.selectSet(markedSet); break
        case "selectVersion": Restore.selectVersion(markedVersion); break
        case "selectFolders": Restore.confirmSelection(); break
        case "confirm": Restore.loadPreview(); break
        case "previewDiff": Restore.startRestore(); break
        }
    }
    function primaryAction() {
        if (stepKind === "done")
            Restore.startOver()
        else
            goOn()
    }

    // The index of the item of `list` whose `key` equals that of `chosen`; else the only item, if
    // there is one, or `fallback`.
    function indexOfChosen(list, chosen, key, fallback) {
        if (chosen)
            for (let index = 0; index < list.length; ++index)
                if (list[index][key] === chosen[key])
                    return index
        return list.length === 1 ? 0 : fallback
    }
    function markTarget() { markedTarget = indexOfChosen(Restore.availableTargets, Restore.selectedTarget, "uuid", -1) }
    function markSet() { markedSet = indexOfChosen(Restore.availableSets, Restore.selectedSet, "path", -1) }
    function markVersion() {
        const list = Restore.selectedSet ? Restore.selectedSet.versions : []
        markedVersion = indexOfChosen(list, Restore.selectedVersion, "path", list.length > 0 ? 0 : -1)
    }

    Connections {
        target: Restore
        function onAvailableTargetsChanged() { tab.markTarget() }
        function onAvailableSetsChanged() { tab.markSet() }
        function onSelectedSetChanged() { tab.markVersion() }
        function onStepChanged() { if (tab.visible) tab.forceActiveFocus() }
    }

    Component.onCompleted: Restore.loadTargets()
    onVisibleChanged: {
        if (!visible)
            return
        forceActiveFocus()
        if (stepKind === "selectTarget")
            Restore.loadTargets()
    }

    Keys.onReturnPressed: primaryAction()
    Keys.onEnterPressed: primaryAction()
    Keys.onEscapePressed: Comparison.close()

    Rectangle {
        anchors.fill: parent
        color: Theme.palette.bg0
    }

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 18
        spacing: 14

        Flow {
            objectName: "wizardSteps"
            Layout.fillWidth: true
            spacing: 18
            Repeater {
                model: tab.steps
                delegate: M8WizardStep {
                    required property var modelData
                    required property int index
                    stepId: modelData.id
                    label: modelData.label
                    number: index + 1
                    current: index === tab.stepIndex
                    passed: index < tab.stepIndex
                }
            }
        }

        Rectangle {
            Layout.fillWidth: true
            height: 1
            color: Theme.palette.border1
        }

        Loader {
            id: page
            objectName: "restorePage"
            Layout.fillWidth: true
            Layout.fillHeight: true
            sourceComponent: {
                switch (tab.stepKind) {
                case "selectTarget": return targetPage
                case "selectSet": return setPage
                case "selectVersion": return versionPage
                case "selectFolders": return contentPage
                case "confirm": return confirmPage
                case "previewDiff": return previewPage
                case "running": return runPage
                default: return donePage
                }
            }
        }

        RowLayout {
            objectName: "wizardButtons"
            Layout.fillWidth: true
            visible: tab.stepKind !== "running" && tab.stepKind !== "done"
            spacing: 10
            M8GhostButton {
                objectName: "backButton"
                title: "BACK"
                enabled: tab.canGoBack
                action: function() { Restore.goBack() }
            }
            Item { Layout.fillWidth: true }
            M8PrimaryButton {
                objectName: "nextButton"
                title: tab.stepKind === "previewDiff" ? "RESTORE" : "NEXT"
                enabled: tab.canGoOn
                action: function() { tab.goOn() }
            }
        }
    }

    Component {
        id: targetPage
        RestoreTargetPage { wizard: tab }
    }
    Component {
        id: setPage
        RestoreSetPage { wizard: tab }
    }
    Component {
        id: versionPage
        RestoreVersionPage { wizard: tab }
    }
    Component {
        id: contentPage
        RestoreContentPage {}
    }
    Component {
        id: confirmPage
        RestoreConfirmPage {}
    }
    Component {
        id: previewPage
        RestorePreviewPage {}
    }
    Component {
        id: runPage
        RestoreRunPage {}
    }
    Component {
        id: donePage
        RestoreDonePage {}
    }

    ComparisonSheet {
        anchors.fill: parent
    }
}
