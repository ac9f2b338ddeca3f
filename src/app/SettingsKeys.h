#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/SettingsStore.h"

namespace tapekeep::SettingsKeys {

// Every persisted setting: its stored key, JSON type and default. AppSettings reads and writes
// through this table, and the CLI's `settings` command validates and converts with it, so the
// two front ends can never disagree on a key or a type. Stateless; any thread.

enum class ValueType {
    boolean,
    integer,
    number,  // a finite floating-point number
    string,
    jsonText,  // a string that holds a JSON object of strings to strings
};

struct Definition {
    std::string key;
    ValueType type;
    nlohmann::json defaultValue;
    std::vector<std::string> allowedValues;  // raw values of a closed set; empty when any string goes
    std::optional<int> minimum;              // the smallest integer that may be written
};

// The stored keys, in the order in which the settings are listed to the user.
inline constexpr const char* backupBaseDirPath = "backupBaseDirPath";
inline constexpr const char* keepCount = "keepCount";
inline constexpr const char* rotateBackups = "m8RotateEnabled";
inline constexpr const char* rsyncPath = "rsyncPath";
inline constexpr const char* appearance = "appearance";
inline constexpr const char* verifyAfterBackup = "verifyAfterBackup";
inline constexpr const char* playSoundOnCompletion = "playSoundOnCompletion";
inline constexpr const char* completionSoundName = "completionSoundName";
inline constexpr const char* excludedVolumes = "excludedVolumes";
inline constexpr const char* notifyOnCompletion = "notifyOnCompletion";
inline constexpr const char* autoBackupOnConnect = "autoBackupOnConnect";
inline constexpr const char* autoBackupDelaySeconds = "autoBackupDelaySeconds";
inline constexpr const char* backupSetLabelsJSON = "backupSetLabels";
inline constexpr const char* menuBarMode = "menuBarMode";
inline constexpr const char* askToEjectOnQuit = "askToEjectOnQuit";
inline constexpr const char* m8Accent = "m8Accent";
inline constexpr const char* m8TypeMode = "m8TypeModeRaw";
inline constexpr const char* m8TypeScale = "m8TypeScaleRaw";
inline constexpr const char* mainTab = "mainTab";
inline constexpr const char* launchOnLogin = "launchOnLogin";
inline constexpr const char* autoEjectOnCompletion = "autoEjectOnCompletion";
inline constexpr const char* verifyMismatchActionRaw = "verifyMismatchActionRaw";
inline constexpr const char* notifyOnFailure = "notifyOnFailure";
inline constexpr const char* backupBeforeRestore = "backupBeforeRestore";
// The pre-release banner's own two numbers (seconds since 1970); nothing else reads them.
inline constexpr const char* prereleaseBannerDismissedAt = "prereleaseBannerDismissedAt";
inline constexpr const char* prereleaseBannerLastShownAt = "prereleaseBannerLastShownAt";

// Read once at start and carried over into autoEjectOnCompletion; never written.
inline constexpr const char* legacyAutoEjectAfterBackup = "m8AutoEjectAfterBackup";

[[nodiscard]] const std::vector<Definition>& all();
[[nodiscard]] const Definition* find(std::string_view key);  // null for an unknown key

// True when the value has the key's JSON type and, for a closed set, is one of its raw values.
[[nodiscard]] bool accepts(const Definition& definition, const nlohmann::json& value);
// What a setter or the CLI may store: accepts(), and an integer not below the minimum. A stored value
// below the minimum still reads as it is, so that what would use it can refuse it by name instead of
// quietly using another number.
[[nodiscard]] bool allowsWriting(const Definition& definition, const nlohmann::json& value);

// The stored value when the store holds an acceptable one, else the default. Never fails.
[[nodiscard]] nlohmann::json read(const SettingsStore& store, const Definition& definition);
// One object of every key with the value that read() gives.
[[nodiscard]] nlohmann::json readAll(const SettingsStore& store);

// Converts a command-line text into the key's JSON value: "true"/"false" for a boolean, a whole
// decimal number for an integer, the text itself for a string. Absent for an unknown key or a
// text that the key does not accept.
[[nodiscard]] std::optional<nlohmann::json> parseValue(std::string_view key, std::string_view text);

// What a text for this key must look like, for usage messages: "true or false", "an integer",
// "an integer of at least 1", "a number",
// "one of: pink, lime, amber, cyan, violet", "text", "a JSON object of strings".
[[nodiscard]] std::string describeExpected(const Definition& definition);

}  // namespace tapekeep::SettingsKeys
