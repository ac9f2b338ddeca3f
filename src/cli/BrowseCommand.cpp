#include "cli/BrowseCommand.h"

#include <nlohmann/json.hpp>

#include "cli/BrowsedVersion.h"
#include "cli/CliError.h"
#include "cli/Output.h"
#include "cli/SongListing.h"
#include "content/M8FileKind.h"

namespace tapekeep::cli {
namespace fs = std::filesystem;

namespace {

int printEntries(CliContext& context, const std::vector<FileNode>& entries) {
    if (context.json()) {
        auto listed = nlohmann::json::array();
        for (const auto& entry : entries)
            listed.push_back(
                {{"name", entry.name},
                 {"isDirectory", entry.isDirectory},
                 {"size", entry.fileSize ? nlohmann::json(*entry.fileSize) : nlohmann::json(nullptr)}});
        context.out() << Output::jsonText({{"entries", listed}}) << '\n';
        return 0;
    }
    for (const auto& entry : entries)
        context.out() << Output::plainText(entry.name)
                      << (entry.isDirectory ? "/" : "\t" + std::to_string(*entry.fileSize)) << '\n';
    return 0;
}

int printFile(CliContext& context, BackupBrowserViewModel& browser, const FileNode& file) {
    const auto kind = m8FileKindOf(file.name);
    if (kind == M8FileKind::other)
        throw UsageError("Not a song or instrument: " + file.name + " (expected .m8s or .m8i).");
    browser.select(file);
    BrowsedVersion::waitFor([&] { return !browser.isLoadingMetadata(); });
    if (!browser.songMetadata())
        throw Error(browser.metadataError().value_or("Could not read song or instrument: " + file.name));
    const auto& metadata = *browser.songMetadata();
    if (context.json()) {
        auto shown = kind == M8FileKind::song ? SongListing::songJson(metadata)
                                              : SongListing::instrumentJson(metadata.instruments.front());
        auto samples = nlohmann::json::array();
        for (const auto& [path, present] : browser.sampleExistence())
            samples.push_back({{"path", path}, {"present", present}});
        shown["samples"] = samples;
        context.out() << Output::jsonText(shown) << '\n';
        return 0;
    }
    if (kind == M8FileKind::song)
        SongListing::printSong(context.out(), metadata);
    else
        SongListing::printInstrument(context.out(), metadata.instruments.front());
    for (const auto& [path, present] : browser.sampleExistence())
        context.out() << (present ? "present\t" : "missing\t") << Output::plainText(path) << '\n';
    return 0;
}

}  // namespace

int BrowseCommand::run(CliContext& context, Arguments arguments) {
    const auto operands = arguments.operands(2, 3, usage());
    const fs::path version = context.resolveVersion(context.resolveSet(operands[0]), operands[1]);
    BrowsedVersion browsed(version, context.rsyncPath());
    const auto node = browsed.node(operands.size() > 2 ? operands[2] : "");
    if (!node) return printEntries(context, *browsed.browser().rootNodes());
    if (node->isDirectory)
        return printEntries(context, node->children ? *node->children : std::vector<FileNode>{});
    return printFile(context, browsed.browser(), *node);
}

}  // namespace tapekeep::cli
