#pragma once

#include "cli/Command.h"

namespace tapekeep::cli {

// Which songs and instruments of a version use a sample, or which samples no one uses.
class UsageCommand : public Command {
public:
    [[nodiscard]] std::string name() const override { return "usage"; }
    [[nodiscard]] std::string usage() const override { return "tapekeep-cli usage SET VERSION [FILE]"; }
    int run(CliContext& context, Arguments arguments) override;
};

}  // namespace tapekeep::cli
