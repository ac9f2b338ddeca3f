#pragma once

#include <string>

#include "cli/Arguments.h"
#include "cli/CliContext.h"

namespace tapekeep::cli {

// One sub-command of tapekeep-cli. run() returns the process's exit code; it may throw UsageError
// (exit 2), Cancelled (exit 130) or any other error (exit 1, its text the last line on stderr).
class Command {
public:
    virtual ~Command() = default;
    [[nodiscard]] virtual std::string name() const = 0;
    [[nodiscard]] virtual std::string usage() const = 0;
    virtual int run(CliContext& context, Arguments arguments) = 0;
};

}  // namespace tapekeep::cli
