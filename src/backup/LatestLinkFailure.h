#pragma once

#include <exception>
#include <filesystem>
#include <string>

#include "core/Error.h"

namespace tapekeep {

// A version was published but `latest` could not be moved to it. The version stands; callers
// report a warning and go on with versionURL(). description() is the underlying error's text.
class LatestLinkFailure : public Error {
public:
    LatestLinkFailure(std::filesystem::path versionURL, std::exception_ptr underlying)
        : Error(describe(underlying)),
          versionURL_(std::move(versionURL)),
          underlying_(std::move(underlying)) {}

    [[nodiscard]] const std::filesystem::path& versionURL() const { return versionURL_; }
    [[nodiscard]] const std::exception_ptr& underlying() const { return underlying_; }
    [[nodiscard]] std::string underlyingDescription() const { return description(); }

private:
    std::filesystem::path versionURL_;
    std::exception_ptr underlying_;
};

}  // namespace tapekeep
