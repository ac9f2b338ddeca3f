#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>

namespace tapekeep {

// One value for each card, keyed by its volume UUID: what backs one observable property of a
// controller. Every real change is told through the callback given at construction, so that the
// property's signal is emitted only when its value changed. Used on the controller's thread only.
template <typename Value>
class PerCard {
public:
    explicit PerCard(std::function<void()> changed) : changed_(std::move(changed)) {}

    // Tells only when the card had no value or another one.
    void assign(const std::string& uuid, Value value) {
        auto found = values_.find(uuid);
        if (found != values_.end() && found->second == value) return;
        values_.insert_or_assign(uuid, std::move(value));
        changed_();
    }
    void erase(const std::string& uuid) {
        if (values_.erase(uuid) > 0) changed_();
    }
    // Changes the card's value in place (a default one when it has none) and tells.
    template <typename Edit>
    void edit(const std::string& uuid, Edit&& change) {
        std::forward<Edit>(change)(values_[uuid]);
        changed_();
    }

    [[nodiscard]] bool contains(const std::string& uuid) const { return values_.contains(uuid); }
    [[nodiscard]] const Value* find(const std::string& uuid) const {
        auto found = values_.find(uuid);
        return found == values_.end() ? nullptr : &found->second;
    }
    [[nodiscard]] std::optional<Value> value(const std::string& uuid) const {
        const Value* found = find(uuid);
        return found == nullptr ? std::nullopt : std::optional<Value>(*found);
    }
    [[nodiscard]] const std::map<std::string, Value>& all() const { return values_; }

private:
    std::function<void()> changed_;
    std::map<std::string, Value> values_;
};

}  // namespace tapekeep
