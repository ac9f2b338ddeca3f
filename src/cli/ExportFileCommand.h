#pragma once

#include "cli/Command.h"

namespace tapekeep::cli {

// Writes a copy of one file of a version, atomically; PATH is relative to the version.
class ExportFileCommand : public Command {
public:
    [[nodiscard]] std::string name() const override { return "export-file"; }
    [[nodiscard]] std::string usage() const override {
        return "tapekeep-cli export-file SET VERSION PATH DEST";
    }
    int run(CliContext& context, Arguments arguments) override;
};

}  // namespace tapekeep::cli
