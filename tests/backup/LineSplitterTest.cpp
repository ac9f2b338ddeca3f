#include "backup/LineSplitter.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace tapekeep {
namespace {

std::vector<std::string> splitChunks(const std::vector<std::string>& chunks, bool finish = true) {
    std::vector<std::string> lines;
    LineSplitter splitter([&](const std::string& line) { lines.push_back(line); });
    for (const auto& chunk : chunks) splitter.append(chunk);
    if (finish) splitter.finish();
    return lines;
}

struct SplitCase {
    const char* name;
    std::vector<std::string> chunks;
    std::vector<std::string> expected;
};

class LineSplitterCases : public testing::TestWithParam<SplitCase> {};

TEST_P(LineSplitterCases, DeliversTheNonEmptyLinesInOrder) {
    EXPECT_EQ(splitChunks(GetParam().chunks), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Streams, LineSplitterCases,
    testing::Values(SplitCase{"Nothing", {}, {}}, SplitCase{"EmptyChunks", {"", "", ""}, {}},
                    SplitCase{"LineFeeds",
                              {"sending incremental file list\nSongs/\n"},
                              {"sending incremental file list", "Songs/"}},
                    SplitCase{"CarriageReturnLineFeedIsOneLine", {"a\r\nb\r\n"}, {"a", "b"}},
                    SplitCase{"CarriageReturnsRefreshProgress",
                              {"  1,024  10%  1.00kB/s  0:00:01\r  2,048  20%  2.00kB/s  0:00:01\r"},
                              {"  1,024  10%  1.00kB/s  0:00:01", "  2,048  20%  2.00kB/s  0:00:01"}},
                    SplitCase{"OnlyTerminators", {"\n\r\n\r\r\n\n"}, {}},
                    SplitCase{"UnterminatedRestOnFinish", {"done\nrest"}, {"done", "rest"}},
                    SplitCase{
                        "LineAcrossChunks", {"Sam", "ples/kick", ".wav\nnext"}, {"Samples/kick.wav", "next"}},
                    SplitCase{"TerminatorOpensNextChunk", {"first", "\nsecond\n"}, {"first", "second"}},
                    SplitCase{"CarriageReturnAndLineFeedInTwoChunks", {"a\r", "\nb"}, {"a", "b"}},
                    SplitCase{"MultiByteCharacterAcrossChunks", {"Caf\xC3", "\xA9\n"}, {"Caf\xC3\xA9"}},
                    SplitCase{"InvalidBytesRepaired", {"bad \xFF name\n"}, {"bad \xEF\xBF\xBD name"}},
                    SplitCase{"TruncatedSequenceBeforeTerminator", {"x\xE2\x82\ny"}, {"x\xEF\xBF\xBD", "y"}},
                    SplitCase{"SpacesOnlyLineIsKept", {"  \n"}, {"  "}}),
    [](const testing::TestParamInfo<SplitCase>& testCase) { return std::string(testCase.param.name); });

TEST(LineSplitterTest, HoldsAnUnterminatedLineUntilFinish) {
    EXPECT_EQ(splitChunks({"complete\npartial"}, false), std::vector<std::string>{"complete"});
}

TEST(LineSplitterTest, FinishTwiceDeliversTheRestOnce) {
    std::vector<std::string> lines;
    LineSplitter splitter([&](const std::string& line) { lines.push_back(line); });
    splitter.append("rest");
    splitter.finish();
    splitter.finish();
    EXPECT_EQ(lines, std::vector<std::string>{"rest"});
}

TEST(LineSplitterTest, LinesAfterFinishStartAfresh) {
    std::vector<std::string> lines;
    LineSplitter splitter([&](const std::string& line) { lines.push_back(line); });
    splitter.append("one");
    splitter.finish();
    splitter.append("two\n");
    EXPECT_EQ(lines, (std::vector<std::string>{"one", "two"}));
}

// Whatever the pipe's chunking, the same lines come out: the splitter decodes only complete lines.
TEST(LineSplitterTest, EveryChunkingOfTheSameBytesYieldsTheSameLines) {
    std::mt19937 random(42);
    const std::string alphabet = "ab \r\n\r\n\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8E\xB5\xFF\x80";
    std::uniform_int_distribution<std::size_t> pick(0, alphabet.size() - 1);
    for (int round = 0; round < 300; ++round) {
        std::string bytes;
        for (int i = 0; i < 200; ++i) bytes += alphabet[pick(random)];
        const auto whole = splitChunks({bytes});
        std::vector<std::string> single;
        for (char c : bytes) single.emplace_back(1, c);
        ASSERT_EQ(splitChunks(single), whole) << "byte by byte, round " << round;
        std::vector<std::string> chunks;
        std::uniform_int_distribution<std::size_t> length(0, 17);
        for (std::size_t at = 0; at < bytes.size();) {
            const std::size_t size = std::min(length(random), bytes.size() - at);
            chunks.push_back(bytes.substr(at, size));
            at += size;
        }
        ASSERT_EQ(splitChunks(chunks), whole) << "random chunks, round " << round;
    }
}

TEST(LineSplitterTest, NoLineIsEmptyOrHoldsATerminator) {
    std::string bytes;
    std::size_t written = 0;
    for (int i = 0; i < 5000; ++i) {
        bytes += i % 3 == 0 ? "\r\n" : i % 3 == 1 ? "\r" : "line\n";
        written += i % 3 == 2 ? 1 : 0;
    }
    const auto lines = splitChunks({bytes});
    for (const auto& line : lines) {
        ASSERT_FALSE(line.empty());
        ASSERT_EQ(line.find_first_of("\r\n"), std::string::npos);
    }
    EXPECT_EQ(lines.size(), written);
}

}  // namespace
}  // namespace tapekeep
