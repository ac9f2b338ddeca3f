#include "cli/SongCommand.h"

#include <cstdio>

#include <nlohmann/json.hpp>

#include "cli/CliError.h"
#include "cli/Output.h"
#include "content/M8SongParser.h"

namespace tapekeep::cli {
namespace fs = std::filesystem;

namespace {

std::string lowercaseExtension(const fs::path& file) {
    std::string extension = file.extension().string();
    for (auto& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return extension;
}

nlohmann::json optionalText(const std::optional<std::string>& text) {
    return text ? nlohmann::json(*text) : nlohmann::json(nullptr);
}

int printSong(CliContext& context, const fs::path& file) {
    const auto song = M8SongParser::parseSong(file);
    if (!song) throw Error("Could not read song or instrument: " + file.filename().string());
    auto instruments = nlohmann::json::array();
    for (const auto& instrument : song->instruments)
        instruments.push_back({{"index", instrument.index},
                               {"type", InstrumentInfo::rawValue(instrument.type)},
                               {"name", instrument.name},
                               {"samplePath", optionalText(instrument.samplePath)}});
    if (context.json()) {
        context.out() << Output::jsonText(
                             {{"name", song->name},
                              {"tempo", song->tempo ? nlohmann::json(*song->tempo) : nlohmann::json(nullptr)},
                              {"instruments", instruments},
                              {"samplePaths", song->samplePaths}})
                      << '\n';
        return 0;
    }
    char tempo[32] = "unknown";
    if (song->tempo) std::snprintf(tempo, sizeof tempo, "%.1f", *song->tempo);
    context.out() << "Song " << Output::plainText(song->name) << ", tempo " << tempo << '\n';
    for (const auto& instrument : song->instruments)
        context.out() << "  " << instrument.index << '\t' << InstrumentInfo::rawValue(instrument.type) << '\t'
                      << Output::plainText(instrument.name)
                      << (instrument.samplePath ? "\t" + Output::plainText(*instrument.samplePath) : "")
                      << '\n';
    return 0;
}

int printInstrument(CliContext& context, const fs::path& file) {
    const auto instrument = M8SongParser::parseInstrumentInfo(file);
    const char* type = InstrumentInfo::rawValue(instrument.type);
    if (context.json()) {
        context.out() << Output::jsonText({{"type", type},
                                           {"name", instrument.name},
                                           {"samplePath", optionalText(instrument.samplePath)}})
                      << '\n';
        return 0;
    }
    context.out() << "Instrument " << Output::plainText(instrument.name) << ", " << type << '\n'
                  << "  "
                  << (instrument.samplePath ? Output::plainText(*instrument.samplePath) : "(no sample)")
                  << '\n';
    return 0;
}

}  // namespace

int SongCommand::run(CliContext& context, Arguments arguments) {
    const fs::path file = arguments.operands(1, 1, usage()).front();
    const std::string extension = lowercaseExtension(file);
    if (extension == ".m8s") return printSong(context, file);
    if (extension == ".m8i") return printInstrument(context, file);
    throw UsageError("Not a song or instrument: " + file.filename().string() + " (expected .m8s or .m8i).");
}

}  // namespace tapekeep::cli
