#pragma once

#include "cli/Command.h"

namespace tapekeep::cli {

// A folder of a version with its entries, or a song or instrument of it with each sample's presence.
class BrowseCommand : public Command {
public:
    [[nodiscard]] std::string name() const override { return "browse"; }
    [[nodiscard]] std::string usage() const override { return "tapekeep-cli browse SET VERSION [PATH]"; }
    int run(CliContext& context, Arguments arguments) override;
};

}  // namespace tapekeep::cli
