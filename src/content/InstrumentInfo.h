#pragma once

#include <optional>
#include <string>

namespace tapekeep {

// One occupied slot of a song's instrument table, or the instrument of an .m8i file.
struct InstrumentInfo {
    // The device's numbering: the type byte is the position in this list; 7 to 254 are unknown.
    enum class InstrumentType { wavsynth, macrosyn, sampler, midi, fm, hypersynth, external, unknown };

    std::string id;  // generated afresh at each parse; identifies a row in a list, nothing in the file
    int index = 0;   // slot number, 0 to 127
    InstrumentType type = InstrumentType::unknown;
    std::string name;                       // may be empty
    std::optional<std::string> samplePath;  // only ever present for a sampler

    // The device's name of a type: "WAVSYNTH", "MACROSYN", "SAMPLER", "MIDI OUT", "FMSYNTH",
    // "HYPERSYNTH", "EXTERNAL", "UNKNOWN".
    static const char* rawValue(InstrumentType type);
};

}  // namespace tapekeep
