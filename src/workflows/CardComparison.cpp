#include "workflows/CardComparison.h"

#include "backup/BackupRepository.h"
#include "content/M8ContentScanner.h"
#include "core/BackupSet.h"
#include "core/Cancelled.h"
#include "core/Error.h"
#include "workflows/FolderDiff.h"

namespace tapekeep {

CardComparison CardComparison::compare(const SDCard& card, const std::filesystem::path& baseFolder,
                                       std::stop_token token) {
    if (baseFolder.empty()) return CardComparison{BackupFreshness::noBackup(), {}};
    const auto setRoot = baseFolder / backupSetFolderName(card.volumeName, card.diskUtilUUID);
    BackupRepository::checkSetBelongsTo(setRoot, card.diskUtilUUID);
    const auto latest = BackupRepository::resolvePreviousVersion(setRoot);
    if (!latest) return CardComparison{BackupFreshness::noBackup(), {}};
    M8ContentScanner scanner;
    auto current = scanner.scanManifest(card.mountPath, token);
    auto baseline = scanner.scanManifest(*latest, token);
    if (!current || !baseline) throw Cancelled();
    CardComparison result{BackupFreshness::upToDate(), M8ContentScanner::quickDiff(*current, *baseline)};
    if (result.differences.empty()) return result;
    FolderDiff total;
    for (const auto& difference : result.differences) total.count(difference.kind);
    result.freshness = BackupFreshness::changes(total.added, total.modified, total.deleted);
    return result;
}

}  // namespace tapekeep
