#include "core/Utf8.h"

#include <utf8proc.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace tapekeep {
namespace {

constexpr std::string_view replacementCharacter = "\xEF\xBF\xBD";

// Index of the first byte at or above 0x80, or the size when there is none; eight bytes at a time.
std::size_t asciiPrefixLength(std::string_view bytes) {
    constexpr std::uint64_t highBits = 0x8080808080808080ULL;
    std::size_t index = 0;
    for (; index + 8 <= bytes.size(); index += 8) {
        std::uint64_t word;
        std::memcpy(&word, bytes.data() + index, sizeof word);
        if ((word & highBits) != 0) break;
    }
    while (index < bytes.size() && static_cast<unsigned char>(bytes[index]) < 0x80) ++index;
    return index;
}

struct LeadByte {
    int continuationCount;     // 0 means the byte cannot start a sequence
    unsigned char secondLow;   // allowed range of the byte right after the lead; narrower than
    unsigned char secondHigh;  // 0x80-0xBF where overlongs, surrogates or values past U+10FFFF begin
};

LeadByte classify(unsigned char lead) {
    if (lead >= 0xC2 && lead <= 0xDF) return {1, 0x80, 0xBF};
    if (lead == 0xE0) return {2, 0xA0, 0xBF};
    if (lead == 0xED) return {2, 0x80, 0x9F};
    if (lead >= 0xE1 && lead <= 0xEF) return {2, 0x80, 0xBF};
    if (lead == 0xF0) return {3, 0x90, 0xBF};
    if (lead >= 0xF1 && lead <= 0xF3) return {3, 0x80, 0xBF};
    if (lead == 0xF4) return {3, 0x80, 0x8F};
    return {0, 0, 0};
}

// Length of the well-formed sequence starting at `bytes[0]` (a byte >= 0x80), or, negated, the
// length of the ill-formed subpart that one U+FFFD replaces.
int measureSequence(std::string_view bytes) {
    const LeadByte lead = classify(static_cast<unsigned char>(bytes[0]));
    if (lead.continuationCount == 0) return -1;
    int taken = 1;
    for (int i = 1; i <= lead.continuationCount; ++i, ++taken) {
        if (static_cast<std::size_t>(i) >= bytes.size()) return -taken;
        const auto byte = static_cast<unsigned char>(bytes[static_cast<std::size_t>(i)]);
        const unsigned char low = i == 1 ? lead.secondLow : 0x80;
        const unsigned char high = i == 1 ? lead.secondHigh : 0xBF;
        if (byte < low || byte > high) return -taken;
    }
    return taken;
}

void appendMixed(std::string& out, std::string_view bytes) {
    while (!bytes.empty()) {
        const std::size_t ascii = asciiPrefixLength(bytes);
        out.append(bytes.data(), ascii);
        bytes.remove_prefix(ascii);
        if (bytes.empty()) return;
        const int length = measureSequence(bytes);
        if (length > 0) {
            out.append(bytes.data(), static_cast<std::size_t>(length));
        } else {
            out.append(replacementCharacter);
        }
        bytes.remove_prefix(static_cast<std::size_t>(length > 0 ? length : -length));
    }
}

// The prefix and the byte in two lower-case hex digits.
void appendHexEscape(std::string& out, const char* prefix, unsigned char value) {
    constexpr const char* digits = "0123456789abcdef";
    out += prefix;
    out += digits[value >> 4];
    out += digits[value & 0xF];
}

void appendEscapedAscii(std::string& out, char character) {
    switch (character) {
        case '\n':
            out += "\\n";
            return;
        case '\r':
            out += "\\r";
            return;
        case '\t':
            out += "\\t";
            return;
        default:
            appendHexEscape(out, "\\x", static_cast<unsigned char>(character));
    }
}

bool isAsciiControl(char character) {
    const auto byte = static_cast<unsigned char>(character);
    return byte < 0x20 || byte == 0x7F;
}

// A well-formed sequence, kept unless it encodes a C1 control (U+0080-U+009F,
// always the two bytes C2 80-C2 9F).
void appendEscapedSequence(std::string& out, std::string_view sequence) {
    const auto lead = static_cast<unsigned char>(sequence[0]);
    const auto second = static_cast<unsigned char>(sequence[1]);
    if (lead == 0xC2 && second <= 0x9F) {
        appendHexEscape(out, "\\u00", second);
        return;
    }
    out.append(sequence);
}

// The length of the code point at `offset`, or 0 with no code point for bytes that are not UTF-8.
std::size_t decodeAt(std::string_view text, std::size_t offset, utf8proc_int32_t& codePoint) {
    codePoint = -1;
    const auto length = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()) + offset,
                                         static_cast<utf8proc_ssize_t>(text.size() - offset), &codePoint);
    return length > 0 ? static_cast<std::size_t>(length) : 0;
}

bool isWhitespaceOrNewline(utf8proc_int32_t codePoint) {
    if ((codePoint >= 0x09 && codePoint <= 0x0D) || codePoint == 0x85) return true;
    const auto category = utf8proc_category(codePoint);
    return category == UTF8PROC_CATEGORY_ZS || category == UTF8PROC_CATEGORY_ZL ||
           category == UTF8PROC_CATEGORY_ZP;
}

std::string_view trimmedOf(std::string_view text, std::string_view characters) {
    const auto first = text.find_first_not_of(characters);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(characters) - first + 1);
}

}  // namespace

void appendRepairedUtf8(std::string& out, std::string_view bytes) {
    const std::size_t ascii = asciiPrefixLength(bytes);
    out.append(bytes.data(), ascii);
    if (ascii < bytes.size()) appendMixed(out, bytes.substr(ascii));
}

std::string repairUtf8(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size());
    appendRepairedUtf8(out, bytes);
    return out;
}

std::string escapedControlCharacters(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        if (static_cast<unsigned char>(text[0]) < 0x80) {
            if (isAsciiControl(text[0]))
                appendEscapedAscii(out, text[0]);
            else
                out += text[0];
            text.remove_prefix(1);
            continue;
        }
        const int length = measureSequence(text);
        const auto size = static_cast<std::size_t>(length > 0 ? length : -length);
        if (length > 0) {
            appendEscapedSequence(out, text.substr(0, size));
        } else {
            for (std::size_t i = 0; i < size; ++i)
                appendHexEscape(out, "\\x", static_cast<unsigned char>(text[i]));
        }
        text.remove_prefix(size);
    }
    return out;
}

bool isValidUtf8(std::string_view bytes) {
    utf8proc_int32_t codePoint;
    for (std::size_t offset = 0; offset < bytes.size();) {
        const std::size_t length = decodeAt(bytes, offset, codePoint);
        if (length == 0) return false;
        offset += length;
    }
    return true;
}

std::string trimmedWhitespace(std::string_view text) {
    std::size_t begin = text.size(), end = 0;
    utf8proc_int32_t codePoint;
    for (std::size_t offset = 0; offset < text.size();) {
        const std::size_t length = std::max<std::size_t>(decodeAt(text, offset, codePoint), 1);
        if (codePoint < 0 || !isWhitespaceOrNewline(codePoint)) {
            begin = std::min(begin, offset);
            end = offset + length;
        }
        offset += length;
    }
    return begin < end ? std::string(text.substr(begin, end - begin)) : std::string();
}

std::string_view trimmedSpacesAndTabs(std::string_view text) {
    return trimmedOf(text, " \t");
}

std::string_view trimmedAsciiWhitespace(std::string_view text) {
    return trimmedOf(text, " \t\n\v\f\r");
}

}  // namespace tapekeep
