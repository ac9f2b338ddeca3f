#pragma once

#include "cli/Command.h"

namespace tapekeep::cli {

// Follows cards as they come and go until SIGINT or SIGTERM, printing each card's state and
// freshness as they change; with --auto (or the setting) backs up each newly connected card after
// the countdown. A backup running at the signal is cancelled through its own path.
class WatchCommand : public Command {
public:
    [[nodiscard]] std::string name() const override { return "watch"; }
    [[nodiscard]] std::string usage() const override { return "tapekeep-cli watch [--auto]"; }
    int run(CliContext& context, Arguments arguments) override;
};

}  // namespace tapekeep::cli
