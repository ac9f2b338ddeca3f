#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace tapekeep::BackupSetLabels {

// The labels a user gave to backup sets, stored as one JSON object from a set's folder name to
// its label. Stateless; any thread.
using Labels = std::map<std::string, std::string>;

// Absent unless the text is UTF-8 JSON holding one object whose values are all strings.
[[nodiscard]] std::optional<Labels> decode(std::string_view text);

// Compact JSON; "{}" when the labels cannot be encoded (text that is not UTF-8).
[[nodiscard]] std::string encode(const Labels& labels);

}  // namespace tapekeep::BackupSetLabels
