#pragma once

#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace tapekeep::cli::Output {

// Everything the CLI prints passes through one of these two, so that a name from a card (a volume
// label, a folder, a song's name field) can neither break the JSON nor drive the terminal.

// The value as JSON text; indent -1 gives one line. A string that is not UTF-8 has each ill-formed
// byte sequence replaced by U+FFFD instead of failing the whole output.
[[nodiscard]] std::string jsonText(const nlohmann::json& value, int indent = 2);

// The text for plain output: control characters as visible escapes ("\n", "\x1b"), bytes that are
// not UTF-8 as "\xNN".
[[nodiscard]] std::string plainText(std::string_view text);

}  // namespace tapekeep::cli::Output
