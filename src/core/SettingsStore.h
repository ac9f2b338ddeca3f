#pragma once

#include <filesystem>
#include <mutex>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace tapekeep {

// The user-defaults store: one JSON object in one file, shared by the desktop application and
// the CLI. Each write is a read-modify-write under flock on a lock file beside it, finished by an
// atomic rename, so two processes never lose each other's keys. Reads never fail: a missing or
// unreadable file reads as empty. Thread-safe.
class SettingsStore {
public:
    explicit SettingsStore(std::filesystem::path file);

    [[nodiscard]] const std::filesystem::path& file() const { return file_; }

    [[nodiscard]] nlohmann::json all() const;
    [[nodiscard]] std::optional<nlohmann::json> value(const std::string& key) const;
    [[nodiscard]] bool contains(const std::string& key) const { return value(key).has_value(); }
    [[nodiscard]] std::string string(const std::string& key, const std::string& fallback = {}) const;

    // Throw PosixError when the file cannot be written.
    void setValue(const std::string& key, const nlohmann::json& value);
    void removeValue(const std::string& key);

private:
    template <typename Change>
    void modify(Change change);

    std::filesystem::path file_;
    mutable std::mutex mutex_;  // serialises writers of this process; flock covers other processes
};

}  // namespace tapekeep
