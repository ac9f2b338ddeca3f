#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "cards/CardLockFile.h"
#include "cards/Lease.h"
#include "cards/OperationKind.h"
#include "cards/VolumeUUID.h"
#include "core/NotificationCenter.h"

namespace tapekeep {

// Keeps long operations on one card exclusive. It is not a queue: acquiring a card that is held
// fails at once, whatever the two kinds. Within this process the table decides; a lease also holds
// the card's lock file (CardLockFile), so that a card held by another process (the desktop
// application, the CLI, a watcher) is refused the same way, with that holder's kind. Where the lock
// folder cannot be used safely, leases hold within this process only, and that is logged.
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

    // A table of its own; cardContentMayHaveChanged is posted on the given centre. The lock files
    // live in lockFolder, by default CardLockFile::defaultFolder() as the environment names it at
    // each acquire.
    explicit OperationLock(NotificationCenter& notificationCenter = NotificationCenter::defaultCenter(),
                           std::optional<std::filesystem::path> lockFolder = std::nullopt);
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
    // isActive, or held by another process now. Where the lock folder cannot be used, this process's
    // table alone answers, as it does for acquire.
    [[nodiscard]] bool isHeldAnywhere(const VolumeUUID& uuid) const;
    // The raw UUIDs of the held cards, now.
    [[nodiscard]] std::set<std::string> activeVolumeUUIDs() const;

    // Calls observer with the set of held cards after every acquire and release.
    ObserverToken observeActiveVolumeUUIDs(Observer observer);
    void removeObserver(ObserverToken token);

private:
    struct Holder {
        OperationKind kind;
        std::unique_ptr<CardLockFile> lockFile;  // absent where only this process is kept out
    };

    std::unique_ptr<CardLockFile> lockAcrossProcesses(const VolumeUUID& uuid, OperationKind kind) const;
    std::set<std::string> activeVolumeUUIDsLocked() const;
    void publish(const std::set<std::string>& snapshot);

    NotificationCenter& notificationCenter_;
    const std::optional<std::filesystem::path> lockFolder_;
    mutable std::mutex ownersMutex_;
    std::map<VolumeUUID, Holder> owners_;  // guarded by ownersMutex_
    std::mutex observersMutex_;
    std::map<ObserverToken, Observer> observers_;  // guarded by observersMutex_
    ObserverToken nextObserverToken_ = 1;          // guarded by observersMutex_
};

}  // namespace tapekeep
