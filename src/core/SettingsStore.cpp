#include "core/SettingsStore.h"

#include <cerrno>
#include <set>

#include "core/AtomicFile.h"
#include "core/FileLock.h"
#include "core/FileReading.h"
#include "core/Log.h"
#include "core/PosixError.h"
#include "core/SettingsStoreError.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;

const Log logger("SettingsStore");

// What the file holds, or why it cannot be used.
struct Contents {
    nlohmann::json object = nlohmann::json::object();
    std::optional<std::string> damage;  // the reason, as SettingsStoreError words it
};

Contents damaged(std::string reason) {
    return {nlohmann::json::object(), std::move(reason)};
}

std::string reasonFor(const PosixError& error) {
    switch (error.code()) {
        case EISDIR:
        case EINVAL:
            return "not a regular file";
        case EFBIG:
            return "larger than 1 MiB";
        default:
            return errnoText(error.code());
    }
}

Contents parsed(const std::string& bytes) {
    try {
        auto object = nlohmann::json::parse(bytes);
        if (!object.is_object()) return damaged("not a JSON object");
        return {std::move(object), std::nullopt};
    } catch (const nlohmann::json::parse_error& error) {
        return damaged("not valid JSON (at byte " + std::to_string(error.byte) + ")");
    } catch (const nlohmann::json::exception&) {
        return damaged("not valid JSON");
    }
}

// Opened without blocking (a FIFO at the path would wait for a writer) and read no further than the
// size limit, so that no file at the path can hang the program or fill its memory.
Contents load(const fs::path& file) {
    std::string bytes;
    try {
        bytes = readWholeFile(file, {.followSymbolicLinks = true,
                                     .regularFileOnly = true,
                                     .largestSize = SettingsStore::largestFileSize});
    } catch (const PosixError& error) {
        if (error.code() == ENOENT || error.code() == ENOTDIR) return {};  // never written: no settings yet
        return damaged(reasonFor(error));
    }
    return parsed(bytes);
}

// Readers fall back to the defaults on every call; the user hears why once, not at every read.
void reportOnce(const fs::path& file, const std::string& reason) {
    static std::mutex mutex;
    static std::set<std::string> reported;
    const std::string text = SettingsStoreError::damaged(file, reason).description();
    std::lock_guard lock(mutex);
    if (reported.insert(text).second) logger.error(text + " The default settings are used until then.");
}

Contents loadReporting(const fs::path& file) {
    Contents contents = load(file);
    if (contents.damage) reportOnce(file, *contents.damage);
    return contents;
}

// Where a write lands: the end of a chain of symbolic links, so that a link stays a link.
fs::path writeTarget(const fs::path& file) {
    constexpr int mostLinksFollowed = 40;  // as the kernel; a longer chain failed to load already
    fs::path target = file;
    for (int hop = 0; hop < mostLinksFollowed; ++hop) {
        std::error_code error;
        if (!fs::is_symlink(target, error)) return target;
        const fs::path next = fs::read_symlink(target, error);
        if (error) return target;
        target = next.is_absolute() ? next : target.parent_path() / next;
    }
    return target;
}

}  // namespace

SettingsStore::SettingsStore(std::filesystem::path file) : file_(std::move(file)) {}

nlohmann::json SettingsStore::all() const {
    return loadReporting(file_).object;
}

std::optional<nlohmann::json> SettingsStore::value(const std::string& key) const {
    auto object = loadReporting(file_).object;
    auto found = object.find(key);
    if (found == object.end() || found->is_null()) return std::nullopt;
    return *found;
}

std::string SettingsStore::string(const std::string& key, const std::string& fallback) const {
    auto stored = value(key);
    return stored && stored->is_string() ? stored->get<std::string>() : fallback;
}

std::optional<std::string> SettingsStore::damage() const {
    const auto contents = loadReporting(file_);
    if (!contents.damage) return std::nullopt;
    return SettingsStoreError::damaged(file_, *contents.damage).description();
}

template <typename Change>
void SettingsStore::modify(Change change) {
    std::lock_guard guard(mutex_);
    // Refused before the lock file is made beside it, which could be in /dev.
    if (auto early = load(file_); early.damage) throw SettingsStoreError::damaged(file_, *early.damage);
    std::error_code ignored;
    std::filesystem::create_directories(file_.parent_path(), ignored);
    FileLock lock(file_.string() + ".lock");
    auto contents = load(file_);
    if (contents.damage) throw SettingsStoreError::damaged(file_, *contents.damage);
    change(contents.object);
    writeFileAtomically(writeTarget(file_), contents.object.dump(2) + "\n");
}

void SettingsStore::setValue(const std::string& key, const nlohmann::json& value) {
    modify([&](nlohmann::json& object) { object[key] = value; });
}

void SettingsStore::removeValue(const std::string& key) {
    modify([&](nlohmann::json& object) { object.erase(key); });
}

}  // namespace tapekeep
