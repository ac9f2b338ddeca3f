#pragma once

#include <string>
#include <string_view>

namespace tapekeep {

// Decodes bytes leniently as UTF-8: every maximal ill-formed subpart (a stray continuation byte,
// an overlong form, a surrogate, a value above U+10FFFF, a sequence cut short) becomes one
// U+FFFD, and everything else is kept as it is. Pure ASCII takes a fast path. Any thread.
std::string repairUtf8(std::string_view bytes);

// The same, appended to `out`, so that a caller decoding many lines can reuse one buffer.
void appendRepairedUtf8(std::string& out, std::string_view bytes);

// The text as a terminal may show it on one line without acting on it: the C0 controls, DEL and the
// C1 controls become visible escapes ("\n", "\r", "\t", "\x1b", "\x7f", "\u009b"), each byte that is not
// UTF-8 becomes "\xNN", and everything else is kept. Names from a card go through this before they
// are printed, so that none can forge a line or drive the terminal. Any thread.
[[nodiscard]] std::string escapedControlCharacters(std::string_view text);

// True when all of the bytes are well-formed UTF-8. Any thread.
[[nodiscard]] bool isValidUtf8(std::string_view bytes);

// The text without Unicode white space and line breaks at either end: tab to carriage return, NEL,
// and the space, line and paragraph separators. Bytes that are not UTF-8 are kept. Any thread.
[[nodiscard]] std::string trimmedWhitespace(std::string_view text);

// The ASCII trims; as ASCII bytes never stand inside a longer UTF-8 sequence, both are safe on UTF-8.
// Only spaces and tabs, where other white space is part of the value (name lists, field values):
[[nodiscard]] std::string_view trimmedSpacesAndTabs(std::string_view text);
// Spaces, tabs and the ASCII line breaks (LF, VT, FF, CR), for what a tool printed:
[[nodiscard]] std::string_view trimmedAsciiWhitespace(std::string_view text);

}  // namespace tapekeep
