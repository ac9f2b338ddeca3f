#pragma once

#include "cli/Command.h"

namespace tapekeep::cli {

// What differs between two versions of a set, by content: version A is the source, so a file only
// A has is listed as added.
class CompareCommand : public Command {
public:
    [[nodiscard]] std::string name() const override { return "compare"; }
    [[nodiscard]] std::string usage() const override { return "tapekeep-cli compare SET A B"; }
    int run(CliContext& context, Arguments arguments) override;
};

}  // namespace tapekeep::cli
