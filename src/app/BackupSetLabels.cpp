#include "app/BackupSetLabels.h"

#include <nlohmann/json.hpp>

namespace tapekeep::BackupSetLabels {

std::optional<Labels> decode(std::string_view text) {
    auto parsed = nlohmann::json::parse(text, nullptr, false);
    if (!parsed.is_object()) return std::nullopt;
    Labels labels;
    for (const auto& [folderName, label] : parsed.items()) {
        if (!label.is_string()) return std::nullopt;
        labels.emplace(folderName, label.get<std::string>());
    }
    return labels;
}

std::string encode(const Labels& labels) {
    try {
        return nlohmann::json(labels).dump();
    } catch (const nlohmann::json::exception&) {
        return "{}";
    }
}

}  // namespace tapekeep::BackupSetLabels
