#pragma once

#include <filesystem>
#include <string>

#include "core/Error.h"

namespace tapekeep {

// Why the disk behind a mount could not be identified, short of a failing process.
class DiskIdentityError : public Error {
public:
    enum class Kind { unreadableLsblkOutput, noMount };

    static DiskIdentityError unreadableLsblkOutput(const std::string& detail) {
        return {Kind::unreadableLsblkOutput, "Unreadable lsblk output: " + detail};
    }
    static DiskIdentityError noMount(const std::filesystem::path& path) {
        return {Kind::noMount, "No mount holds " + path.string()};
    }

    [[nodiscard]] Kind kind() const { return kind_; }

private:
    DiskIdentityError(Kind kind, const std::string& text) : Error(text), kind_(kind) {}

    Kind kind_;
};

}  // namespace tapekeep
