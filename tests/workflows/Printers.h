#pragma once

#include <ostream>

#include "core/SDCard.h"
#include "workflows/CardState.h"

namespace tapekeep {

// Found by argument-dependent lookup, so that failures print the card and the state.
inline void PrintTo(const SDCard& card, std::ostream* out) {
    *out << card.volumeName << " " << card.diskUtilUUID;
}
inline void PrintTo(const CardState& state, std::ostream* out) {
    *out << CardState::rawValue(state.kind) << " \"" << state.message << "\"";
}

}  // namespace tapekeep
