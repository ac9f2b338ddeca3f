#pragma once

#include "cli/Command.h"

namespace tapekeep::cli {

// Reads a version's note, or with a text writes it; an empty text (or only blanks) removes it.
class NoteCommand : public Command {
public:
    [[nodiscard]] std::string name() const override { return "note"; }
    [[nodiscard]] std::string usage() const override { return "tapekeep-cli note SET VERSION [TEXT]"; }
    int run(CliContext& context, Arguments arguments) override;
};

}  // namespace tapekeep::cli
