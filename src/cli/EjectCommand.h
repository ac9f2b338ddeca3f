#pragma once

#include "cli/Command.h"

namespace tapekeep::cli {

// Ejects a card, unless an operation holds it.
class EjectCommand : public Command {
public:
    [[nodiscard]] std::string name() const override { return "eject"; }
    [[nodiscard]] std::string usage() const override { return "tapekeep-cli eject CARD"; }
    int run(CliContext& context, Arguments arguments) override;
};

}  // namespace tapekeep::cli
