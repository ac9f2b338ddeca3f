#pragma once

#include "cli/Command.h"

namespace tapekeep::cli {

// The staged sample edits of a backup set.
class EditsCommand : public Command {
public:
    [[nodiscard]] std::string name() const override { return "edits"; }
    [[nodiscard]] std::string usage() const override { return "tapekeep-cli edits SET list"; }
    int run(CliContext& context, Arguments arguments) override;
};

}  // namespace tapekeep::cli
