#include "content/M8ContentScanner.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <limits>
#include <memory>
#include <unordered_map>
#include <unordered_set>

#include <nlohmann/json.hpp>

#include "core/Cancelled.h"
#include "core/Error.h"
#include "core/Log.h"
#include "core/SettingsStore.h"
#include "core/Utf8.h"
#include "core/Uuid.h"

namespace tapekeep {
namespace {

// ---- Text -------------------------------------------------------------------------------------

bool isAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

std::string composedOrEmpty(std::string_view text) {
    utf8proc_uint8_t* composed = nullptr;
    const auto length = utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                     static_cast<utf8proc_ssize_t>(text.size()), &composed,
                                     static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE));
    if (length < 0) return {};
    std::string result(reinterpret_cast<const char*>(composed), static_cast<std::size_t>(length));
    std::free(composed);
    return result;
}

// NFC, so that a name written decomposed (as some systems store it) keys the same as composed.
// Bytes that are not UTF-8 are repaired first, so that every name gets a key.
std::string precomposed(std::string_view name) {
    if (isAscii(name)) return std::string(name);
    std::string composed = composedOrEmpty(name);
    return composed.empty() ? composedOrEmpty(repairUtf8(name)) : composed;
}

template <typename Visit>
void forEachCodePoint(std::string_view text, Visit visit) {
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    std::size_t at = 0;
    while (at < text.size()) {
        utf8proc_int32_t codePoint = 0;
        auto length =
            utf8proc_iterate(bytes + at, static_cast<utf8proc_ssize_t>(text.size() - at), &codePoint);
        if (length <= 0) {  // not UTF-8: take the byte as it stands
            codePoint = UTF8PROC_ERROR_INVALIDUTF8;
            length = 1;
        }
        visit(codePoint, text.substr(at, static_cast<std::size_t>(length)));
        at += static_cast<std::size_t>(length);
    }
}

std::string lowercased(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    if (isAscii(text)) {
        for (char c : text) result += (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
        return result;
    }
    forEachCodePoint(text, [&](utf8proc_int32_t codePoint, std::string_view bytes) {
        if (codePoint < 0) return void(result += bytes);
        utf8proc_uint8_t encoded[4];
        const auto length = utf8proc_encode_char(utf8proc_tolower(codePoint), encoded);
        result.append(reinterpret_cast<const char*>(encoded), static_cast<std::size_t>(length));
    });
    return result;
}

bool isNumber(utf8proc_int32_t codePoint) {
    if (codePoint < 0) return false;
    const auto category = utf8proc_category(codePoint);
    return category == UTF8PROC_CATEGORY_ND || category == UTF8PROC_CATEGORY_NL ||
           category == UTF8PROC_CATEGORY_NO;
}

// The lower-cased name without the numbers at its end, which the device appends to saved copies.
std::string songBaseName(std::string_view songName) {
    const std::string lower = lowercased(songName);
    std::size_t end = 0;  // just past the last character that is not a number
    forEachCodePoint(lower, [&](utf8proc_int32_t codePoint, std::string_view bytes) {
        if (!isNumber(codePoint)) end = static_cast<std::size_t>(bytes.data() + bytes.size() - lower.data());
    });
    return end == 0 ? lower : lower.substr(0, end);
}

// ---- Walk -------------------------------------------------------------------------------------

int openDirectory(int parentFd, const char* name) {
    int fd;
    while ((fd = ::openat(parentFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)) < 0 &&
           errno == EINTR) {
    }
    return fd;
}

int openRoot(const std::filesystem::path& root) {
    int fd;
    while ((fd = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) < 0 && errno == EINTR) {
    }
    return fd;
}

bool statItem(int directoryFd, const char* name, struct stat& status) {
    int result;
    while ((result = ::fstatat(directoryFd, name, &status, AT_SYMLINK_NOFOLLOW)) != 0 && errno == EINTR) {
    }
    return result == 0;
}

ManifestEntry entryFor(const struct stat& status) {
    const auto sinceEpoch =
        std::chrono::seconds(status.st_mtim.tv_sec) + std::chrono::nanoseconds(status.st_mtim.tv_nsec);
    return {static_cast<std::int64_t>(status.st_size),
            Clock::time_point(std::chrono::duration_cast<Clock::duration>(sinceEpoch))};
}

std::string joined(const std::string& folder, std::string_view name) {
    return folder.empty() ? precomposed(name) : folder + '/' + precomposed(name);
}

struct DirectoryCloser {
    void operator()(DIR* directory) const { ::closedir(directory); }
};
using DirectoryHandle = std::unique_ptr<DIR, DirectoryCloser>;

// Depth first through real folders, calling visit(relativePath, entry) for each regular file.
// Folders are entered only after their own listing is read, so one descriptor is open per level.
// Throws Cancelled, checked at every item.
template <typename Visit>
class FileTreeWalk {
public:
    FileTreeWalk(const std::stop_token& token, Visit& visit) : token_(token), visit_(visit) {}

    // False when the root cannot be opened as a folder.
    bool run(const std::filesystem::path& root) {
        const int fd = openRoot(root);
        if (fd < 0) return false;
        walkDirectory(fd, {});
        return true;
    }

private:
    // Takes ownership of directoryFd.
    void walkDirectory(int directoryFd, const std::string& relativeFolder) {
        DirectoryHandle directory(::fdopendir(directoryFd));
        if (!directory) return void(::close(directoryFd));
        std::vector<std::string> subfolders;
        while (const dirent* item = ::readdir(directory.get())) {
            throwIfCancelled(token_);
            visitItem(::dirfd(directory.get()), *item, relativeFolder, subfolders);
        }
        for (const auto& name : subfolders) {
            throwIfCancelled(token_);
            const int childFd = openDirectory(::dirfd(directory.get()), name.c_str());
            if (childFd >= 0) walkDirectory(childFd, joined(relativeFolder, name));
        }
    }

    void visitItem(int directoryFd, const dirent& item, const std::string& relativeFolder,
                   std::vector<std::string>& subfolders) {
        if (item.d_name[0] == '.') return;  // hidden, as every skipped name is; "." and ".." too
        if (item.d_type == DT_DIR) return void(subfolders.emplace_back(item.d_name));
        if (item.d_type != DT_REG && item.d_type != DT_UNKNOWN) return;  // links, devices, sockets
        struct stat status {};
        if (!statItem(directoryFd, item.d_name, status)) return;
        if (S_ISDIR(status.st_mode)) return void(subfolders.emplace_back(item.d_name));
        if (S_ISREG(status.st_mode)) visit_(joined(relativeFolder, item.d_name), entryFor(status));
    }

    const std::stop_token& token_;
    Visit& visit_;
};

template <typename Visit>
bool walkTree(const std::filesystem::path& root, const std::stop_token& token, Visit visit) {
    return FileTreeWalk<Visit>(token, visit).run(root);
}

// ---- Counting ---------------------------------------------------------------------------------

struct ContentRow {
    std::string_view extension;
    std::string_view label;
};

constexpr std::array<ContentRow, 4> contentTable{{
    {"m8s", "Songs"},
    {"m8i", "Instruments"},
    {"wav", "Wavs"},
    {"m8t", "Themes"},
}};

std::string_view lastComponent(std::string_view path) {
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

// What the counted files of a walk add up to so far.
class ContentTally {
public:
    void add(std::string_view relativePath) {
        const std::string_view name = lastComponent(relativePath);
        const auto dot = name.rfind('.');
        const std::string extension =
            dot == std::string_view::npos ? std::string() : lowercased(name.substr(dot + 1));
        if (extension == "m8s") songNames_.emplace_back(name.substr(0, dot));
        ++extensionCounts_[extension];
        ++countedFiles_;
    }

    [[nodiscard]] int countedFiles() const { return countedFiles_; }

    [[nodiscard]] ContentCounts summary() const {
        ContentCounts counts;
        for (const auto& row : contentTable) {
            const auto found = extensionCounts_.find(std::string(row.extension));
            if (found == extensionCounts_.end() || found->second == 0) continue;
            counts.push_back(row.extension == "m8s" ? songsRow(found->second)
                                                    : ContentCount{std::string(row.label), found->second});
        }
        return counts;
    }

private:
    [[nodiscard]] ContentCount songsRow(int files) const {
        const int distinct = M8ContentScanner::distinctSongCount(songNames_);
        if (distinct >= files) return {"Songs", files};
        return {"Songs (" + std::to_string(files) + " files)", distinct};
    }

    std::unordered_map<std::string, int> extensionCounts_;  // by lower-cased extension, "" for none
    std::vector<std::string> songNames_;                    // file names without extension
    int countedFiles_ = 0;
};

// ---- Summary cache ----------------------------------------------------------------------------

std::optional<int> intValue(const nlohmann::json& value) {
    if (value.is_number_unsigned()) {
        const auto number = value.get<std::uint64_t>();
        return number <= INT_MAX ? std::optional<int>(static_cast<int>(number)) : std::nullopt;
    }
    if (!value.is_number_integer()) return std::nullopt;
    const auto number = value.get<std::int64_t>();
    return number >= INT_MIN && number <= INT_MAX ? std::optional<int>(static_cast<int>(number))
                                                  : std::nullopt;
}

std::optional<ContentCount> countFromJson(const nlohmann::json& element) {
    if (!element.is_object()) return std::nullopt;
    const auto label = element.find("label");
    const auto count = element.find("count");
    if (label == element.end() || !label->is_string() || count == element.end()) return std::nullopt;
    const auto number = intValue(*count);
    if (!number) return std::nullopt;
    return ContentCount{label->get<std::string>(), *number};
}

nlohmann::json countsToJson(const ContentCounts& counts) {
    auto rows = nlohmann::json::array();
    for (const auto& count : counts) rows.push_back({{"label", count.label}, {"count", count.count}});
    return rows;
}

std::mutex summaryCacheMutex;  // guards the read-modify-write of the cache within this process

}  // namespace

std::pair<ContentCounts, M8ContentScanner::Manifest> M8ContentScanner::scanContent(
    const std::filesystem::path& root, const ProgressHandler& progress, std::stop_token token) {
    std::lock_guard lock(mutex_);
    Manifest manifest;
    ContentTally tally;
    try {
        const bool opened = walkTree(root, token, [&](std::string path, const ManifestEntry& entry) {
            const bool counted = isCountedPath(path);
            if (counted) tally.add(path);
            manifest.emplace(std::move(path), entry);
            if (counted && progress && tally.countedFiles() % progressInterval == 0)
                progress(tally.summary());
        });
        if (!opened) return {};
    } catch (const Cancelled&) {
        return {};
    }
    return {tally.summary(), std::move(manifest)};
}

std::optional<M8ContentScanner::Manifest> M8ContentScanner::scanManifest(const std::filesystem::path& root,
                                                                         std::stop_token token) {
    std::lock_guard lock(mutex_);
    Manifest manifest;
    try {
        walkTree(root, token, [&](std::string path, const ManifestEntry& entry) {
            manifest.emplace(std::move(path), entry);
        });
    } catch (const Cancelled&) {
        return std::nullopt;
    }
    return manifest;
}

bool M8ContentScanner::isSkippedName(std::string_view name) {
    static constexpr std::array<std::string_view, 6> skippedNames{
        ".DS_Store", ".Spotlight-V100", ".Trashes", ".fseventsd", ".tapekeep-note", ".tapekeep-sizes.json",
    };
    return std::find(skippedNames.begin(), skippedNames.end(), name) != skippedNames.end();
}

bool M8ContentScanner::isCountedPath(std::string_view relativePath) {
    std::vector<std::string_view> pieces;
    for (std::size_t start = 0; start <= relativePath.size();) {
        const auto slash = std::min(relativePath.find('/', start), relativePath.size());
        if (slash > start) pieces.push_back(relativePath.substr(start, slash - start));
        start = slash + 1;
    }
    if (pieces.empty() || pieces.front() == "System") return false;
    if (!relativePath.starts_with("Songs")) return true;
    return std::none_of(pieces.begin(), pieces.end() - 1, [](std::string_view folder) {
        return lowercased(folder).find("backup") != std::string::npos;
    });
}

int M8ContentScanner::distinctSongCount(const std::vector<std::string>& songNames) {
    std::unordered_set<std::string> baseNames;
    for (const auto& name : songNames) baseNames.insert(songBaseName(name));
    return static_cast<int>(baseNames.size());
}

bool M8ContentScanner::entriesAgree(const ManifestEntry& first, const ManifestEntry& second) {
    using namespace std::chrono_literals;
    constexpr Clock::duration coarseTimestamps = 2s;
    constexpr Clock::duration daylightSavingShift = 1h;
    if (first.size != second.size) return false;
    Clock::rep apart = 0;
    if (__builtin_sub_overflow(first.modified.time_since_epoch().count(),
                               second.modified.time_since_epoch().count(), &apart) ||
        apart == std::numeric_limits<Clock::rep>::min()) {
        return false;  // one of them is the distant past and the other is not
    }
    const Clock::duration distance(apart < 0 ? -apart : apart);
    return distance <= coarseTimestamps ||
           std::chrono::abs(distance - daylightSavingShift) <= coarseTimestamps;
}

std::vector<FileDiff> M8ContentScanner::quickDiff(const Manifest& current, const Manifest& baseline) {
    std::vector<FileDiff> diffs;
    for (const auto& [path, entry] : current) {
        const auto found = baseline.find(path);
        if (found == baseline.end()) {
            diffs.push_back({makeUuid(), path, FileDiff::Kind::added});
        } else if (!entriesAgree(entry, found->second)) {
            diffs.push_back({makeUuid(), path, FileDiff::Kind::modified});
        }
    }
    for (const auto& [path, entry] : baseline) {
        if (!current.contains(path)) diffs.push_back({makeUuid(), path, FileDiff::Kind::deleted});
    }
    std::sort(diffs.begin(), diffs.end(),
              [](const FileDiff& a, const FileDiff& b) { return a.path < b.path; });
    return diffs;
}

std::optional<ContentCounts> M8ContentScanner::cachedSummary(const std::string& cardKey,
                                                             const SettingsStore& settings) {
    const auto cache = settings.value(summaryCacheKey);
    if (!cache || !cache->is_object()) return std::nullopt;
    const auto entry = cache->find(cardKey);
    if (entry == cache->end() || !entry->is_array()) return std::nullopt;
    ContentCounts counts;
    for (const auto& element : *entry) {
        if (auto count = countFromJson(element)) counts.push_back(std::move(*count));
    }
    return counts;
}

void M8ContentScanner::storeSummary(const ContentCounts& counts, const std::string& cardKey,
                                    SettingsStore& settings) {
    std::lock_guard lock(summaryCacheMutex);
    auto cache = settings.value(summaryCacheKey).value_or(nlohmann::json::object());
    if (!cache.is_object()) cache = nlohmann::json::object();
    cache[cardKey] = countsToJson(counts);
    try {
        settings.setValue(summaryCacheKey, cache);
    } catch (const Error& error) {
        Log("M8ContentScanner").error("Could not keep the content summary: " + std::string(error.what()));
    }
}

}  // namespace tapekeep
