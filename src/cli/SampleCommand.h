#pragma once

#include "cli/Command.h"

namespace tapekeep::cli {

// An audio file's metadata, and with --peaks its waveform: each bucket's lowest and highest sample.
class SampleCommand : public Command {
public:
    [[nodiscard]] std::string name() const override { return "sample"; }
    [[nodiscard]] std::string usage() const override { return "tapekeep-cli sample FILE [--peaks N]"; }
    int run(CliContext& context, Arguments arguments) override;
};

}  // namespace tapekeep::cli
