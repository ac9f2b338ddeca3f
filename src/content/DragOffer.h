#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace tapekeep {

// What dragging one node of a backup version out of the application hands over: the node as it
// stands, or a song that travels with the samples it names.
struct DragOffer {
    std::filesystem::path file;            // the node in the version
    std::vector<std::string> samplePaths;  // the song's stored sample paths; empty: the node as it stands

    [[nodiscard]] bool needsPreparation() const { return !samplePaths.empty(); }
    // The name the receiving side is offered: a prepared song's without its extension.
    [[nodiscard]] std::string suggestedName() const {
        return (needsPreparation() ? file.stem() : file.filename()).string();
    }
};

}  // namespace tapekeep
