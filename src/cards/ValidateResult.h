#pragma once

#include <optional>
#include <utility>

#include "core/SDCard.h"

namespace tapekeep {

// Whether a card is still mounted. notFound says the card is gone; scanFailed only says that the
// system could not tell, and must never be taken for a pulled card.
class ValidateResult {
public:
    enum class Kind { found, notFound, scanFailed };

    static ValidateResult found(SDCard card) { return ValidateResult(Kind::found, std::move(card)); }
    static ValidateResult notFound() { return ValidateResult(Kind::notFound, std::nullopt); }
    static ValidateResult scanFailed() { return ValidateResult(Kind::scanFailed, std::nullopt); }

    [[nodiscard]] Kind kind() const { return kind_; }
    [[nodiscard]] bool isFound() const { return kind_ == Kind::found; }
    // Present exactly when the kind is found.
    [[nodiscard]] const std::optional<SDCard>& card() const { return card_; }

    bool operator==(const ValidateResult&) const = default;

private:
    ValidateResult(Kind kind, std::optional<SDCard> card) : kind_(kind), card_(std::move(card)) {}

    Kind kind_;
    std::optional<SDCard> card_;
};

}  // namespace tapekeep
