#include "core/Utf8.h"

#include <gtest/gtest.h>
#include <utf8proc.h>

#include <random>
#include <string>
#include <vector>

namespace tapekeep {
namespace {

const std::string R = "\xEF\xBF\xBD";  // U+FFFD

struct RepairCase {
    const char* name;
    std::string input;
    std::string expected;
};

class RepairUtf8Test : public testing::TestWithParam<RepairCase> {};

TEST_P(RepairUtf8Test, ReplacesEachMaximalIllFormedSubpart) {
    EXPECT_EQ(repairUtf8(GetParam().input), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Sequences, RepairUtf8Test,
    testing::Values(RepairCase{"Empty", "", ""},
                    RepairCase{"Ascii", "Samples/Drums/kick 01.wav", "Samples/Drums/kick 01.wav"},
                    RepairCase{"ValidTwoThreeFourByte",
                               "K\xC3\xB6ln \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x8E\xB5",
                               "K\xC3\xB6ln \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x8E\xB5"},
                    RepairCase{"HighestScalarValues", "\xED\x9F\xBF\xEE\x80\x80\xF4\x8F\xBF\xBF",
                               "\xED\x9F\xBF\xEE\x80\x80\xF4\x8F\xBF\xBF"},
                    RepairCase{"LoneContinuation", "a\x80z", "a" + R + "z"},
                    RepairCase{"TwoContinuations", "\x80\xBF", R + R},
                    RepairCase{"OverlongTwoByteLeads", "\xC0\xAF\xC1\xBF", R + R + R + R},
                    RepairCase{"OverlongThreeByte", "\xE0\x80\xAF", R + R + R},
                    RepairCase{"OverlongFourByte", "\xF0\x80\x80\xAF", R + R + R + R},
                    RepairCase{"SurrogateHigh", "\xED\xA0\x80", R + R + R},
                    RepairCase{"SurrogateLow", "\xED\xBF\xBF", R + R + R},
                    RepairCase{"BeyondU10FFFF", "\xF4\x90\x80\x80", R + R + R + R},
                    RepairCase{"InvalidLeadBytes", "\xF5\xF8\xFE\xFF", R + R + R + R},
                    RepairCase{"TruncatedTwoByteAtEnd", "ab\xC3", "ab" + R},
                    RepairCase{"TruncatedThreeByteAtEnd", "ab\xE2\x82", "ab" + R},
                    RepairCase{"TruncatedFourByteAtEnd", "ab\xF0\x9F\x8E", "ab" + R},
                    RepairCase{"TruncatedBeforeAscii",
                               "\xE2\x82"
                               "A",
                               R + "A"},
                    RepairCase{"TruncatedBeforeNewLead", "\xF0\x9F\xC3\xA9", R + "\xC3\xA9"},
                    // The example of the Unicode standard for U+FFFD substitution of maximal subparts.
                    RepairCase{"UnicodeStandardExample",
                               "\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64",
                               "a" + R + R + R + "b" + R + "c" + R + R + "d"},
                    RepairCase{"Latin1Name", "Caf\xE9 Mix.m8s", "Caf" + R + " Mix.m8s"},
                    RepairCase{"NulKept", std::string("a\0b", 3), std::string("a\0b", 3)}),
    [](const testing::TestParamInfo<RepairCase>& testCase) { return std::string(testCase.param.name); });

bool isValidUtf8(const std::string& text) {
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    utf8proc_ssize_t offset = 0;
    const auto size = static_cast<utf8proc_ssize_t>(text.size());
    while (offset < size) {
        utf8proc_int32_t codePoint = 0;
        const auto length = utf8proc_iterate(bytes + offset, size - offset, &codePoint);
        if (length <= 0) return false;
        offset += length;
    }
    return true;
}

std::string encode(utf8proc_int32_t codePoint) {
    utf8proc_uint8_t buffer[4];
    const auto length = utf8proc_encode_char(codePoint, buffer);
    return std::string(reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(length));
}

TEST(Utf8Test, InvalidByteAtEveryPositionOfALongAsciiRunIsReplaced) {
    const std::string ascii(40, 'x');
    for (std::size_t at = 0; at < ascii.size(); ++at) {
        std::string input = ascii;
        input[at] = '\xFF';
        std::string expected = ascii.substr(0, at) + R + ascii.substr(at + 1);
        EXPECT_EQ(repairUtf8(input), expected) << "invalid byte at " << at;
    }
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

TEST(Utf8Test, AppendKeepsWhatTheBufferHeld) {
    std::string buffer = "line: ";
    appendRepairedUtf8(buffer, "ok\xC3");
    EXPECT_EQ(buffer, "line: ok" + R);
}

}  // namespace
}  // namespace tapekeep
