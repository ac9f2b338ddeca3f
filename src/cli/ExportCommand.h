#pragma once

#include "cli/Command.h"

namespace tapekeep::cli {

// Writes a ZIP archive of one version, its folder as the top entry; a progress bar on a terminal.
class ExportCommand : public Command {
public:
    [[nodiscard]] std::string name() const override { return "export"; }
    [[nodiscard]] std::string usage() const override { return "tapekeep-cli export SET VERSION DEST.zip"; }
    int run(CliContext& context, Arguments arguments) override;
};

}  // namespace tapekeep::cli
