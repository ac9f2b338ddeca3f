#pragma once

#include <filesystem>
#include <string>

#include "core/Error.h"
#include "core/PosixError.h"

namespace tapekeep {

// The failures that the backup repository itself decides on: refusals to publish a staging
// folder or to write into a set of another card (code 22, EINVAL) and a `latest` link that could
// not be renamed into place (code: the rename's errno). description() is the text the user reads.
class RepositoryError : public Error {
public:
    enum class Kind {
        stagingOutsideSet,
        notAStagingDirectory,
        stagingNotADirectory,
        latestRenameFailed,
        setOfAnotherCard,
        damagedCardFile
    };

    static constexpr const char* domain = "BackupRepository";
    static constexpr int refusalCode = 22;

    static RepositoryError stagingOutsideSet(const std::filesystem::path& staging,
                                             const std::filesystem::path& set) {
        return {Kind::stagingOutsideSet, refusalCode,
                "Staging directory " + staging.string() + " is not inside backup set " + set.string() + "."};
    }
    static RepositoryError notAStagingDirectory(const std::string& name) {
        return {Kind::notAStagingDirectory, refusalCode,
                "Refusing to publish " + name + ": not a staging directory."};
    }
    static RepositoryError stagingNotADirectory(const std::filesystem::path& staging) {
        return {
            Kind::stagingNotADirectory, refusalCode,
            "Staging path " + staging.string() + " is not a directory (symbolic links are never published)."};
    }
    static RepositoryError latestRenameFailed(int errnoCode) {
        return {Kind::latestRenameFailed, errnoCode, "Atomic symlink rename failed: " + errnoText(errnoCode)};
    }

    static RepositoryError setOfAnotherCard(const std::string& ownerUuid) {
        return {Kind::setOfAnotherCard, refusalCode,
                "This backup set belongs to another card (" + ownerUuid + ")."};
    }
    static RepositoryError damagedCardFile(const std::filesystem::path& file, const std::string& reason) {
        return {Kind::damagedCardFile, refusalCode,
                "The card file of this backup set is damaged: " + file.string() + ": " + reason +
                    ". Fix or remove it."};
    }

    [[nodiscard]] Kind kind() const { return kind_; }
    [[nodiscard]] int code() const { return code_; }

private:
    RepositoryError(Kind kind, int code, const std::string& text) : Error(text), kind_(kind), code_(code) {}

    Kind kind_;
    int code_;
};

}  // namespace tapekeep
