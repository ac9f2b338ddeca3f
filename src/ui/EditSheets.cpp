#include "ui/EditSheets.h"

#include <algorithm>

#include "core/BackupSet.h"
#include "edits/EditApplier.h"
#include "edits/EditManifestStoreBox.h"
#include "edits/EditQueueTexts.h"
#include "ui/ReplacedChild.h"
#include "workflows/EditQueueViewModel.h"
#include "workflows/StageSheetViewModel.h"

namespace tapekeep {
namespace fs = std::filesystem;

EditSheets::EditSheets(Dependencies dependencies, QObject* parent)
    : QObject(parent), dependencies_(std::move(dependencies)) {}

EditSheets::~EditSheets() = default;

void EditSheets::openStageSheet(const QString& setFolder, const QString& versionPath,
                                const QString& sampleCardPath) {
    const fs::path base = dependencies_.baseFolder();
    dependencies_.stores->setBaseFolder(base);
    const fs::path version = versionPath.toStdString();
    StageSheetViewModel::Dependencies dependencies;
    dependencies.store = dependencies_.stores->store();
    dependencies.backupRootName = setFolder.toStdString();
    dependencies.versionRoot = version.is_absolute() ? version : base / dependencies.backupRootName / version;
    dependencies.samplePath = sampleCardPath.toStdString();
    auto* sheet = new StageSheetViewModel(std::move(dependencies), this);
    connect(sheet, &StageSheetViewModel::staged, this, [this, setFolder](const QString& editID) {
        closeStageSheet();
        if (pendingEdits_ && pendingEditsSet_ == setFolder) pendingEdits_->load();
        emit editStaged(setFolder, editID);
    });
    replaceStageSheet(sheet);
    sheet->load();
}

void EditSheets::closeStageSheet() {
    replaceStageSheet(nullptr);
}

void EditSheets::openPendingEdits(const QString& setFolder) {
    dependencies_.stores->setBaseFolder(dependencies_.baseFolder());
    EditQueueViewModel::Dependencies dependencies;
    dependencies.store = dependencies_.stores->store();
    dependencies.backupRootName = setFolder.toStdString();
    dependencies.card = cardOfSet(dependencies.backupRootName);
    dependencies.rsyncPath = dependencies_.rsyncPath();
    dependencies.applier = EditApplier::standardDependencies(dependencies_.revalidateCard);
    auto* queue = new EditQueueViewModel(std::move(dependencies), this);
    replacePendingEdits(queue, setFolder);
    queue->load();
}

void EditSheets::closePendingEdits() {
    replacePendingEdits(nullptr, {});
}

QString EditSheets::setFolderOf(const QString& versionPath) {
    const fs::path version = fs::path(versionPath.toStdString()).lexically_normal();
    const fs::path folder = version.has_filename() ? version : version.parent_path();
    return QString::fromStdString(folder.parent_path().filename().string());
}

// The detected card whose backups the set holds; the queue checks the set's card file again
// before it writes anything.
std::optional<SDCard> EditSheets::cardOfSet(const std::string& setFolder) const {
    if (!dependencies_.detectedCards) return std::nullopt;
    const auto cards = dependencies_.detectedCards();
    const auto found = std::ranges::find_if(cards, [&](const SDCard& card) {
        return backupSetFolderName(card.volumeName, card.diskUtilUUID) == setFolder;
    });
    return found == cards.end() ? std::nullopt : std::optional(*found);
}

QObject* EditSheets::stageSheetObject() const {
    return stageSheet_;
}

QObject* EditSheets::pendingEditsObject() const {
    return pendingEdits_;
}

QVariantMap EditSheets::texts() {
    return {
        {"applyTitle", EditQueueTexts::applyTitle},
        {"discardAllTitle", EditQueueTexts::discardAllTitle},
        {"discardAllText", EditQueueTexts::discardAllText},
        {"renameTarget", EditQueueTexts::renameTarget},
        {"retry", EditQueueTexts::retry},
    };
}

void EditSheets::replaceStageSheet(StageSheetViewModel* next) {
    replaceChild(stageSheet_, next, [this] { emit stageSheetChanged(); });
}

void EditSheets::replacePendingEdits(EditQueueViewModel* next, const QString& setFolder) {
    replaceChild(pendingEdits_, next, [this, &setFolder] {
        pendingEditsSet_ = setFolder;
        emit pendingEditsChanged();
    });
}

}  // namespace tapekeep
