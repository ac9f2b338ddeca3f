#pragma once

#include <optional>
#include <string>

namespace tapekeep {

// The one gate a feature passes before it starts. Release builds admit everything; the call sites
// stay so that a time-limited pre-release can refuse with its own message.
class FeatureAccessAdmission {
public:
    // The refusal's text, or nothing when the feature may go ahead.
    [[nodiscard]] std::optional<std::string> refusal(const std::string& feature) const;
};

}  // namespace tapekeep
