#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tapekeep {

// The form in which a search compares a query with names: lower-cased when the text is pure ASCII
// (nearly every name on a card, so it costs no Unicode work); otherwise NFC with case and
// diacritics folded away, with no locale, so "café" and "CAFE" both become "cafe". Bytes that are
// not UTF-8 are repaired first. Any thread.
[[nodiscard]] std::string foldedForSearch(std::string_view text);

// The folded tokens of a query: split at every white-space character and every "/", empty pieces
// left out, so "Songs/Kick 808" gives three.
[[nodiscard]] std::vector<std::string> searchTokens(std::string_view query);

}  // namespace tapekeep
