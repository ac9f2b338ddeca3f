#include "edits/EditManifestStoreBox.h"

#include "core/StandardPath.h"

namespace tapekeep {
namespace fs = std::filesystem;

EditManifestStoreBox::EditManifestStoreBox(const fs::path& baseFolder)
    : store_(std::make_shared<EditManifestStore>(baseFolder)) {}

std::shared_ptr<EditManifestStore> EditManifestStoreBox::store() const {
    std::lock_guard lock(mutex_);
    return store_;
}

bool EditManifestStoreBox::setBaseFolder(const fs::path& baseFolder) {
    Observer observer;
    std::shared_ptr<EditManifestStore> store;
    {
        std::lock_guard lock(mutex_);
        if (standardized(store_->baseURL()) == standardized(baseFolder)) return false;
        store_ = std::make_shared<EditManifestStore>(baseFolder);
        store = store_;
        observer = observer_;
    }
    if (observer) observer(store);
    return true;
}

void EditManifestStoreBox::setObserver(Observer observer) {
    std::lock_guard lock(mutex_);
    observer_ = std::move(observer);
}

}  // namespace tapekeep
