#include "workflows/BackupRequestFactory.h"

#include "app/AppSettings.h"
#include "app/SettingsKeys.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

fs::path comparable(const fs::path& path) {
    std::error_code error;
    const fs::path resolved = fs::weakly_canonical(path, error);
    return (error ? path : resolved).lexically_normal();
}

// True when a one-shot destination must not link against the usual store.
bool needsFullCopy(const std::optional<fs::path>& destinationOverride, const fs::path& baseFolder) {
    if (!destinationOverride) return false;
    if (baseFolder.empty()) return true;
    return comparable(*destinationOverride) != comparable(baseFolder);
}

}  // namespace

BackupRequest makeBackupRequest(const SDCard& card, const AppSettings& settings, const BackupChoice& choice,
                                const fs::path& baseFolder) {
    BackupRequest request;
    request.card = card;
    request.baseURL = choice.destinationOverride.value_or(baseFolder);
    request.rsyncPath = settings.rsyncPath().toStdString();
    request.keepCount = settings.keepCount();
    request.selectedFolders = choice.selectedFolders;
    request.selectedSongs = choice.selectedSongs;
    request.selective = choice.selective;
    request.forceFullCopy = needsFullCopy(choice.destinationOverride, baseFolder);
    request.verify = settings.verifyAfterBackup();
    request.mismatchAction = settings.verifyMismatchActionRaw().toStdString();
    request.rotate = settings.rotateBackups();
    return request;
}

std::optional<std::string> keepCountRefusal(const BackupRequest& request) {
    const auto minimum = SettingsKeys::find(SettingsKeys::keepCount)->minimum.value_or(1);
    if (!request.rotate || request.keepCount >= minimum) return std::nullopt;
    return "The setting keepCount is " + std::to_string(request.keepCount) + ", but at least " +
           std::to_string(minimum) +
           " version must be kept. Choose a number of versions to keep in Settings.";
}

}  // namespace tapekeep
