#pragma once

#include <string>

#include "core/Error.h"

namespace tapekeep {

// Every failure of the edit storage and of its records. description() is the text the user reads.
class EditManifestStoreError : public Error {
public:
    enum class Kind {
        ioFailed,
        decodingFailed,
        pathInvalid,
        modeInvalid,
        symlinkInStorage,
        notFound,
        staleManifest
    };

    static EditManifestStoreError ioFailed(const std::string& text) {
        return {Kind::ioFailed, "I/O error: " + text};
    }
    static EditManifestStoreError decodingFailed(const std::string& text) {
        return {Kind::decodingFailed, "Failed to decode manifest: " + text};
    }
    static EditManifestStoreError pathInvalid(const std::string& text) {
        return {Kind::pathInvalid, "Invalid path: " + text};
    }
    static EditManifestStoreError modeInvalid(const std::string& text) {
        return {Kind::modeInvalid, "Mode invariant violated: " + text};
    }
    static EditManifestStoreError symlinkInStorage(const std::string& path) {
        return {Kind::symlinkInStorage, "Edit storage contains a symbolic link: " + path};
    }
    static EditManifestStoreError notFound() { return {Kind::notFound, "Manifest not found."}; }
    static EditManifestStoreError staleManifest() {
        return {Kind::staleManifest, "Manifest was modified by another writer — reload and retry."};
    }

    [[nodiscard]] Kind kind() const { return kind_; }

private:
    EditManifestStoreError(Kind kind, const std::string& text) : Error(text), kind_(kind) {}

    Kind kind_;
};

}  // namespace tapekeep
