#pragma once

#include <filesystem>
#include <string>

#include "core/Error.h"

namespace tapekeep {

// Why a volume could not be ejected.
class EjectError : public Error {
public:
    enum class Kind { notMounted, toolFailed };

    static EjectError notMounted(const std::filesystem::path& mountPoint) {
        return {Kind::notMounted, mountPoint.string() + " is not mounted."};
    }
    // The unmounting tool ended with a failure; the text is what it said.
    static EjectError toolFailed(const std::string& toolOutput) { return {Kind::toolFailed, toolOutput}; }

    [[nodiscard]] Kind kind() const { return kind_; }

private:
    EjectError(Kind kind, const std::string& text) : Error(text), kind_(kind) {}

    Kind kind_;
};

}  // namespace tapekeep
