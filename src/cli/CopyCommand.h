#pragma once

#include "cli/Command.h"

namespace tapekeep::cli {

// Copies a file or folder of a version back to its place on the card it came from, under the
// card's lease, and reads it back.
class CopyCommand : public Command {
public:
    [[nodiscard]] std::string name() const override { return "copy"; }
    [[nodiscard]] std::string usage() const override { return "tapekeep-cli copy CARD SET VERSION PATH"; }
    int run(CliContext& context, Arguments arguments) override;
};

}  // namespace tapekeep::cli
