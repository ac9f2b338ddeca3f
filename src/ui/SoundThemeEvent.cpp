#include "ui/SoundThemeEvent.h"

#include <map>

namespace tapekeep {

std::optional<std::string> soundThemeEvent(const std::string& soundName) {
    static const std::string complete = "complete";
    static const std::string error = "dialog-error";
    static const std::map<std::string, const std::string*> events{
        {"Basso", &error},        {"Blow", &complete},  {"Bottle", &complete}, {"Frog", &complete},
        {"Funk", &error},         {"Glass", &complete}, {"Hero", &complete},   {"Morse", &complete},
        {"Ping", &complete},      {"Pop", &complete},   {"Purr", &complete},   {"Sosumi", &error},
        {"Submarine", &complete}, {"Tink", &complete},
    };
    const auto found = events.find(soundName);
    if (found == events.end()) return std::nullopt;
    return *found->second;
}

}  // namespace tapekeep
