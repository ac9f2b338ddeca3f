#include "edits/EditManifestCoding.h"

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>

#include "edits/EditManifestStoreError.h"

namespace tapekeep::EditManifestCoding {
namespace {

using Json = nlohmann::json;
using OrderedJson = nlohmann::ordered_json;

[[noreturn]] void refuse(const std::string& text) {
    throw EditManifestStoreError::decodingFailed(text);
}

const Json& member(const Json& object, const char* key) {
    if (!object.is_object()) refuse("Expected an object.");
    const auto found = object.find(key);
    if (found == object.end()) refuse(std::string("Missing key '") + key + "'.");
    return *found;
}

std::string text(const Json& value, const char* key) {
    if (!value.is_string()) refuse(std::string("Expected a string for '") + key + "'.");
    return value.get<std::string>();
}

std::string textMember(const Json& object, const char* key) {
    return text(member(object, key), key);
}

double numberMember(const Json& object, const char* key) {
    const auto& value = member(object, key);
    if (!value.is_number()) refuse(std::string("Expected a number for '") + key + "'.");
    return value.get<double>();
}

int integerMember(const Json& object, const char* key) {
    const auto& value = member(object, key);
    if (!value.is_number_integer()) refuse(std::string("Expected an integer for '") + key + "'.");
    return value.get<int>();
}

const Json& arrayMember(const Json& object, const char* key) {
    const auto& value = member(object, key);
    if (!value.is_array()) refuse(std::string("Expected an array for '") + key + "'.");
    return value;
}

TimePoint date(const Json& value, const char* key) {
    const auto parsed = parseIso8601Utc(text(value, key));
    if (!parsed) refuse(std::string("Expected date string to be ISO8601-formatted for '") + key + "'.");
    return *parsed;
}

// Present keys must hold their type; null is no way of saying "absent".
std::optional<TimePoint> optionalDate(const Json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end()) return std::nullopt;
    return date(*found, key);
}

std::optional<std::string> optionalText(const Json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end()) return std::nullopt;
    return text(*found, key);
}

// 8-4-4-4-12 hexadecimal digits, kept in upper case as the program writes them.
std::string uuid(const Json& object, const char* key) {
    auto value = textMember(object, key);
    const bool wellFormed =
        value.size() == 36 && std::all_of(value.begin(), value.end(), [&, at = 0](char c) mutable {
            const bool dash = at == 8 || at == 13 || at == 18 || at == 23;
            ++at;
            return dash ? c == '-' : std::isxdigit(static_cast<unsigned char>(c)) != 0;
        });
    if (!wellFormed)
        refuse(std::string("Attempted to decode UUID from invalid UUID string for '") + key + "'.");
    std::transform(value.begin(), value.end(), value.begin(),
                   [](char c) { return static_cast<char>(std::toupper(c)); });
    return value;
}

EditKind kind(const Json& object) {
    const auto value = textMember(object, "kind");
    if (value != "sampleTrim") refuse("Cannot initialize EditKind from invalid String value " + value + ".");
    return EditKind::sampleTrim;
}

EditMode mode(const Json& object) {
    const auto value = textMember(object, "mode");
    if (value == "saveAsNew") return EditMode::saveAsNew;
    if (value == "overwrite") return EditMode::overwrite;
    refuse("Cannot initialize EditMode from invalid String value " + value + ".");
}

std::vector<std::string> texts(const Json& array, const char* key) {
    std::vector<std::string> values;
    for (const auto& value : array) values.push_back(text(value, key));
    return values;
}

EditParameters parameters(const Json& object) {
    const auto& value = member(object, "parameters");
    if (!value.is_object() || value.size() != 1) refuse("Invalid number of keys found, expected one.");
    const auto& trim = member(value, "sampleTrim");
    return {{numberMember(trim, "start"), numberMember(trim, "end"), numberMember(trim, "originalDuration")}};
}

EditEntry entry(const Json& object) {
    EditEntry edit;
    edit.id = uuid(object, "id");
    edit.kind = kind(object);
    edit.mode = mode(object);
    edit.createdAt = date(member(object, "createdAt"), "createdAt");
    edit.appliedAt = optionalDate(object, "appliedAt");
    edit.applyError = optionalText(object, "applyError");
    edit.sourceVersionFolder = textMember(object, "sourceVersionFolder");
    edit.sourceRelativePath = textMember(object, "sourceRelativePath");
    edit.targetRelativePath = textMember(object, "targetRelativePath");
    edit.stagedFileName = textMember(object, "stagedFileName");
    edit.affectedSongs = texts(arrayMember(object, "affectedSongs"), "affectedSongs");
    edit.parameters = parameters(object);
    return edit;
}

Json parsed(const std::string& bytes) {
    try {
        return Json::parse(bytes);
    } catch (const Json::exception& error) {
        refuse(error.what());
    }
}

const char* modeName(EditMode mode) {
    return mode == EditMode::overwrite ? "overwrite" : "saveAsNew";
}

Json encoded(const EditEntry& edit) {
    const auto& trim = edit.parameters.sampleTrim;
    Json object = {
        {"id", edit.id},
        {"kind", "sampleTrim"},
        {"mode", modeName(edit.mode)},
        {"createdAt", formatIso8601Utc(edit.createdAt)},
        {"sourceVersionFolder", edit.sourceVersionFolder},
        {"sourceRelativePath", edit.sourceRelativePath},
        {"targetRelativePath", edit.targetRelativePath},
        {"stagedFileName", edit.stagedFileName},
        {"affectedSongs", edit.affectedSongs},
        {"parameters",
         {{"sampleTrim",
           {{"start", trim.start}, {"end", trim.end}, {"originalDuration", trim.originalDuration}}}}},
    };
    if (edit.appliedAt) object["appliedAt"] = formatIso8601Utc(*edit.appliedAt);
    if (edit.applyError) object["applyError"] = *edit.applyError;
    return object;
}

}  // namespace

std::string encodeManifest(const EditManifest& manifest) {
    Json edits = Json::array();
    for (const auto& edit : manifest.edits) edits.push_back(encoded(edit));
    const Json root = {{"schemaVersion", manifest.schemaVersion},
                       {"backupRootName", manifest.backupRootName},
                       {"edits", edits}};
    return root.dump(2);
}

EditManifest decodeManifest(const std::string& bytes) {
    const auto root = parsed(bytes);
    EditManifest manifest;
    manifest.schemaVersion = integerMember(root, "schemaVersion");
    manifest.backupRootName = textMember(root, "backupRootName");
    for (const auto& edit : arrayMember(root, "edits")) manifest.edits.push_back(entry(edit));
    return manifest;
}

std::string encodeMarker(const PendingCommitMarker& marker) {
    const OrderedJson object = {{"schemaVersion", marker.schemaVersion},
                                {"editID", marker.editID},
                                {"stagedFileName", marker.stagedFileName},
                                {"targetRelativePath", marker.targetRelativePath}};
    return object.dump();
}

PendingCommitMarker decodeMarker(const std::string& bytes) {
    const auto object = parsed(bytes);
    return {integerMember(object, "schemaVersion"), uuid(object, "editID"),
            textMember(object, "stagedFileName"), textMember(object, "targetRelativePath")};
}

}  // namespace tapekeep::EditManifestCoding
