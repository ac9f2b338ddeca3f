#pragma once

#include "cli/Command.h"

namespace tapekeep::cli {

// A version back on a card under the card's lease: the whole version, or chosen top-level folders,
// or songs one by one with the samples they use. Never deletes on the card and never replaces a file
// that is newer there. rsync's log lines go to standard error. --preview prints what would change
// and writes nothing. Unless the setting backupBeforeRestore is off, the card is backed up first, and
// --undo puts back what the card's last restore changed and added. SIGINT and SIGTERM stop rsync through the
// controller's cancellation.
class RestoreCommand : public Command {
public:
    [[nodiscard]] std::string name() const override { return "restore"; }
    [[nodiscard]] std::string usage() const override {
        return "tapekeep-cli restore CARD SET VERSION [--folders A,B] [--songs P,Q] [--preview] | "
               "tapekeep-cli restore CARD --undo";
    }
    int run(CliContext& context, Arguments arguments) override;
};

}  // namespace tapekeep::cli
