#pragma once

#include <ostream>

#include <nlohmann/json.hpp>

#include "content/InstrumentInfo.h"
#include "content/M8SongMetadata.h"

// How a song and an instrument read from a file are printed, by every command that shows one.
namespace tapekeep::cli::SongListing {

// {"name","tempo","instruments":[{"index","type","name","samplePath"}],"samplePaths"}
nlohmann::json songJson(const M8SongMetadata& song);
// {"type","name","samplePath"}
nlohmann::json instrumentJson(const InstrumentInfo& instrument);

// "Song NAME, tempo 120.0", then a line per instrument.
void printSong(std::ostream& out, const M8SongMetadata& song);
// "Instrument NAME, TYPE", then its sample path or "(no sample)".
void printInstrument(std::ostream& out, const InstrumentInfo& instrument);

}  // namespace tapekeep::cli::SongListing
