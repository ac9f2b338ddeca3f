#include "workflows/FeatureAccessAdmission.h"

namespace tapekeep {

std::optional<std::string> FeatureAccessAdmission::refusal(const std::string&) const {
    return std::nullopt;
}

}  // namespace tapekeep
