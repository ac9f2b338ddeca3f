#include "backup/RsyncLogStore.h"

#include <chrono>
#include <system_error>

#include "core/AtomicFile.h"
#include "core/Log.h"
#include "core/Timestamp.h"
#include "platform/UserFolders.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;

const Log logger("RsyncLogStore");

bool isLogName(const std::string& name) {
    return name.starts_with("rsync-") && name.ends_with(".log");
}

}  // namespace

const RsyncLogStore& RsyncLogStore::shared() {
    static const RsyncLogStore store(UserFolders::logsFolder());
    return store;
}

std::optional<fs::path> RsyncLogStore::write(std::string_view text) const {
    std::error_code error;
    fs::create_directories(folder_, error);
    if (error) {
        logger.error("Cannot create " + folder_.string() + ": " + error.message());
        return std::nullopt;
    }
    const fs::path file = folder_ / ("rsync-" + formatLogTimestamp(Clock::now()) + ".log");
    try {
        writeFileAtomically(file, text);
    } catch (const std::exception& failure) {
        logger.error("Cannot write " + file.string() + ": " + failure.what());
        return std::nullopt;
    }
    return file;
}

void RsyncLogStore::prune(int olderThanDays) const {
    const auto cutoff = fs::file_time_type::clock::now() - std::chrono::days(olderThanDays);
    // A missing folder has nothing to prune, and an unreadable one is left for the next launch.
    std::error_code listing;
    for (fs::directory_iterator entry(folder_, listing); !listing && entry != fs::directory_iterator();
         entry.increment(listing)) {
        // Hidden names, atomic writes' temporaries among them, never match.
        if (!isLogName(entry->path().filename().string())) continue;
        std::error_code error;
        const fs::file_time_type modified = entry->last_write_time(error);
        if (error || modified >= cutoff) continue;
        fs::remove(entry->path(), error);
    }
}

}  // namespace tapekeep
