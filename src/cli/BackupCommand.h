#pragma once

#include "cli/Command.h"

namespace tapekeep::cli {

// One backup under the card's lease: the whole card, or chosen folders and songs (with the samples
// they use) over an image of the previous version. rsync's log lines and the run's own go to standard
// error (with a progress bar on a terminal); the published version's path ends the output.
// SIGINT and SIGTERM cancel the run, so that the unfinished staging folder is removed.
class BackupCommand : public Command {
public:
    [[nodiscard]] std::string name() const override { return "backup"; }
    [[nodiscard]] std::string usage() const override {
        return "tapekeep-cli backup CARD|--all [--dest DIR] [--folders A,B] [--songs P,Q] [--verify] "
               "[--mismatch retry|flag|abort] [--keep N] [--no-rotate]";
    }
    int run(CliContext& context, Arguments arguments) override;
};

}  // namespace tapekeep::cli
