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
