#include "backup/BackupRepository.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <nlohmann/json.hpp>

#include "backup/LatestLinkFailure.h"
#include "backup/RepositoryError.h"
#include "core/AtomicFile.h"
#include "core/Cancelled.h"
#include "core/FileReading.h"
#include "core/Log.h"
#include "core/PosixError.h"
#include "core/TestPause.h"
#include "core/Utf8.h"
#include "core/Uuid.h"
#include "platform/FileTimes.h"
#include "platform/NoReplaceRename.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

const Log logger("BackupRepository");

constexpr const char* versionPrefix = "backup-";
constexpr const char* stagingPrefix = ".incomplete-";
constexpr const char* deletingPrefix = ".deleting-";
constexpr const char* latestName = "latest";
constexpr const char* sizesFileName = ".tapekeep-sizes.json";
constexpr const char* cardFileName = ".tapekeep-card.json";
constexpr std::size_t largestCardFile = 64 * 1024;
constexpr const char* noteFileName = ".tapekeep-note";
constexpr const char* failureMarkerName = "failure.txt";

// ---- paths and listings -------------------------------------------------------------------

// Lexically normal, without a trailing separator, so that "set/" and "set/./" compare equal to "set".
fs::path standardized(const fs::path& path) {
    fs::path normal = path.lexically_normal();
    if (normal.has_relative_path() && !normal.has_filename()) normal = normal.parent_path();
    return normal;
}

std::string lastComponent(const fs::path& path) {
    return standardized(path).filename().string();
}

PosixError errorFrom(const std::error_code& error, const fs::path& path) {
    return PosixError::fromErrno(error.value(), path.string());
}

// The folder's entries, sorted by name so that every "first listed" rule is reproducible.
std::vector<fs::path> listFolder(const fs::path& folder, bool includeHidden) {
    std::error_code error;
    std::vector<fs::path> entries;
    fs::directory_iterator it(folder, error);
    for (; !error && it != fs::directory_iterator(); it.increment(error)) {
        if (includeHidden || !it->path().filename().string().starts_with('.')) entries.push_back(it->path());
    }
    if (error) throw errorFrom(error, folder);
    std::sort(entries.begin(), entries.end());
    return entries;
}

// The date in a version folder's name: "backup-" and one timestamp, exactly as publishing names
// it. Anything else ("backup-copy", "backup-2025-01-01-120000-KEEP") is absent: not a version.
std::optional<Clock::time_point> dateOfVersionName(const std::string& name) {
    if (!name.starts_with(versionPrefix)) return std::nullopt;
    return parseFolderTimestamp(name.substr(std::string_view(versionPrefix).size()));
}

bool isVersionFolder(const fs::path& path) {
    return dateOfVersionName(path.filename().string()).has_value() && BackupRepository::isRealDirectory(path);
}

// The published versions of a set: its real directories named as publishing names them, never a
// link. Other folders were not made by us and are neither listed nor ever deleted.
std::vector<fs::path> versionFolders(const fs::path& setRoot) {
    std::vector<fs::path> versions;
    for (auto& entry : listFolder(setRoot, false)) {
        if (isVersionFolder(entry)) versions.push_back(std::move(entry));
    }
    return versions;
}

void sortOldestFirst(std::vector<fs::path>& versions) {
    std::stable_sort(versions.begin(), versions.end(), [](const fs::path& a, const fs::path& b) {
        return dateOfVersionName(a.filename().string()) < dateOfVersionName(b.filename().string());
    });
}

std::optional<fs::path> newestVersion(const std::vector<fs::path>& versions) {
    std::optional<fs::path> newest;
    for (const auto& version : versions) {
        if (!newest ||
            dateOfVersionName(version.filename().string()) > dateOfVersionName(newest->filename().string()))
            newest = version;
    }
    return newest;
}

std::optional<std::string> readLinkText(const fs::path& link) {
    std::error_code error;
    fs::path target = fs::read_symlink(link, error);
    if (error) return std::nullopt;
    return target.string();
}

// A link's text taken as the design does: absolute when it begins "/", else relative to the set.
fs::path linkDestination(const fs::path& setRoot, const std::string& text) {
    return text.starts_with('/') ? fs::path(text) : setRoot / text;
}

void removeTree(const fs::path& path) {
    std::error_code error;
    fs::remove_all(path, error);
    if (error) throw errorFrom(error, path);
}

// ---- the card a set belongs to ------------------------------------------------------------

// Volume UUIDs are hexadecimal: one written in the other letter case names the same card.
bool sameUuid(const std::string& a, const std::string& b) {
    return std::ranges::equal(a, b, [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
    });
}

// The UUID that the set's card file names; absent when the set has no card file. A file that
// cannot be read or says no UUID is a refusal: it is never taken as absent, so never replaced.
std::optional<std::string> ownerOfSet(const fs::path& setRoot) {
    const fs::path file = setRoot / cardFileName;
    std::string content;
    try {
        content = readWholeFile(
            file, {.followSymbolicLinks = false, .regularFileOnly = true, .largestSize = largestCardFile});
    } catch (const PosixError& error) {
        if (error.code() == ENOENT) return std::nullopt;
        throw RepositoryError::damagedCardFile(file, errnoText(error.code()));
    }
    const auto json = nlohmann::json::parse(content, nullptr, false);
    if (!json.is_object()) throw RepositoryError::damagedCardFile(file, "not a JSON object");
    const auto uuid = json.find("uuid");
    if (uuid == json.end() || !uuid->is_string() || uuid->get<std::string>().empty())
        throw RepositoryError::damagedCardFile(file, "it names no card UUID");
    return uuid->get<std::string>();
}

// True when the set has a card file naming this card; false when it has none.
bool isOwnedBy(const fs::path& setRoot, const std::string& uuid) {
    const auto owner = ownerOfSet(setRoot);
    if (owner && !sameUuid(*owner, uuid)) throw RepositoryError::setOfAnotherCard(*owner);
    return owner.has_value();
}

// Written whole under a hidden name, then renamed into place without replacing: a card file that
// appeared meanwhile (another process) is never overwritten. Throws PosixError, EEXIST then.
void writeCardFile(const fs::path& setRoot, const SDCard& card) {
    const nlohmann::json content = {{"uuid", card.diskUtilUUID}, {"volumeName", card.volumeName}};
    const fs::path written = setRoot / ("." + std::string(cardFileName) + ".new-" + makeUuid());
    // The volume name is only a reminder for people; one that is not UTF-8 is written with
    // replacement characters rather than failing the backup.
    writeFileAtomically(written, content.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
    try {
        renameNoReplace(written, setRoot / cardFileName);
    } catch (...) {
        ::unlink(written.c_str());
        throw;
    }
}

// ---- the serial mutex per base folder -----------------------------------------------------

fs::path registryKey(const fs::path& baseURL) {
    std::error_code error;
    fs::path absolute = fs::absolute(baseURL, error);
    if (error) absolute = baseURL;
    fs::path resolved = fs::weakly_canonical(absolute, error);
    return standardized(error ? absolute : resolved);
}

std::shared_ptr<std::mutex> serialMutexFor(const fs::path& baseURL) {
    static std::mutex registryMutex;
    static std::map<fs::path, std::weak_ptr<std::mutex>> registry;  // guarded by registryMutex
    const fs::path key = registryKey(baseURL);
    std::lock_guard lock(registryMutex);
    std::erase_if(registry, [](const auto& item) { return item.second.expired(); });
    auto& slot = registry[key];
    std::shared_ptr<std::mutex> serial = slot.lock();
    if (!serial) {
        serial = std::make_shared<std::mutex>();
        slot = serial;
    }
    return serial;
}

// ---- publishing ---------------------------------------------------------------------------

void checkPublishable(const fs::path& staging, const fs::path& setRoot) {
    if (standardized(staging).parent_path() != standardized(setRoot))
        throw RepositoryError::stagingOutsideSet(staging, setRoot);
    const std::string name = lastComponent(staging);
    if (!name.starts_with(stagingPrefix)) throw RepositoryError::notAStagingDirectory(name);
    if (!BackupRepository::isRealDirectory(staging)) throw RepositoryError::stagingNotADirectory(staging);
}

// Version names strictly grow within a set, even when the clock went back or two runs ended
// within one second: never earlier than one second after the newest version.
Clock::time_point firstCandidateDate(const fs::path& setRoot, Clock::time_point publishedAt) {
    std::optional<Clock::time_point> newest;
    for (const auto& version : versionFolders(setRoot))
        newest = std::max(newest, dateOfVersionName(version.filename().string()));
    if (!newest) return publishedAt;
    return std::max(publishedAt, *newest + std::chrono::seconds(1));
}

fs::path renameToFreeVersionName(const fs::path& staging, const fs::path& setRoot,
                                 Clock::time_point candidate, const std::stop_token& token) {
    for (;; candidate += std::chrono::seconds(1)) {
        fs::path target = setRoot / (versionPrefix + formatFolderTimestamp(candidate));
        try {
            renameNoReplace(staging, target);
            return target;
        } catch (const PosixError& error) {
            if (error.code() != EEXIST) throw;
        }
        throwIfCancelled(token);
    }
}

// ---- clearing remains of earlier runs -----------------------------------------------------

struct StagingCandidate {
    fs::path url;
    std::optional<Clock::time_point> created;
    bool hasFailureMarker = false;
};

struct Leftovers {
    std::vector<fs::path> deleting;
    std::vector<StagingCandidate> stagings;
    std::vector<fs::path> nextLatestLinks;  // `.latest-*`, left by a run that died mid-swap
};

Leftovers findLeftovers(const fs::path& setRoot, const std::stop_token& token) {
    Leftovers leftovers;
    for (auto& entry : listFolder(setRoot, true)) {
        throwIfCancelled(token);
        const std::string name = entry.filename().string();
        std::error_code unreadable;
        if (name.starts_with(".latest-") && fs::is_symlink(fs::symlink_status(entry, unreadable))) {
            leftovers.nextLatestLinks.push_back(std::move(entry));
            continue;
        }
        if (!BackupRepository::isRealDirectory(entry)) continue;
        if (name.starts_with(deletingPrefix)) {
            leftovers.deleting.push_back(std::move(entry));
        } else if (name.starts_with(stagingPrefix)) {
            std::error_code ignored;
            const bool marked = fs::exists(entry / failureMarkerName, ignored);
            leftovers.stagings.push_back({entry, creationTime(entry), marked});
        }
    }
    return leftovers;
}

// The failed staging kept for diagnosis: the newest by creation; the first listed on a tie.
const StagingCandidate* retainedFailure(const std::vector<StagingCandidate>& stagings) {
    const StagingCandidate* retained = nullptr;
    for (const auto& staging : stagings) {
        if (staging.hasFailureMarker && (retained == nullptr || staging.created > retained->created))
            retained = &staging;
    }
    return retained;
}

// ---- notes --------------------------------------------------------------------------------

// The whole regular file, a symbolic link not followed; absent on any failure.
std::optional<std::string> readRegularFile(const fs::path& file) {
    try {
        return readWholeFile(file, {.followSymbolicLinks = false, .regularFileOnly = true});
    } catch (const PosixError&) {
        return std::nullopt;
    }
}

}  // namespace

// ---- the service --------------------------------------------------------------------------

BackupRepository::BackupRepository(fs::path baseURL, NotificationCenter& center)
    : baseURL_(std::move(baseURL)), center_(center), serial_(serialMutexFor(baseURL_)) {}

void BackupRepository::postBackupsDidChange() {
    center_.post(Notifications::backupsDidChange, baseURL_.string());
}

std::vector<BackupSet> BackupRepository::listSets() const {
    std::error_code missing;
    if (!fs::exists(baseURL_, missing)) return {};
    std::vector<BackupSet> sets;
    for (const auto& folder : listFolder(baseURL_, false)) {
        if (!isRealDirectory(folder)) continue;
        BackupSet set{folder, folder.filename().string(), {}, {}};
        const auto separator = set.folderName.rfind('_');
        set.volumeName =
            separator == std::string::npos ? "" : trimmedWhitespace(set.folderName.substr(0, separator));
        if (set.volumeName.empty()) set.volumeName = set.folderName;
        try {
            set.versions = listVersions(folder);
        } catch (const PosixError& error) {
            logger.error("Could not list the versions in " + folder.string() + ": " + error.description());
        }
        sets.push_back(std::move(set));
    }
    std::sort(sets.begin(), sets.end(),
              [](const auto& a, const auto& b) { return a.folderName < b.folderName; });
    return sets;
}

std::vector<BackupVersion> BackupRepository::listVersions(const fs::path& setRoot) const {
    std::vector<fs::path> folders;
    try {
        folders = versionFolders(setRoot);
    } catch (const PosixError& error) {
        if (error.code() == ENOENT) return {};
        throw;
    }
    const auto latestText = readLinkText(setRoot / latestName);
    const std::optional<std::string> latest =
        latestText ? std::optional<std::string>(lastComponent(*latestText)) : std::nullopt;
    std::vector<BackupVersion> versions;
    for (auto& folder : folders) {
        std::string name = folder.filename().string();
        const bool isLatest = name == latest;
        versions.push_back({std::move(folder), name, dateOfVersionName(name), isLatest});
    }
    std::stable_sort(versions.begin(), versions.end(),
                     [](const auto& a, const auto& b) { return a.date > b.date; });
    return versions;
}

void BackupRepository::checkSetBelongsTo(const fs::path& setRoot, const std::string& uuid) {
    isOwnedBy(setRoot, uuid);
}

void BackupRepository::claimSet(const fs::path& setRoot, const SDCard& card) {
    std::lock_guard lock(*serial_);
    if (isOwnedBy(setRoot, card.diskUtilUUID)) return;
    try {
        writeCardFile(setRoot, card);
    } catch (const PosixError& error) {
        // Another process claimed the set first: its card file decides.
        if (error.code() != EEXIST || !isOwnedBy(setRoot, card.diskUtilUUID)) throw;
    }
}

std::optional<int> BackupRepository::versionCount(const fs::path& setRoot) const {
    try {
        return static_cast<int>(versionFolders(setRoot).size());
    } catch (const PosixError&) {
        return std::nullopt;
    }
}

fs::path BackupRepository::createStaging(const fs::path& setRoot) {
    std::lock_guard lock(*serial_);
    std::error_code error;
    fs::create_directories(setRoot, error);
    if (error) throw errorFrom(error, setRoot);
    fs::path staging = setRoot / (stagingPrefix + makeUuid());
    while (::mkdir(staging.c_str(), 0777) != 0) {
        if (errno != EINTR) throw PosixError::fromErrno(errno, staging.string());
    }
    return staging;
}

fs::path BackupRepository::publishStaging(const fs::path& staging, const fs::path& setRoot,
                                          Clock::time_point publishedAt, std::stop_token token) {
    std::lock_guard lock(*serial_);
    throwIfCancelled(token);
    checkPublishable(staging, setRoot);
    fs::path target =
        renameToFreeVersionName(staging, setRoot, firstCandidateDate(setRoot, publishedAt), token);
    logger.info("Published " + target.string());
    TestPause::at("renamed");
    try {
        updateLatestLinkLocked(setRoot, target);
    } catch (const std::exception&) {
        postBackupsDidChange();
        throw LatestLinkFailure(target, std::current_exception());
    }
    postBackupsDidChange();
    return target;
}

void BackupRepository::updateLatestLink(const fs::path& setRoot, const fs::path& version) {
    std::lock_guard lock(*serial_);
    updateLatestLinkLocked(setRoot, version);
}

void BackupRepository::updateLatestLinkLocked(const fs::path& setRoot, const fs::path& version) {
    std::string text = lastComponent(version);
    if (standardized(version).parent_path() != standardized(setRoot)) {
        std::error_code error;
        const fs::path absolute = fs::absolute(version, error);
        text = standardized(error ? version : absolute).string();
    }
    const fs::path temporary = setRoot / (".latest-" + makeUuid());
    if (::symlink(text.c_str(), temporary.c_str()) != 0) {
        const int code = errno;
        ::unlink(temporary.c_str());
        throw PosixError::fromErrno(code, temporary.string());
    }
    TestPause::at("latest-swap");
    // rename(2) replaces the old link in one step: a reader finds the old `latest` or the new one.
    while (::rename(temporary.c_str(), (setRoot / latestName).c_str()) != 0) {
        if (errno == EINTR) continue;
        const int code = errno;
        ::unlink(temporary.c_str());
        throw RepositoryError::latestRenameFailed(code);
    }
}

void BackupRepository::repairLatestLink(const fs::path& setRoot) {
    std::lock_guard lock(*serial_);
    repairLatestLinkLocked(setRoot);
}

void BackupRepository::repairLatestLinkLocked(const fs::path& setRoot) {
    const auto text = readLinkText(setRoot / latestName);
    if (!text) return;
    std::error_code error;
    if (fs::exists(linkDestination(setRoot, *text), error)) return;
    std::vector<fs::path> versions;
    try {
        versions = versionFolders(setRoot);
    } catch (const PosixError&) {
        // An unreadable set counts as one without versions.
    }
    if (const auto newest = newestVersion(versions)) {
        updateLatestLinkLocked(setRoot, *newest);
    } else {
        ::unlink((setRoot / latestName).c_str());
    }
}

void BackupRepository::rotate(const fs::path& setRoot, int keepCount, std::stop_token token) {
    std::lock_guard lock(*serial_);
    throwIfCancelled(token);
    removeOldestVersions(setRoot, keepCount, token);
}

void BackupRepository::removeOldestVersions(const fs::path& setRoot, int keepCount, std::stop_token token) {
    std::vector<fs::path> versions = versionFolders(setRoot);
    sortOldestFirst(versions);
    const auto keep = static_cast<std::size_t>(std::max(keepCount, 1));  // the newest always stays
    if (versions.size() <= keep) return;
    try {
        for (std::size_t index = 0; index < versions.size() - keep; ++index) {
            throwIfCancelled(token);
            // Renamed first: an interrupted removal leaves a hidden `.deleting-*` that a later
            // removeIncomplete clears, never a truncated `backup-*` that could be restored.
            const fs::path doomed = setRoot / (deletingPrefix + makeUuid());
            renameNoReplace(versions[index], doomed);
            TestPause::at("rotation");
            removeTree(doomed);
            logger.info("Rotated away " + versions[index].string());
        }
        repairLatestLinkLocked(setRoot);
    } catch (...) {
        postBackupsDidChange();
        throw;
    }
    postBackupsDidChange();
}

std::vector<fs::path> BackupRepository::removeIncomplete(const fs::path& setRoot, Clock::time_point now,
                                                         std::stop_token token,
                                                         std::chrono::seconds gracePeriod) {
    // A young staging without failure.txt may belong to a run in another process: left alone.
    return removeIncompleteIn(setRoot, now, token, gracePeriod, false);
}

std::vector<fs::path> BackupRepository::removeIncomplete(const BackupSetLock& heldLock, Clock::time_point now,
                                                         std::stop_token token,
                                                         std::chrono::seconds gracePeriod) {
    return removeIncompleteIn(heldLock.setRoot(), now, token, gracePeriod, true);
}

std::vector<fs::path> BackupRepository::removeIncompleteIn(const fs::path& setRoot, Clock::time_point now,
                                                           const std::stop_token& token,
                                                           std::chrono::seconds gracePeriod, bool noLiveRun) {
    std::lock_guard lock(*serial_);
    throwIfCancelled(token);
    std::error_code missing;
    if (!fs::exists(setRoot, missing)) return {};
    const Leftovers leftovers = findLeftovers(setRoot, token);
    std::vector<fs::path> removed;
    for (const auto& folder : leftovers.deleting) {
        throwIfCancelled(token);
        removeTree(folder);
        removed.push_back(folder);
    }
    const StagingCandidate* retained = retainedFailure(leftovers.stagings);
    for (const auto& staging : leftovers.stagings) {
        throwIfCancelled(token);
        const bool expired = staging.created && now - *staging.created > gracePeriod;
        const bool abandoned = noLiveRun && !staging.hasFailureMarker;
        if (expired || abandoned || (staging.hasFailureMarker && &staging != retained)) {
            removeTree(staging.url);
            removed.push_back(staging.url);
        }
    }
    if (noLiveRun) {
        for (const auto& link : leftovers.nextLatestLinks) ::unlink(link.c_str());  // a few bytes; no report
    }
    return removed;
}

// ---- free functions -----------------------------------------------------------------------

std::optional<fs::path> BackupRepository::resolvePreviousVersion(const fs::path& setRoot) {
    const auto text = readLinkText(setRoot / latestName);
    if (!text) return std::nullopt;
    std::error_code error;
    const fs::path resolved = standardized(fs::weakly_canonical(linkDestination(setRoot, *text), error));
    if (error) return std::nullopt;
    const fs::path resolvedSet = standardized(fs::weakly_canonical(setRoot, error));
    if (error || resolved.parent_path() != resolvedSet) return std::nullopt;
    if (!dateOfVersionName(resolved.filename().string()) || !fs::is_directory(resolved, error))
        return std::nullopt;
    return resolved;
}

bool BackupRepository::isRealDirectory(const fs::path& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

void BackupRepository::saveSizes(const fs::path& setRoot, const std::map<std::string, std::int64_t>& sizes) {
    writeFileAtomically(setRoot / sizesFileName, nlohmann::json(sizes).dump());
}

std::map<std::string, std::int64_t> BackupRepository::loadSizes(const fs::path& setRoot) {
    const auto content = readRegularFile(setRoot / sizesFileName);
    if (!content) return {};
    const auto json = nlohmann::json::parse(*content, nullptr, false);
    if (!json.is_object()) return {};
    std::map<std::string, std::int64_t> sizes;
    for (const auto& [name, value] : json.items()) {
        if (value.is_number_integer()) sizes[name] = value.get<std::int64_t>();
    }
    return sizes;
}

std::int64_t BackupRepository::versionSize(const fs::path& version, std::stop_token token) {
    std::error_code error;
    std::int64_t total = 0;
    fs::recursive_directory_iterator it(version, error);
    if (error) throw errorFrom(error, version);
    for (const fs::recursive_directory_iterator end; it != end;) {
        throwIfCancelled(token);
        const auto status = it->symlink_status(error);
        if (error) throw errorFrom(error, it->path());
        if (status.type() == fs::file_type::regular) {
            const auto size = it->file_size(error);
            if (error) throw errorFrom(error, it->path());
            total += static_cast<std::int64_t>(size);
        }
        it.increment(error);
        if (error) throw errorFrom(error, version);
    }
    return total;
}

std::string BackupRepository::readNote(const fs::path& version) {
    auto content = readRegularFile(version / noteFileName);
    if (!content || !isValidUtf8(*content)) return {};
    return std::move(*content);
}

std::optional<std::string> BackupRepository::saveNote(const fs::path& version, const std::string& text) {
    const fs::path file = version / noteFileName;
    const std::string note = trimmedWhitespace(text);
    if (note.empty()) {
        std::error_code error;
        fs::remove(file, error);
        if (error) return "Could not delete note: " + errorFrom(error, file).description();
        return std::nullopt;
    }
    try {
        writeFileAtomically(file, note);
    } catch (const std::exception& error) {
        return "Could not save note: " + describe(error);
    }
    return std::nullopt;
}

}  // namespace tapekeep
