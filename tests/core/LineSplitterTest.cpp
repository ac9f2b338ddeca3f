#include "core/LineSplitter.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace tapekeep {
namespace {

using Lines = std::vector<std::string>;

Lines splitChunks(const Lines& chunks) {
    Lines lines;
    LineSplitter splitter([&](const std::string& line) { lines.push_back(line); });
    for (const auto& chunk : chunks) splitter.append(chunk);
    splitter.finish();
    return lines;
}

TEST(LineSplitterTest, DeliversTheNonEmptyLinesInOrder) {
    const std::vector<std::pair<Lines, Lines>> cases{
        {{"", ""}, {}},
        {{"sending incremental file list\nSongs/\n"}, {"sending incremental file list", "Songs/"}},
        {{"a\r\nb\r\n"}, {"a", "b"}},
        {{"  1,024  10%\r  2,048  20%\r"}, {"  1,024  10%", "  2,048  20%"}},
        {{"\n\r\n\r\r\n\n"}, {}},
        {{"Sam", "ples/kick", ".wav\nnext"}, {"Samples/kick.wav", "next"}},
        {{"a\r", "\nb"}, {"a", "b"}},
        {{"Caf\xC3", "\xA9\n"}, {"Caf\xC3\xA9"}},
        {{"bad \xFF name\n"}, {"bad \xEF\xBF\xBD name"}},
        {{"x\xE2\x82\ny"}, {"x\xEF\xBF\xBD", "y"}},
        {{"  \n"}, {"  "}},
    };
    for (const auto& [chunks, expected] : cases)
        EXPECT_EQ(splitChunks(chunks), expected) << ::testing::PrintToString(chunks);
}

TEST(LineSplitterTest, HoldsAnUnterminatedLineUntilFinishAndThenStartsAfresh) {
    Lines lines;
    LineSplitter splitter([&](const std::string& line) { lines.push_back(line); });
    splitter.append("complete\npartial");
    EXPECT_EQ(lines, Lines{"complete"});
    splitter.finish();
    splitter.finish();
    splitter.append("two\n");
    EXPECT_EQ(lines, (Lines{"complete", "partial", "two"}));
}

// Whatever the pipe's chunking, the same lines come out: the splitter decodes only complete lines.
TEST(LineSplitterTest, EveryChunkingOfTheSameBytesYieldsTheSameLines) {
    std::mt19937 random(42);
    const std::string alphabet = "ab \r\n\r\n\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8E\xB5\xFF\x80";
    std::uniform_int_distribution<std::size_t> pick(0, alphabet.size() - 1), length(0, 17);
    for (int round = 0; round < 300; ++round) {
        std::string bytes;
        for (int i = 0; i < 200; ++i) bytes += alphabet[pick(random)];
        const auto whole = splitChunks({bytes});
        for (const auto& line : whole)
            ASSERT_TRUE(!line.empty() && line.find_first_of("\r\n") == std::string::npos);
        Lines single, chunks;
        for (char c : bytes) single.emplace_back(1, c);
        for (std::size_t at = 0; at < bytes.size(); at += chunks.back().size())
            chunks.push_back(bytes.substr(at, length(random)));
        ASSERT_EQ(splitChunks(single), whole) << "byte by byte, round " << round;
        ASSERT_EQ(splitChunks(chunks), whole) << "random chunks, round " << round;
    }
}

}  // namespace
}  // namespace tapekeep
