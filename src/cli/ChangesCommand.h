#pragma once

#include "cli/Command.h"

namespace tapekeep::cli {

// What differs between a card and its latest backup, by size and date (the quick comparison).
class ChangesCommand : public Command {
public:
    [[nodiscard]] std::string name() const override { return "changes"; }
    [[nodiscard]] std::string usage() const override { return "tapekeep-cli changes CARD"; }
    int run(CliContext& context, Arguments arguments) override;
};

}  // namespace tapekeep::cli
