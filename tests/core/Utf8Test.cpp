#include "core/Utf8.h"

#include <gtest/gtest.h>
#include <utf8proc.h>

#include <random>
#include <string>
#include <vector>

namespace tapekeep {
namespace {

const std::string R = "\xEF\xBF\xBD";  // U+FFFD

TEST(Utf8Test, ReplacesEachMaximalIllFormedSubpart) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"K\xC3\xB6ln \xE6\x97\xA5 \xF0\x9F\x8E\xB5 \xF4\x8F\xBF\xBF",
         "K\xC3\xB6ln \xE6\x97\xA5 \xF0\x9F\x8E\xB5 \xF4\x8F\xBF\xBF"},
        {"a\x80z", "a" + R + "z"},
        {"\xC0\xAF\xE0\x80\xAF", R + R + R + R + R},  // overlong
        {"\xED\xA0\x80", R + R + R},                  // surrogate
        {"\xF4\x90\x80\x80", R + R + R + R},          // beyond U+10FFFF
        {"\xF5\xFE\xFF", R + R + R},
        {"ab\xF0\x9F\x8E", "ab" + R},
        {"\xF0\x9F\xC3\xA9", R + "\xC3\xA9"},
        // The example of the Unicode standard for U+FFFD substitution of maximal subparts.
        {"\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64",
         "a" + R + R + R + "b" + R + "c" + R + R + "d"},
        {std::string("a\0b", 3), std::string("a\0b", 3)},
    };
    for (const auto& [input, expected] : cases) {
        EXPECT_EQ(repairUtf8(input), expected) << ::testing::PrintToString(input);
        EXPECT_EQ(isValidUtf8(input), input == expected) << ::testing::PrintToString(input);
    }
    std::string buffer = "line: ";
    appendRepairedUtf8(buffer, "ok\xC3");
    EXPECT_EQ(buffer, "line: ok" + R);
}

TEST(Utf8Test, EscapesWhatATerminalWouldActOnAndKeepsEverythingElse) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"K\xC3\xB6ln \xE6\x97\xA5 \xF0\x9F\x8E\xB5 \\n", "K\xC3\xB6ln \xE6\x97\xA5 \xF0\x9F\x8E\xB5 \\n"},
        {"SONG\nfake line", "SONG\\nfake line"},
        {"a\r\tb", "a\\r\\tb"},
        {"\x1b]0;title\x07\x1b[2J", "\\x1b]0;title\\x07\\x1b[2J"},
        {std::string("nul\0del\x7f", 8), "nul\\x00del\\x7f"},
        {"csi\xC2\x9B"
         "2J nel\xC2\x85 nbsp\xC2\xA0",
         "csi\\u009b2J nel\\u0085 nbsp\xC2\xA0"},
        {"CARD\xFF", "CARD\\xff"},
        {"cut\xE6\x97", "cut\\xe6\\x97"},
        {"\x9B[31m", "\\x9b[31m"},  // a lone C1 byte, as a Latin-1 terminal would read it
    };
    for (const auto& [input, expected] : cases)
        EXPECT_EQ(escapedControlCharacters(input), expected) << ::testing::PrintToString(input);
}

// Each trim rule against the same inputs, so that the difference between the rules shows.
TEST(Utf8Test, TrimsOnlyTheirOwnWhitespaceAndOnlyAtBothEnds) {
    const struct {
        std::string input, unicode, spacesAndTabs, ascii;
    } cases[] = {
        {" \n\tZweite Zeile\nn\u00e4chste\u00a0\u2028\n", "Zweite Zeile\nn\u00e4chste",
         "\n\tZweite Zeile\nn\u00e4chste\u00a0\u2028\n", "Zweite Zeile\nn\u00e4chste\u00a0\u2028"},
        {"\v\f\r\u0085\u3000\u2029Kick\u2003", "Kick", "\v\f\r\u0085\u3000\u2029Kick\u2003",
         "\u0085\u3000\u2029Kick\u2003"},
        {" \u3000\n", "", "\u3000\n", "\u3000"},
        {"", "", "", ""},
        {"\u200bZero width\u200b", "\u200bZero width\u200b", "\u200bZero width\u200b",
         "\u200bZero width\u200b"},  // a format character, not a space
        {" bad \xff\xfe bytes\t", "bad \xff\xfe bytes", "bad \xff\xfe bytes", "bad \xff\xfe bytes"},
        {"\xC2 \xA0", "\xC2 \xA0", "\xC2 \xA0", "\xC2 \xA0"},  // a cut-off sequence is no space
    };
    for (const auto& [input, unicode, spacesAndTabs, ascii] : cases) {
        EXPECT_EQ(trimmedWhitespace(input), unicode) << ::testing::PrintToString(input);
        EXPECT_EQ(trimmedSpacesAndTabs(input), spacesAndTabs) << ::testing::PrintToString(input);
        EXPECT_EQ(trimmedAsciiWhitespace(input), ascii) << ::testing::PrintToString(input);
    }
}

std::string encode(utf8proc_int32_t codePoint) {
    utf8proc_uint8_t buffer[4];
    const auto length = utf8proc_encode_char(codePoint, buffer);
    return std::string(reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(length));
}

TEST(Utf8Test, RandomBytesAlwaysBecomeValidUtf8AndValidTextIsKept) {
    std::mt19937 random(20250101);
    std::uniform_int_distribution<int> byte(0, 255);
    for (int round = 0; round < 20000; ++round) {
        std::string input(static_cast<std::size_t>(round % 37), '\0');
        for (char& c : input) c = static_cast<char>(byte(random));
        const std::string repaired = repairUtf8(input);
        ASSERT_TRUE(isValidUtf8(repaired)) << "round " << round;
        ASSERT_EQ(repairUtf8(repaired), repaired) << "round " << round;
        if (isValidUtf8(input)) {
            ASSERT_EQ(repaired, input);
        }
    }
}

TEST(Utf8Test, EveryScalarValueSurvivesUnchanged) {
    std::string text;
    for (utf8proc_int32_t codePoint = 0; codePoint <= 0x10FFFF; codePoint += 7) {
        if (codePoint >= 0xD800 && codePoint <= 0xDFFF) continue;
        text += encode(codePoint);
    }
    EXPECT_EQ(repairUtf8(text), text);
}

}  // namespace
}  // namespace tapekeep
