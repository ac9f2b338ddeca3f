#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>

#include "core/Error.h"

namespace tapekeep {

// The failures of the browser's file services. description() is the text the user reads; a case
// about a file names only its last path component, never where the backup lives.
class BrowseFileError : public Error {
public:
    enum class Kind {
        sourceMissing,
        unsupportedSource,
        destinationSymlink,
        transferFailed,
        invalidSong,
        samplePathEscapesVersion,
        sampleMissing,
        missingVolumeIdentity,
        sourceOutsideVersion,
        indexNotReady,
        verificationFailed,
    };

    static BrowseFileError sourceMissing(const std::filesystem::path& url) {
        return {Kind::sourceMissing, url.string(), "Source file not found: " + lastPathComponent(url)};
    }
    static BrowseFileError unsupportedSource(const std::filesystem::path& url) {
        return {Kind::unsupportedSource, url.string(), "Unsupported source type: " + lastPathComponent(url)};
    }
    static BrowseFileError destinationSymlink(const std::string& path) {
        return {Kind::destinationSymlink, path, "Destination path contains a symbolic link: " + path};
    }
    static BrowseFileError transferFailed(std::int32_t exitCode) {
        const std::string code = std::to_string(exitCode);
        return {Kind::transferFailed, code, "Copy failed (rsync exit " + code + ")."};
    }
    static BrowseFileError invalidSong(const std::filesystem::path& url) {
        return {Kind::invalidSong, url.string(),
                "Could not read song or instrument: " + lastPathComponent(url)};
    }
    static BrowseFileError samplePathEscapesVersion(const std::string& storedPath) {
        return {Kind::samplePathEscapesVersion, storedPath, "Sample path escapes the backup: " + storedPath};
    }
    static BrowseFileError sampleMissing(const std::string& storedPath) {
        return {Kind::sampleMissing, storedPath, "Referenced sample is missing: " + storedPath};
    }
    static BrowseFileError missingVolumeIdentity() {
        return {Kind::missingVolumeIdentity, {}, "Cannot copy without a stable volume UUID."};
    }
    static BrowseFileError sourceOutsideVersion() {
        return {Kind::sourceOutsideVersion, {}, "The selected file is outside this backup version."};
    }
    static BrowseFileError indexNotReady() { return {Kind::indexNotReady, {}, "Sample usage is not ready."}; }
    // The read-back after a copy to the card found the file missing or different there.
    static BrowseFileError verificationFailed(const std::filesystem::path& url) {
        return {Kind::verificationFailed, url.string(),
                "The copy on the card does not match the backup: " + lastPathComponent(url)};
    }

    [[nodiscard]] Kind kind() const { return kind_; }
    // The case's payload as text: a URL's whole path, a path as stored, an exit code; empty for none.
    [[nodiscard]] const std::string& payload() const { return payload_; }

private:
    BrowseFileError(Kind kind, std::string payload, const std::string& text)
        : Error(text), kind_(kind), payload_(std::move(payload)) {}

    static std::string lastPathComponent(const std::filesystem::path& url) {
        const auto normal = url.lexically_normal();
        const auto name = (normal.has_filename() ? normal : normal.parent_path()).filename().string();
        return name.empty() ? normal.root_path().string() : name;
    }

    Kind kind_;
    std::string payload_;
};

}  // namespace tapekeep
