#include "backup/ProgressLineParser.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <regex>

#include "TempDir.h"
#include "core/LineSplitter.h"

namespace tapekeep {
namespace {

using CheckKind = TransferProgressLine::CheckKind;
using Count = std::optional<std::int64_t>;

TransferProgressLine progress(std::int64_t bytes, int percent, CheckKind kind = CheckKind::none,
                              Count remaining = {}, Count total = {}, Count files = {}) {
    return TransferProgressLine{bytes, percent, kind, remaining, total, files};
}

std::string describe(const std::optional<TransferProgressLine>& line) {
    if (!line) return "no progress line";
    auto count = [](Count value) { return value ? std::to_string(*value) : std::string("-"); };
    const char* kinds[] = {"ir", "to", "none"};
    return std::to_string(line->transferredBytes) + " bytes, " + std::to_string(line->percent) + "%, " +
           kinds[static_cast<int>(line->checkKind)] + " " + count(line->remaining) + "/" +
           count(line->total) + ", xfr " + count(line->transferredFiles);
}

// The readings of the progress line, written as plainly as possible with the standard regular
// expression engine: the hand-written matcher must agree with it on every line.
std::optional<TransferProgressLine> parseWithRegex(const std::string& line) {
    static const std::regex pattern(
        R"(^\s*([\d,]+(?:\.\d+)?)([KMGTP]?)\s+(\d{1,3})%\s+[\d.,]+[kKMGTP]?B\/s\s+(?:\d+:\d{2}:\d{2}|\?\?:\?\?:\?\?)(?:\s+\(xfr#(\d+),\s+(ir|to)-chk=(\d+)\/(\d+)\))?\s*$)");
    std::smatch match;
    if (!std::regex_search(line, match, pattern)) return std::nullopt;
    std::string number = match[1].str();
    std::erase(number, ',');
    char* end = nullptr;
    double bytes = std::strtod(number.c_str(), &end);
    if (number.empty() || *end != '\0') return std::nullopt;
    if (match[2].length() > 0)
        bytes *= std::pow(10.0, 3.0 * static_cast<double>(std::string("KMGTP").find(match[2].str()[0]) + 1));
    if (bytes < 0 || !std::isfinite(bytes) || bytes >= 9.223372036854776e18) return std::nullopt;
    const int percent = std::stoi(match[3].str());
    if (percent > 100) return std::nullopt;
    auto count = [&](int group) -> Count {
        if (!match[group].matched) return std::nullopt;
        errno = 0;
        const long long value = std::strtoll(match[group].str().c_str(), nullptr, 10);
        return errno == ERANGE ? Count() : Count(value);
    };
    CheckKind kind = !match[5].matched ? CheckKind::none : match[5] == "ir" ? CheckKind::ir : CheckKind::to;
    return progress(static_cast<std::int64_t>(bytes), percent, kind, count(6), count(7), count(4));
}

bool isNoiseWithRegex(const std::string& line) {
    if (line.find("ir-chk=") != std::string::npos || line.find("to-chk=") != std::string::npos) return true;
    static const std::regex pattern(R"(^\s*[\d.,]+[KMGTP]?\s+\d{1,3}%\s)");
    return std::regex_search(line, pattern);
}

// Lines as rsync prints them, and the near misses around the rules that are easiest to get wrong.
TEST(ProgressLineParserTest, ReadsEachTableLineAsExpectedAndAsTheRegularExpressionDoes) {
    const std::vector<std::pair<std::string, std::optional<TransferProgressLine>>> cases{
        {"     12,345,678  45%   10.23MB/s    0:00:03 (xfr#12, to-chk=180/400)",
         progress(12345678, 45, CheckKind::to, 180, 400, 12)},
        {"    32.77K   0%    0.00kB/s    0:00:00 (xfr#1, ir-chk=1009/1024)",
         progress(32770, 0, CheckKind::ir, 1009, 1024, 1)},
        {"  1.23G  100%  45.67MB/s  ??:??:??", progress(1230000000, 100)},
        {"\t7\t7%\t7B/s\t0:00:07\r", progress(7, 7)},
        {",.5K 5% 1kB/s 0:00:00", progress(500, 5)},
        // Largest count below 2^63, and 2^63 itself, which the limit refuses.
        {"9223.372036854775P 50% 1kB/s 0:00:00", progress(9223372036854774784, 50)},
        {"9,223,372,036,854,775,807 50% 1kB/s 0:00:00", std::nullopt},
        {std::string(400, '9') + " 50% 1kB/s 0:00:00", std::nullopt},
        // Numbers of the parenthesis that don't fit are absent, each on its own.
        {"1 0% 1kB/s 0:00:00 (xfr#9223372036854775807, to-chk=9223372036854775808/5)",
         progress(1, 0, CheckKind::to, std::nullopt, 5, 9223372036854775807)},
        {"", std::nullopt},
        {"1 101% 1kB/s 0:00:00", std::nullopt},
        {"1k 1% 1kB/s 0:00:00", std::nullopt},
        {"1 1% 1kB/s 0:00:0", std::nullopt},
        {"1 1% 1kB/s 0:00:00(xfr#1, to-chk=1/1)", std::nullopt},
        {"1 1% 1kB/s 0:00:00 (xfr#1, up-chk=1/1)", std::nullopt},
        {"1\u00a01% 1kB/s 0:00:00", std::nullopt},
        {std::string("1 1% 1kB/s 0:00:00\0", 19), std::nullopt},
    };
    for (const auto& [line, expected] : cases) {
        EXPECT_EQ(describe(parseProgressLine(line)), describe(expected)) << "line: \"" << line << "\"";
        EXPECT_EQ(describe(parseWithRegex(line)), describe(expected)) << "regex, line: \"" << line << "\"";
    }
}

TEST(ProgressLineParserTest, NoiseIsCheckCountsOrAProgressLikeBeginning) {
    const std::vector<std::pair<std::string, bool>> cases{
        {"1 101% 1kB/s 0:00:00", true},
        {"  12.5M  45% garbage follows", true},
        {"something ir-chk=3/4", true},
        {"xto-chk=", true},
        {"up-chk=1/2", false},
        {"12.5M  45%", false},
        {"12.5k  45% x", false},
        {"Samples/Drums/kick 01.wav", false},
        {"sent 1,234 bytes  received 56 bytes  2,580.00 bytes/sec", false},
    };
    for (const auto& [line, noise] : cases) {
        EXPECT_EQ(isProgressNoise(line), noise) << "line: \"" << line << "\"";
        EXPECT_EQ(isNoiseWithRegex(line), noise) << "regex, line: \"" << line << "\"";
    }
}

// The hand-written matcher and the regular expression read lines near the format identically:
// well-formed lines with one to four random edits (insert, delete, replace, repeat), drawn from an
// alphabet of the format's own characters. The counts make sure the corpus reaches every rule.
TEST(ProgressLineParserTest, MutatedLinesAgreeWithTheRegularExpression) {
    const std::vector<std::string> seeds{
        "     12,345,678  45%   10.23MB/s    0:00:03 (xfr#12, to-chk=180/400)",
        "    32.77K   0%    0.00kB/s    0:00:00 (xfr#1, ir-chk=1009/1024)",
        "  1.23G  100%  45.67MB/s  ??:??:??",
        "\t7\t7%\t1,024.00B/s\t100:00:07 (xfr#0,\tir-chk=0/0)\r",
        "9223.372036854775P 50% 1kB/s 0:00:00 (xfr#9223372036854775807, to-chk=9223372036854775808/5)",
    };
    const std::string alphabet = "0123456789,.%KMGTPkB/s:?()#xfrchkito-= \t\v\x80";
    std::mt19937 random(0x7A9E);
    auto below = [&](std::size_t bound) {
        return std::uniform_int_distribution<std::size_t>(0, bound - 1)(random);
    };
    int accepted = 0, rejected = 0, singlyAbsent = 0, noisy = 0;
    for (int i = 0; i < 150'000; ++i) {
        std::string line = seeds[below(seeds.size())];
        for (std::size_t edits = 1 + below(4); edits > 0; --edits) {
            const std::size_t at = below(line.size() + 1), kind = below(4);
            const char c = alphabet[below(alphabet.size())];
            if (kind == 0) line.insert(at, 1, c);
            if (kind == 1 && at < line.size()) line.erase(at, 1);
            if (kind == 2 && at < line.size()) line[at] = c;
            if (kind == 3) line.insert(at, line.substr(at, below(6)));
        }
        const auto expected = parseWithRegex(line);
        ASSERT_EQ(describe(parseProgressLine(line)), describe(expected)) << "line: \"" << line << "\"";
        ASSERT_EQ(isProgressNoise(line), isNoiseWithRegex(line)) << "line: \"" << line << "\"";
        (expected ? accepted : rejected) += 1;
        noisy += isProgressNoise(line) && !expected ? 1 : 0;
        if (expected && expected->checkKind != CheckKind::none)
            singlyAbsent += !expected->remaining || !expected->total || !expected->transferredFiles ? 1 : 0;
    }
    EXPECT_GT(accepted, 10'000);
    EXPECT_GT(rejected, 10'000);
    EXPECT_GT(singlyAbsent, 2'000);
    EXPECT_GT(noisy, 20'000);
}

// rsync's own output, as a backup runs it: -avh with --info=progress2, in the C numeric locale.
TEST(ProgressLineParserTest, ReadsTheProgressOfARealRsyncRun) {
    test::TempDir folder;
    std::int64_t cardBytes = 0;
    for (std::size_t i = 0; i < 20; ++i) {
        test::writeFile(folder / ("card/Samples/kick " + std::to_string(i) + ".wav"),
                        std::string(5000 * i, 'x'));
        cardBytes += static_cast<std::int64_t>(5000 * i);
    }
    const std::string command = "LC_ALL=C rsync -avh --info=progress2 '" + (folder / "card/").string() +
                                "' '" + (folder / "copy/").string() + "' 2>&1";
    FILE* pipe = ::popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    std::vector<TransferProgressLine> progressLines;
    std::vector<std::string> otherLines;
    LineSplitter splitter([&](const std::string& line) {
        if (auto parsed = parseProgressLine(line))
            progressLines.push_back(*parsed);
        else if (!isProgressNoise(line))
            otherLines.push_back(line);
    });
    char buffer[4096];
    while (std::size_t read = std::fread(buffer, 1, sizeof buffer, pipe)) splitter.append({buffer, read});
    splitter.finish();
    ASSERT_EQ(::pclose(pipe), 0);
    ASSERT_FALSE(progressLines.empty());
    // The 20 files, "Samples/" and "."; the bytes are printed as "950.00K".
    EXPECT_EQ(describe(progressLines.back()), describe(progress(cardBytes, 100, CheckKind::to, 0, 22, 20)));
    EXPECT_NE(std::find(otherLines.begin(), otherLines.end(), "Samples/kick 19.wav"), otherLines.end());
}

}  // namespace
}  // namespace tapekeep
