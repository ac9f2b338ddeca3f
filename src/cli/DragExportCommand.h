#pragma once

#include "cli/Command.h"

namespace tapekeep::cli {

// What dragging a song out of a version gives, written into a folder: the song with its samples at
// their places below the version; SONG is relative to the version. Nothing in the folder is replaced.
class DragExportCommand : public Command {
public:
    [[nodiscard]] std::string name() const override { return "drag-export"; }
    [[nodiscard]] std::string usage() const override {
        return "tapekeep-cli drag-export SET VERSION SONG DEST_DIR";
    }
    int run(CliContext& context, Arguments arguments) override;
};

}  // namespace tapekeep::cli
