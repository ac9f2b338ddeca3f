#pragma once

#include <QVariantMap>

#include <functional>
#include <string>

#include "workflows/CardState.h"
#include "workflows/PerCard.h"

namespace tapekeep {

// Where each card stands in the backup controller, by volume UUID. The controller and the
// collaborators that move a card from state to state share one table; every real change is told
// through the callback given at construction. Used on the controller's thread only.
class CardStateTable {
public:
    explicit CardStateTable(std::function<void()> changed) : states_(std::move(changed)) {}

    // A card never seen is idle.
    [[nodiscard]] CardState state(const std::string& uuid) const {
        return states_.value(uuid).value_or(CardState::idle());
    }
    [[nodiscard]] bool contains(const std::string& uuid) const { return states_.contains(uuid); }
    void set(const std::string& uuid, CardState state) { states_.assign(uuid, std::move(state)); }

    [[nodiscard]] QVariantMap variant() const;

private:
    PerCard<CardState> states_;
};

}  // namespace tapekeep
