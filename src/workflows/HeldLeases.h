#pragma once

#include <map>
#include <string>

#include "cards/Lease.h"
#include "cards/OperationLock.h"

namespace tapekeep {

// The leases that a controller holds in the shared operation lock, one per card at most, by volume
// UUID. Whatever is still held when it is destroyed is released then. Used on one thread only.
class HeldLeases {
public:
    HeldLeases() = default;
    HeldLeases(const HeldLeases&) = delete;
    HeldLeases& operator=(const HeldLeases&) = delete;
    ~HeldLeases() {
        for (const auto& [uuid, lease] : leases_) OperationLock::shared().release(lease);
    }

    void hold(const std::string& uuid, const Lease& lease) { leases_.insert_or_assign(uuid, lease); }
    void release(const std::string& uuid) {
        if (auto held = leases_.find(uuid); held != leases_.end()) {
            OperationLock::shared().release(held->second);
            leases_.erase(held);
        }
    }

private:
    std::map<std::string, Lease> leases_;
};

}  // namespace tapekeep
