#pragma once

#include "cli/Command.h"

namespace tapekeep::cli {

// One whole-card backup under the card's lease. rsync's log lines and the run's own go to standard
// error (with a progress bar on a terminal); the published version's path ends the output.
// SIGINT and SIGTERM cancel the run, so that the unfinished staging folder is removed.
class BackupCommand : public Command {
public:
    [[nodiscard]] std::string name() const override { return "backup"; }
    [[nodiscard]] std::string usage() const override {
        return "tapekeep-cli backup CARD [--dest DIR] [--keep N] [--no-rotate]";
    }
    int run(CliContext& context, Arguments arguments) override;
};

}  // namespace tapekeep::cli
