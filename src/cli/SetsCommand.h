#pragma once

#include "cli/Command.h"

namespace tapekeep::cli {

// Lists the backup sets under the base folder.
class SetsCommand : public Command {
public:
    [[nodiscard]] std::string name() const override { return "sets"; }
    [[nodiscard]] std::string usage() const override { return "tapekeep-cli sets"; }
    int run(CliContext& context, Arguments arguments) override;
};

}  // namespace tapekeep::cli
