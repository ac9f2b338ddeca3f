#pragma once

#include "cli/Command.h"

namespace tapekeep::cli {

// Renders the kept range of an audio file (in seconds) to a new WAV file, atomically.
class TrimCommand : public Command {
public:
    [[nodiscard]] std::string name() const override { return "trim"; }
    [[nodiscard]] std::string usage() const override {
        return "tapekeep-cli trim SOURCE DEST --from SECONDS --to SECONDS";
    }
    int run(CliContext& context, Arguments arguments) override;
};

}  // namespace tapekeep::cli
