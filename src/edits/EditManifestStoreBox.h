#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>

#include "edits/EditManifestStore.h"

namespace tapekeep {

// Holds the edit store of the current base folder for as long as the process lives. A new base
// folder that is the same path once standardised keeps the store, its hooks and its remembered
// manifest dates; any other gets a fresh store. Thread-safe; the observer runs on the thread that
// changed the folder, after the new store is in place.
class EditManifestStoreBox {
public:
    using Observer = std::function<void(const std::shared_ptr<EditManifestStore>& store)>;

    explicit EditManifestStoreBox(const std::filesystem::path& baseFolder);

    [[nodiscard]] std::shared_ptr<EditManifestStore> store() const;
    // True when a new store was made.
    bool setBaseFolder(const std::filesystem::path& baseFolder);
    void setObserver(Observer observer);

private:
    mutable std::mutex mutex_;
    std::shared_ptr<EditManifestStore> store_;  // guarded by mutex_; never null
    Observer observer_;                         // guarded by mutex_
};

}  // namespace tapekeep
