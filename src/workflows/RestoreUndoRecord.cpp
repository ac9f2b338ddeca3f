#include "workflows/RestoreUndoRecord.h"

#include <nlohmann/json.hpp>

#include "backup/RestoreUndoError.h"
#include "core/AtomicFile.h"
#include "core/Error.h"
#include "core/FileReading.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

std::vector<std::string> pathsOf(const nlohmann::json& list) {
    std::vector<std::string> paths;
    for (const auto& path : list) paths.push_back(path.get<std::string>());
    return paths;
}

}  // namespace

std::optional<RestoreUndoRecord> RestoreUndoRecord::read(const fs::path& setRoot) {
    const fs::path file = setRoot / fileName;
    std::error_code error;
    if (!fs::exists(fs::symlink_status(file, error))) return std::nullopt;
    try {
        const auto json = nlohmann::json::parse(readWholeFile(file, {.regularFileOnly = true}));
        return RestoreUndoRecord{json.at("safetyVersion").get<std::string>(),
                                 fs::path(json.at("restoredVersion").get<std::string>()),
                                 pathsOf(json.at("changed")), pathsOf(json.at("added"))};
    } catch (const std::exception& failure) {
        throw RestoreUndoError::recordUnreadable(describe(failure));
    }
}

void RestoreUndoRecord::write(const fs::path& setRoot) const {
    const nlohmann::json json = {{"safetyVersion", safetyVersion},
                                 {"restoredVersion", restoredVersion.string()},
                                 {"changed", changed},
                                 {"added", added}};
    std::string text;
    try {
        text = json.dump(2);
    } catch (const nlohmann::json::exception&) {
        throw Error("The restore cannot be recorded for undo: a file name on the card is not UTF-8.");
    }
    writeFileAtomically(setRoot / fileName, text + "\n");
}

void RestoreUndoRecord::remove(const fs::path& setRoot) {
    std::error_code error;
    fs::remove(setRoot / fileName, error);
    if (error) throw Error("Could not remove the record of the last restore: " + error.message());
}

}  // namespace tapekeep
