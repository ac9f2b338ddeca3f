#pragma once

#include "cli/Command.h"

namespace tapekeep::cli {

// Lists one set's versions, newest first.
class VersionsCommand : public Command {
public:
    [[nodiscard]] std::string name() const override { return "versions"; }
    [[nodiscard]] std::string usage() const override { return "tapekeep-cli versions SET"; }
    int run(CliContext& context, Arguments arguments) override;
};

}  // namespace tapekeep::cli
