#include "cli/SongCommand.h"

#include "cli/CliError.h"
#include "cli/Output.h"
#include "cli/SongListing.h"
#include "content/M8FileKind.h"
#include "content/M8SongParser.h"

namespace tapekeep::cli {
namespace fs = std::filesystem;

namespace {

int printSong(CliContext& context, const fs::path& file) {
    const auto song = M8SongParser::parseSong(file);
    if (!song) throw Error("Could not read song or instrument: " + file.filename().string());
    if (context.json())
        context.out() << Output::jsonText(SongListing::songJson(*song)) << '\n';
    else
        SongListing::printSong(context.out(), *song);
    return 0;
}

int printInstrument(CliContext& context, const fs::path& file) {
    const auto instrument = M8SongParser::parseInstrumentInfo(file);
    if (context.json())
        context.out() << Output::jsonText(SongListing::instrumentJson(instrument)) << '\n';
    else
        SongListing::printInstrument(context.out(), instrument);
    return 0;
}

}  // namespace

int SongCommand::run(CliContext& context, Arguments arguments) {
    const fs::path file = arguments.operands(1, 1, usage()).front();
    const auto kind = m8FileKindOf(file);
    if (kind == M8FileKind::song) return printSong(context, file);
    if (kind == M8FileKind::instrument) return printInstrument(context, file);
    throw UsageError("Not a song or instrument: " + file.filename().string() + " (expected .m8s or .m8i).");
}

}  // namespace tapekeep::cli
