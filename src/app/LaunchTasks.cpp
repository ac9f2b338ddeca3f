#include "app/LaunchTasks.h"

#include "backup/BackupRepository.h"
#include "core/Cancelled.h"
#include "core/Error.h"
#include "core/Log.h"
#include "edits/EditManifestStore.h"
#include "edits/EditStagingService.h"
#include "platform/ThreadName.h"

namespace tapekeep {

namespace {

const Log log("LaunchTasks");

}  // namespace

std::vector<LaunchTasks::Task> LaunchTasks::all(std::function<std::filesystem::path()> baseFolder) {
    return {{"staged edits", [baseFolder = std::move(baseFolder)](
                                 std::stop_token token) { cleanUpStagedEdits(baseFolder(), token); }},
            {"abandoned renders", [](std::stop_token) {
                 std::error_code error;
                 const auto folder = std::filesystem::temp_directory_path(error);
                 if (!error)
                     EditStagingService::sweepAbandonedRenders(folder,
                                                               std::filesystem::file_time_type::clock::now());
             }}};
}

void LaunchTasks::cleanUpStagedEdits(const std::filesystem::path& baseFolder, std::stop_token token) {
    static const Log app("TapekeepApp");
    if (baseFolder.empty()) return;
    std::vector<BackupSet> sets;
    try {
        sets = BackupRepository(baseFolder).listSets();
    } catch (const std::exception& error) {
        app.console("Launch cleanup: could not list BackupSets: " + describe(error));
        return;
    }
    EditManifestStore store(baseFolder);
    for (const auto& set : sets) {
        throwIfCancelled(token);
        try {
            store.cleanupOrphanedStagedFiles(set.folderName);
        } catch (const std::exception& error) {
            app.console("Launch cleanup failed for " + set.folderName + ": " + describe(error));
        }
    }
}

LaunchTasks::~LaunchTasks() {
    thread_.request_stop();
}

void LaunchTasks::start() {
    if (thread_.joinable() || tasks_.empty()) return;
    thread_ = std::jthread([this](std::stop_token token) {
        setCurrentThreadName("launch tasks");
        runAll(tasks_, token);
    });
}

void LaunchTasks::runAll(const std::vector<Task>& tasks, const std::stop_token& token) {
    for (const Task& task : tasks) {
        if (token.stop_requested()) return;
        try {
            task.run(token);
        } catch (const Cancelled&) {
            return;
        } catch (const std::exception& error) {
            log.console("Launch task \"" + task.name + "\" failed: " + describe(error));
        }
    }
}

}  // namespace tapekeep
