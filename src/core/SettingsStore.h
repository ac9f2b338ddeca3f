#pragma once

#include <filesystem>
#include <mutex>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace tapekeep {

// The user-defaults store: one JSON object in one file, shared by the desktop application and
// the CLI. Each write is a read-modify-write under flock on a lock file beside it, finished by an
// atomic rename, so two processes never lose each other's keys. A symbolic link at the path is
// written through: its target is replaced and the link stays.
//
// Reads never fail: a missing file reads as empty. A damaged file (one that cannot be read or
// parsed as a JSON object, is not a regular file once links are followed, or is larger than 1 MiB)
// also reads as empty, and the log says why once per process; it is never opened in a way that
// could block or read without end, and it is never replaced: writes throw SettingsStoreError and
// leave it byte for byte as it was, so the user can fix it. Thread-safe.
class SettingsStore {
public:
    static constexpr std::size_t largestFileSize = 1024 * 1024;

    explicit SettingsStore(std::filesystem::path file);

    [[nodiscard]] const std::filesystem::path& file() const { return file_; }

    [[nodiscard]] nlohmann::json all() const;
    [[nodiscard]] std::optional<nlohmann::json> value(const std::string& key) const;
    [[nodiscard]] bool contains(const std::string& key) const { return value(key).has_value(); }
    [[nodiscard]] std::string string(const std::string& key, const std::string& fallback = {}) const;

    // The SettingsStoreError text that a write would throw now, or nothing when the file is usable.
    [[nodiscard]] std::optional<std::string> damage() const;

    // Throw SettingsStoreError when the file is damaged, PosixError when it cannot be written.
    void setValue(const std::string& key, const nlohmann::json& value);
    void removeValue(const std::string& key);

private:
    template <typename Change>
    void modify(Change change);

    std::filesystem::path file_;
    mutable std::mutex mutex_;  // serialises writers of this process; flock covers other processes
};

}  // namespace tapekeep
