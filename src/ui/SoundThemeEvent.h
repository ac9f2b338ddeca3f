#pragma once

#include <optional>
#include <string>

namespace tapekeep {

// The freedesktop sound-theme event that plays for one of the design's sound names (the setting
// completionSoundName): the low, dull ones ("Basso", "Funk", "Sosumi") sound as "dialog-error", the
// other chimes as "complete". Any other name, including an empty one, plays nothing.
std::optional<std::string> soundThemeEvent(const std::string& soundName);

}  // namespace tapekeep
