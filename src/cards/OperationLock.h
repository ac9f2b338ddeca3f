#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "cards/Lease.h"
#include "cards/OperationKind.h"
#include "cards/VolumeUUID.h"
#include "core/NotificationCenter.h"

namespace tapekeep {

// Keeps long operations on one card exclusive within this process. It is not a queue: acquiring a
// card that is held fails at once, whatever the two kinds. Nothing is kept on disk.
//
// Thread-safe: any thread may call anything. Observers and the notification run on the thread
// whose acquire or release changed the table, after the change and with no lock held; two changes
// on different threads may deliver their snapshots in either order.
class OperationLock {
public:
    using Observer = std::function<void(const std::set<std::string>& activeVolumeUUIDs)>;
    using ObserverToken = std::uint64_t;

    // The one table of the process, created empty on first use.
    static OperationLock& shared();

    // A table of its own; cardContentMayHaveChanged is posted on the given centre.
    explicit OperationLock(NotificationCenter& notificationCenter = NotificationCenter::defaultCenter());
    OperationLock(const OperationLock&) = delete;
    OperationLock& operator=(const OperationLock&) = delete;

    // Takes the card, or throws OperationLockError::conflict with the holder's kind and changes
    // nothing. Observers have seen the new set before the lease is returned. An empty UUID is not
    // refused here; callers refuse it first.
    Lease acquire(const VolumeUUID& uuid, OperationKind kind);

    // Frees the card only while it is still held by the lease's kind, so a stale lease of another
    // kind leaves the current holder alone. Every restore or browse release then posts
    // Notifications::cardContentMayHaveChanged with the raw UUID, whether or not it freed anything.
    void release(const Lease& lease);

    [[nodiscard]] bool isActive(const VolumeUUID& uuid) const;
    [[nodiscard]] std::optional<OperationKind> owner(const VolumeUUID& uuid) const;
    // The raw UUIDs of the held cards, now.
    [[nodiscard]] std::set<std::string> activeVolumeUUIDs() const;

    // Calls observer with the set of held cards after every acquire and release.
    ObserverToken observeActiveVolumeUUIDs(Observer observer);
    void removeObserver(ObserverToken token);

private:
    std::set<std::string> activeVolumeUUIDsLocked() const;
    void publish(const std::set<std::string>& snapshot);

    NotificationCenter& notificationCenter_;
    mutable std::mutex ownersMutex_;
    std::map<VolumeUUID, OperationKind> owners_;  // guarded by ownersMutex_
    std::mutex observersMutex_;
    std::map<ObserverToken, Observer> observers_;  // guarded by observersMutex_
    ObserverToken nextObserverToken_ = 1;          // guarded by observersMutex_
};

}  // namespace tapekeep
