#pragma once

#include "cli/Command.h"

namespace tapekeep::cli {

// Reads a song (.m8s) or an instrument (.m8i): its tempo, name, instruments and samples.
class SongCommand : public Command {
public:
    [[nodiscard]] std::string name() const override { return "song"; }
    [[nodiscard]] std::string usage() const override { return "tapekeep-cli song FILE"; }
    int run(CliContext& context, Arguments arguments) override;
};

}  // namespace tapekeep::cli
