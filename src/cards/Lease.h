#pragma once

#include "cards/OperationKind.h"
#include "cards/VolumeUUID.h"

namespace tapekeep {

// Proof of holding a card in the operation lock. A plain value: it releases nothing by itself,
// so its holder calls OperationLock::release on every path.
struct Lease {
    VolumeUUID uuid;
    OperationKind kind = OperationKind::backup;

    bool operator==(const Lease&) const = default;
};

}  // namespace tapekeep
