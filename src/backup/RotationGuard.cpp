#include "backup/RotationGuard.h"

#include "backup/BackupOperationError.h"
#include "core/Cancelled.h"
#include "core/Formatting.h"

namespace tapekeep::RotationGuard {
namespace fs = std::filesystem;

std::int64_t countBackupFiles(const fs::path& version, std::stop_token token) {
    std::error_code error;
    fs::recursive_directory_iterator walk(version, error);
    if (error) throw BackupOperationError::message("Could not read " + version.string() + ".");
    std::int64_t count = 0;
    for (; walk != fs::recursive_directory_iterator(); walk.increment(error)) {
        if (error) break;
        throwIfCancelled(token);
        const std::string name = walk->path().filename().string();
        if (name == ".tapekeep-note" || name == ".tapekeep-sizes.json") continue;
        std::error_code typeError;
        if (walk->is_regular_file(typeError) && !walk->is_symlink(typeError)) ++count;
    }
    if (error) throw fs::filesystem_error("Could not read " + version.string(), version, error);
    return count;
}

std::optional<std::string> compareWithPrevious(const fs::path& newVersion,
                                               const std::optional<fs::path>& previous,
                                               std::stop_token token) {
    if (!previous) return std::nullopt;
    std::int64_t previousCount = 0, newCount = 0;
    try {
        previousCount = countBackupFiles(*previous, token);
        newCount = countBackupFiles(newVersion, token);
    } catch (const Cancelled&) {
        throw;
    } catch (const std::exception& error) {
        return std::string("Backup saved, but it could not be compared with the previous one: ") +
               error.what() + ". Older backups were kept.";
    }
    if (previousCount < 10 || newCount * 2 >= previousCount) return std::nullopt;
    return "Backup saved, but it holds far fewer files than the previous one (" +
           formatWithThousandsSeparator(newCount) + " vs " + formatWithThousandsSeparator(previousCount) +
           "). Older backups were kept — check the card.";
}

}  // namespace tapekeep::RotationGuard
