#include "edits/StagingSource.h"

#include <algorithm>

#include "content/SampleReferences.h"
#include "core/Cancelled.h"
#include "core/PosixError.h"
#include "edits/EditNameSuggester.h"
#include "edits/SampleAnalyzer.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

std::string cardPathOf(const fs::path& file, const fs::path& versionRoot) {
    return "/" + BrowseFileService::relativePath(file, versionRoot);
}

// Every file of the version as a card path. Links are not followed: a path through one is not a
// path of the card the version was taken from.
std::vector<std::string> filesOf(const fs::path& versionRoot, const std::stop_token& token) {
    std::vector<std::string> paths;
    std::error_code error;
    fs::recursive_directory_iterator entry(versionRoot, error), end;
    for (; !error && entry != end; entry.increment(error)) {
        throwIfCancelled(token);
        if (entry->is_regular_file(error) && !entry->is_symlink(error))
            paths.push_back("/" + entry->path().lexically_relative(versionRoot).generic_string());
    }
    if (error) throw PosixError(error.value(), versionRoot.string() + ": " + error.message());
    return paths;
}

}  // namespace

StagingSource StagingSource::read(const fs::path& versionRoot, const std::string& samplePath,
                                  const std::stop_token& token) {
    const std::string relative =
        samplePath.substr(std::min(samplePath.find_first_not_of('/'), samplePath.size()));
    StagingSource source;
    source.cardPath = cardPathOf(versionRoot / relative, versionRoot);
    source.url = versionRoot / source.cardPath.substr(1);
    source.versionFolder = versionRoot.filename().string();
    source.durationSeconds = SampleAnalyzer::metadata(source.url, token).durationSeconds;
    const auto index = BrowseFileService::sampleUsageIndex(versionRoot, token);
    if (const auto* users = BrowseFileService::usersOf(source.url, versionRoot, index))
        for (const auto& user : *users) source.users.push_back(cardPathOf(user, versionRoot));
    source.versionPaths = filesOf(versionRoot, token);
    return source;
}

EditStagingRequest StagingSource::request(EditMode mode, double low, double high,
                                          const std::optional<std::string>& target,
                                          const std::string& backupRootName,
                                          const std::vector<EditEntry>& pendingEdits) const {
    EditStagingRequest request;
    request.source = url;
    request.rangeLow = low;
    request.rangeHigh = high;
    request.originalDuration = durationSeconds;
    request.mode = mode;
    request.sourceVersionFolder = versionFolder;
    request.sourceRelativePath = cardPath;
    request.backupRootName = backupRootName;
    request.backupPaths = versionPaths;
    if (mode == EditMode::overwrite) {
        request.targetRelativePath = cardPath;
        request.affectedSongs = users;
    } else if (target) {
        request.targetRelativePath = *target;
    } else {
        request.targetRelativePath = suggestedTarget(pendingEdits);
    }
    return request;
}

std::string StagingSource::suggestedTarget(const std::vector<EditEntry>& pendingEdits) const {
    std::vector<std::string> inUse = versionPaths;
    for (const auto& edit : pendingEdits) inUse.push_back(edit.targetRelativePath);
    return EditNameSuggester::suggestTrimName(cardPath, inUse);
}

}  // namespace tapekeep
