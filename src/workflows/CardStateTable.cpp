#include "workflows/CardStateTable.h"

#include "workflows/VariantMaps.h"

namespace tapekeep {

QVariantMap CardStateTable::variant() const {
    return toVariantMap(states_.all(), [](const CardState& state) {
        return QVariantMap{{"state", CardState::rawValue(state.kind)},
                           {"message", toQString(state.message)},
                           {"start", toEpochMilliseconds(state.start)},
                           {"end", toEpochMilliseconds(state.end)}};
    });
}

}  // namespace tapekeep
