#include "app/SettingsKeys.h"

#include <charconv>
#include <cmath>
#include <limits>

#include "app/BackupSetLabels.h"

namespace tapekeep::SettingsKeys {
namespace {

Definition boolean(const char* key, bool fallback) {
    return {key, ValueType::boolean, fallback, {}, std::nullopt};
}
Definition integer(const char* key, int fallback, std::optional<int> minimum = std::nullopt) {
    return {key, ValueType::integer, fallback, {}, minimum};
}
Definition number(const char* key, double fallback) {
    return {key, ValueType::number, fallback, {}, std::nullopt};
}
Definition text(const char* key, const char* fallback) {
    return {key, ValueType::string, fallback, {}, std::nullopt};
}
Definition oneOf(const char* key, const char* fallback, std::vector<std::string> allowed) {
    return {key, ValueType::string, fallback, std::move(allowed), std::nullopt};
}

std::vector<Definition> makeTable() {
    return {
        text(backupBaseDirPath, ""),
        integer(keepCount, 5, 1),  // below 1, rotation would keep one version and delete the rest
        boolean(rotateBackups, true),
        text(rsyncPath, ""),
        text(appearance, "system"),
        boolean(verifyAfterBackup, false),
        boolean(playSoundOnCompletion, true),
        text(completionSoundName, "Glass"),
        text(excludedVolumes, ""),
        boolean(notifyOnCompletion, true),
        boolean(autoBackupOnConnect, false),
        integer(autoBackupDelaySeconds, 5),
        {backupSetLabelsJSON, ValueType::jsonText, "{}", {}, std::nullopt},
        boolean(menuBarMode, false),
        boolean(askToEjectOnQuit, true),
        oneOf(m8Accent, "pink", {"pink", "lime", "amber", "cyan", "violet"}),
        oneOf(m8TypeMode, "mono", {"mono", "sans"}),
        oneOf(m8TypeScale, "md", {"xs", "sm", "md", "lg", "xl"}),
        oneOf(mainTab, "backup", {"backup", "restore", "browse", "settings"}),
        boolean(launchOnLogin, false),
        boolean(autoEjectOnCompletion, false),
        oneOf(verifyMismatchActionRaw, "flag", {"retry", "flag", "abort"}),
        boolean(notifyOnFailure, true),
        // A restore backs the card up first, so that it can be undone: rsync -u leaves no way back.
        boolean(backupBeforeRestore, true),
        number(prereleaseBannerDismissedAt, 0.0),
        number(prereleaseBannerLastShownAt, 0.0),
    };
}

bool isInt(const nlohmann::json& value) {
    if (value.is_number_unsigned()) return value.get<std::uint64_t>() <= std::numeric_limits<int>::max();
    if (!value.is_number_integer()) return false;
    auto number = value.get<std::int64_t>();
    return number >= std::numeric_limits<int>::min() && number <= std::numeric_limits<int>::max();
}

bool isAllowedString(const Definition& definition, const nlohmann::json& value) {
    if (!value.is_string()) return false;
    if (definition.allowedValues.empty()) return true;
    const auto& raw = value.get_ref<const std::string&>();
    for (const auto& allowed : definition.allowedValues)
        if (raw == allowed) return true;
    return false;
}

// The store cannot encode text that is not UTF-8, so such text is refused here.
bool isEncodable(const nlohmann::json& value) {
    try {
        (void)value.dump();
        return true;
    } catch (const nlohmann::json::exception&) {
        return false;
    }
}

std::optional<nlohmann::json> parseBoolean(std::string_view text) {
    if (text == "true") return true;
    if (text == "false") return false;
    return std::nullopt;
}

std::optional<nlohmann::json> parseNumber(std::string_view text) {
    double number = 0;
    const char* end = text.data() + text.size();
    auto [stop, error] = std::from_chars(text.data(), end, number);
    if (text.empty() || error != std::errc() || stop != end || !std::isfinite(number)) return std::nullopt;
    return number;
}

std::optional<nlohmann::json> parseInteger(std::string_view text) {
    int number = 0;
    const char* end = text.data() + text.size();
    auto [stop, error] = std::from_chars(text.data(), end, number);
    if (text.empty() || error != std::errc() || stop != end) return std::nullopt;
    return number;
}

}  // namespace

const std::vector<Definition>& all() {
    static const std::vector<Definition> table = makeTable();
    return table;
}

const Definition* find(std::string_view key) {
    for (const auto& definition : all())
        if (definition.key == key) return &definition;
    return nullptr;
}

bool accepts(const Definition& definition, const nlohmann::json& value) {
    switch (definition.type) {
        case ValueType::boolean:
            return value.is_boolean();
        case ValueType::integer:
            return isInt(value);
        case ValueType::number:
            return value.is_number();
        case ValueType::string:
            return isAllowedString(definition, value);
        case ValueType::jsonText:
            return value.is_string();  // an undecodable text reads as no labels
    }
    return false;
}

bool allowsWriting(const Definition& definition, const nlohmann::json& value) {
    if (!accepts(definition, value)) return false;
    return !definition.minimum || !value.is_number() || value.get<std::int64_t>() >= *definition.minimum;
}

nlohmann::json read(const SettingsStore& store, const Definition& definition) {
    auto stored = store.value(definition.key);
    return stored && accepts(definition, *stored) ? *stored : definition.defaultValue;
}

nlohmann::json readAll(const SettingsStore& store) {
    auto stored = store.all();
    auto values = nlohmann::json::object();
    for (const auto& definition : all()) {
        auto found = stored.find(definition.key);
        bool usable = found != stored.end() && accepts(definition, *found);
        values[definition.key] = usable ? *found : definition.defaultValue;
    }
    return values;
}

std::optional<nlohmann::json> parseValue(std::string_view key, std::string_view text) {
    const Definition* definition = find(key);
    if (definition == nullptr) return std::nullopt;
    switch (definition->type) {
        case ValueType::boolean:
            return parseBoolean(text);
        case ValueType::integer: {
            auto number = parseInteger(text);
            if (!number || !allowsWriting(*definition, *number)) return std::nullopt;
            return number;
        }
        case ValueType::number:
            return parseNumber(text);
        case ValueType::string: {
            nlohmann::json value = std::string(text);
            if (!isEncodable(value) || !isAllowedString(*definition, value)) return std::nullopt;
            return value;
        }
        case ValueType::jsonText: {
            auto labels = BackupSetLabels::decode(text);
            if (!labels) return std::nullopt;
            return BackupSetLabels::encode(*labels);
        }
    }
    return std::nullopt;
}

std::string describeExpected(const Definition& definition) {
    switch (definition.type) {
        case ValueType::boolean:
            return "true or false";
        case ValueType::integer:
            if (definition.minimum) return "an integer of at least " + std::to_string(*definition.minimum);
            return "an integer";
        case ValueType::number:
            return "a number";
        case ValueType::jsonText:
            return "a JSON object of strings";
        case ValueType::string:
            break;
    }
    if (definition.allowedValues.empty()) return "text";
    std::string listed = "one of: ";
    for (std::size_t index = 0; index < definition.allowedValues.size(); ++index)
        listed += (index == 0 ? "" : ", ") + definition.allowedValues[index];
    return listed;
}

}  // namespace tapekeep::SettingsKeys
