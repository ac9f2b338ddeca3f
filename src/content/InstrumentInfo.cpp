#include "content/InstrumentInfo.h"

namespace tapekeep {

const char* InstrumentInfo::rawValue(InstrumentType type) {
    switch (type) {
        case InstrumentType::wavsynth:
            return "WAVSYNTH";
        case InstrumentType::macrosyn:
            return "MACROSYN";
        case InstrumentType::sampler:
            return "SAMPLER";
        case InstrumentType::midi:
            return "MIDI OUT";
        case InstrumentType::fm:
            return "FMSYNTH";
        case InstrumentType::hypersynth:
            return "HYPERSYNTH";
        case InstrumentType::external:
            return "EXTERNAL";
        case InstrumentType::unknown:
            return "UNKNOWN";
    }
    return "UNKNOWN";
}

}  // namespace tapekeep
