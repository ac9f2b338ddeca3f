#pragma once

#include "cli/Command.h"

namespace tapekeep::cli {

// Lists the M8 cards among the mounted volumes.
class CardsCommand : public Command {
public:
    [[nodiscard]] std::string name() const override { return "cards"; }
    [[nodiscard]] std::string usage() const override { return "tapekeep-cli cards"; }
    int run(CliContext& context, Arguments arguments) override;
};

}  // namespace tapekeep::cli
