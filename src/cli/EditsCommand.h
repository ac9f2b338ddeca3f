#pragma once

#include "cli/Command.h"

namespace tapekeep::cli {

// The staged sample edits of a backup set: listed, staged from a version's sample, written to the
// card, discarded or given another target.
class EditsCommand : public Command {
public:
    [[nodiscard]] std::string name() const override { return "edits"; }
    [[nodiscard]] std::string usage() const override {
        return "tapekeep-cli edits SET list | stage VERSION SAMPLE --from S --to S [--as PATH | --overwrite] "
               "| "
               "apply CARD [IDS...] | discard IDS... | rename ID PATH";
    }
    int run(CliContext& context, Arguments arguments) override;
};

}  // namespace tapekeep::cli
