#pragma once

#include <string>

#include "core/Error.h"

namespace tapekeep::cli {

// A mistake in how the CLI was called, or a card, set or version that does not exist: exit code 2.
class UsageError : public Error {
public:
    explicit UsageError(const std::string& text) : Error(text) {}
};

namespace ExitCode {
inline constexpr int done = 0;
inline constexpr int failed = 1;
inline constexpr int usage = 2;
inline constexpr int cancelled = 130;
}  // namespace ExitCode

}  // namespace tapekeep::cli
