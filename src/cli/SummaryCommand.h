#pragma once

#include "cli/Command.h"

namespace tapekeep::cli {

// What a card or version folder holds: songs, instruments, wavs and themes.
class SummaryCommand : public Command {
public:
    [[nodiscard]] std::string name() const override { return "summary"; }
    [[nodiscard]] std::string usage() const override { return "tapekeep-cli summary DIR"; }
    int run(CliContext& context, Arguments arguments) override;
};

}  // namespace tapekeep::cli
