#pragma once

#include "core/Error.h"

namespace tapekeep {

// Every name a trim may take next to its source is in use.
class EditNameSuggesterError : public Error {
public:
    enum class Kind { tooManyVariants };

    static EditNameSuggesterError tooManyVariants() {
        return EditNameSuggesterError(Kind::tooManyVariants, "Too many trim variants — pick a custom name.");
    }

    [[nodiscard]] Kind kind() const { return kind_; }

private:
    EditNameSuggesterError(Kind kind, const char* text) : Error(text), kind_(kind) {}

    Kind kind_;
};

}  // namespace tapekeep
