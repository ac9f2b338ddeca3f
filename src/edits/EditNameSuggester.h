#pragma once

#include <string>
#include <vector>

// Proposes where a trim of a sample may be saved as a new file. Stateless; any thread.
namespace tapekeep::EditNameSuggester {

// "{parent}/{stem}_trim.wav", else "_trim_2" to "_trim_99", the first whose lower-cased normalised
// form no path in use has (existing files and targets of pending edits, in any case and form).
// The result is normalised and keeps the source's letter case. Throws EditNameSuggesterError
// tooManyVariants.
std::string suggestTrimName(const std::string& sourcePath, const std::vector<std::string>& pathsInUse);

}  // namespace tapekeep::EditNameSuggester
