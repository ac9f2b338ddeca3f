#include "cards/OperationLock.h"

#include <vector>

#include "cards/OperationLockError.h"
#include "core/Log.h"
#include "core/PosixError.h"

namespace tapekeep {

namespace {
const Log logger("OperationLock");
}  // namespace

OperationLock& OperationLock::shared() {
    static OperationLock lock;
    return lock;
}

OperationLock::OperationLock(NotificationCenter& notificationCenter,
                             std::optional<std::filesystem::path> lockFolder)
    : notificationCenter_(notificationCenter), lockFolder_(std::move(lockFolder)) {}

Lease OperationLock::acquire(const VolumeUUID& uuid, OperationKind kind) {
    std::set<std::string> snapshot;
    {
        std::lock_guard lock(ownersMutex_);
        if (auto holder = owners_.find(uuid); holder != owners_.end())
            throw OperationLockError::conflict(holder->second.kind);
        owners_.emplace(uuid, Holder{kind, lockAcrossProcesses(uuid, kind)});
        snapshot = activeVolumeUUIDsLocked();
    }
    publish(snapshot);
    return Lease{uuid, kind};
}

void OperationLock::release(const Lease& lease) {
    std::set<std::string> snapshot;
    {
        std::lock_guard lock(ownersMutex_);
        if (auto holder = owners_.find(lease.uuid);
            holder != owners_.end() && holder->second.kind == lease.kind)
            owners_.erase(holder);
        snapshot = activeVolumeUUIDsLocked();
    }
    publish(snapshot);
    // A restore or a browse session may have written to the card; a backup only read it.
    if (lease.kind != OperationKind::backup)
        notificationCenter_.post(Notifications::cardContentMayHaveChanged, lease.uuid.rawValue);
}

bool OperationLock::isActive(const VolumeUUID& uuid) const {
    std::lock_guard lock(ownersMutex_);
    return owners_.contains(uuid);
}

bool OperationLock::isHeldAnywhere(const VolumeUUID& uuid) const {
    if (isActive(uuid)) return true;
    try {
        return CardLockFile::isHeld(lockFolder_.value_or(CardLockFile::defaultFolder()), uuid);
    } catch (const PosixError&) {
        return false;
    }
}

std::optional<OperationKind> OperationLock::owner(const VolumeUUID& uuid) const {
    std::lock_guard lock(ownersMutex_);
    const auto holder = owners_.find(uuid);
    return holder == owners_.end() ? std::nullopt : std::optional(holder->second.kind);
}

std::set<std::string> OperationLock::activeVolumeUUIDs() const {
    std::lock_guard lock(ownersMutex_);
    return activeVolumeUUIDsLocked();
}

OperationLock::ObserverToken OperationLock::observeActiveVolumeUUIDs(Observer observer) {
    std::lock_guard lock(observersMutex_);
    const ObserverToken token = nextObserverToken_++;
    observers_.emplace(token, std::move(observer));
    return token;
}

void OperationLock::removeObserver(ObserverToken token) {
    std::lock_guard lock(observersMutex_);
    observers_.erase(token);
}

// Throws OperationLockError when another process holds the card.
std::unique_ptr<CardLockFile> OperationLock::lockAcrossProcesses(const VolumeUUID& uuid,
                                                                 OperationKind kind) const {
    try {
        return CardLockFile::acquire(lockFolder_.value_or(CardLockFile::defaultFolder()), uuid, kind);
    } catch (const PosixError& error) {
        logger.error("Other processes are not kept away from card " + uuid.rawValue + ": " +
                     error.description());
        return nullptr;
    }
}

std::set<std::string> OperationLock::activeVolumeUUIDsLocked() const {
    std::set<std::string> uuids;
    for (const auto& [uuid, holder] : owners_) uuids.insert(uuid.rawValue);
    return uuids;
}

// Observers are copied out first so that one of them may add or remove observers, or ask the lock.
void OperationLock::publish(const std::set<std::string>& snapshot) {
    std::vector<Observer> observers;
    {
        std::lock_guard lock(observersMutex_);
        for (const auto& [token, observer] : observers_) observers.push_back(observer);
    }
    for (const auto& observer : observers) observer(snapshot);
}

}  // namespace tapekeep
