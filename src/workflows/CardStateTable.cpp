#include "workflows/CardStateTable.h"

#include "workflows/QmlValues.h"

namespace tapekeep {

QVariantMap CardStateTable::variant() const {
    return QmlValues::mapOf(states_.all(), [](const CardState& state) {
        return QVariantMap{{"state", CardState::rawValue(state.kind)},
                           {"message", QmlValues::text(state.message)},
                           {"start", QmlValues::epochMilliseconds(state.start)},
                           {"end", QmlValues::epochMilliseconds(state.end)}};
    });
}

}  // namespace tapekeep
