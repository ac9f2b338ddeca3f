#pragma once

#include <string>

#include "cards/OperationKind.h"
#include "core/Error.h"

namespace tapekeep {

// The one refusal of the operation lock: the card is held already. The words the user reads are
// the controllers'; they take the holder's kind from existing().
class OperationLockError : public Error {
public:
    enum class Kind { conflict };

    static OperationLockError conflict(OperationKind existing) { return OperationLockError(existing); }

    [[nodiscard]] Kind kind() const { return Kind::conflict; }
    [[nodiscard]] OperationKind existing() const { return existing_; }

private:
    explicit OperationLockError(OperationKind existing)
        : Error("Operation in progress: " + std::string(rawValue(existing))), existing_(existing) {}

    OperationKind existing_;
};

}  // namespace tapekeep
