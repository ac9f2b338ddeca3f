#pragma once

#include <compare>
#include <functional>
#include <string>

namespace tapekeep {

// A card's identity in the operation lock: SDCard::diskUtilUUID, unchanged. Equality, order and
// hash are those of the string.
struct VolumeUUID {
    std::string rawValue;

    auto operator<=>(const VolumeUUID&) const = default;
};

}  // namespace tapekeep

template <>
struct std::hash<tapekeep::VolumeUUID> {
    std::size_t operator()(const tapekeep::VolumeUUID& uuid) const noexcept {
        return std::hash<std::string>{}(uuid.rawValue);
    }
};
