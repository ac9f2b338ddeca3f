#include "cli/SongListing.h"

#include <cstdio>

#include "cli/Output.h"

namespace tapekeep::cli::SongListing {

namespace {

nlohmann::json optionalText(const std::optional<std::string>& text) {
    return text ? nlohmann::json(*text) : nlohmann::json(nullptr);
}

}  // namespace

nlohmann::json songJson(const M8SongMetadata& song) {
    auto instruments = nlohmann::json::array();
    for (const auto& instrument : song.instruments)
        instruments.push_back({{"index", instrument.index},
                               {"type", InstrumentInfo::rawValue(instrument.type)},
                               {"name", instrument.name},
                               {"samplePath", optionalText(instrument.samplePath)}});
    return {{"name", song.name},
            {"tempo", song.tempo ? nlohmann::json(*song.tempo) : nlohmann::json(nullptr)},
            {"instruments", instruments},
            {"samplePaths", song.samplePaths}};
}

nlohmann::json instrumentJson(const InstrumentInfo& instrument) {
    return {{"type", InstrumentInfo::rawValue(instrument.type)},
            {"name", instrument.name},
            {"samplePath", optionalText(instrument.samplePath)}};
}

void printSong(std::ostream& out, const M8SongMetadata& song) {
    char tempo[32] = "unknown";
    if (song.tempo) std::snprintf(tempo, sizeof tempo, "%.1f", *song.tempo);
    out << "Song " << Output::plainText(song.name) << ", tempo " << tempo << '\n';
    for (const auto& instrument : song.instruments)
        out << "  " << instrument.index << '\t' << InstrumentInfo::rawValue(instrument.type) << '\t'
            << Output::plainText(instrument.name)
            << (instrument.samplePath ? "\t" + Output::plainText(*instrument.samplePath) : "") << '\n';
}

void printInstrument(std::ostream& out, const InstrumentInfo& instrument) {
    out << "Instrument " << Output::plainText(instrument.name) << ", "
        << InstrumentInfo::rawValue(instrument.type) << '\n'
        << "  " << (instrument.samplePath ? Output::plainText(*instrument.samplePath) : "(no sample)")
        << '\n';
}

}  // namespace tapekeep::cli::SongListing
