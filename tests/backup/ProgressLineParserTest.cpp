#include "backup/ProgressLineParser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "TempDir.h"
#include "backup/LineSplitter.h"

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
    const std::string suffix = match[2].str();
    const std::string suffixes = "KMGTP";
    if (!suffix.empty()) bytes *= std::pow(10.0, 3.0 * static_cast<double>(suffixes.find(suffix[0]) + 1));
    if (bytes < 0 || !std::isfinite(bytes) || bytes >= 9.223372036854776e18) return std::nullopt;
    const int percent = std::stoi(match[3].str());
    if (percent > 100) return std::nullopt;
    auto count = [&](int group) -> Count {
        if (!match[group].matched) return std::nullopt;
        errno = 0;
        const long long value = std::strtoll(match[group].str().c_str(), nullptr, 10);
        if (errno == ERANGE) return std::nullopt;
        return value;
    };
    CheckKind kind = !match[5].matched ? CheckKind::none : match[5] == "ir" ? CheckKind::ir : CheckKind::to;
    return progress(static_cast<std::int64_t>(bytes), percent, kind, count(6), count(7), count(4));
}

bool isNoiseWithRegex(const std::string& line) {
    if (line.find("ir-chk=") != std::string::npos || line.find("to-chk=") != std::string::npos) return true;
    static const std::regex pattern(R"(^\s*[\d.,]+[KMGTP]?\s+\d{1,3}%\s)");
    return std::regex_search(line, pattern);
}

struct ParseCase {
    std::string line;
    std::optional<TransferProgressLine> expected;
};

// Lines as rsync prints them, and the near misses around every rule of the format.
const std::vector<ParseCase>& parseCases() {
    static const std::vector<ParseCase> cases{
        {"1,234,567  45%  1.23MB/s  0:00:10 (xfr#3, to-chk=7/10)",
         progress(1234567, 45, CheckKind::to, 7, 10, 3)},
        {"  1.23G  100%  45.67MB/s  ??:??:??", progress(1230000000, 100)},
        {"              0   0%    0.00kB/s    0:00:00", progress(0, 0)},
        {"     12,345,678  45%   10.23MB/s    0:00:03 (xfr#12, to-chk=180/400)",
         progress(12345678, 45, CheckKind::to, 180, 400, 12)},
        {"0  100%  0.00kB/s  0:00:00 (xfr#0, ir-chk=10/20)", progress(0, 100, CheckKind::ir, 10, 20, 0)},
        {"    32.77K   0%    0.00kB/s    0:00:00 (xfr#1, ir-chk=1009/1024)",
         progress(32770, 0, CheckKind::ir, 1009, 1024, 1)},
        {"          1.05M 100%  123.45MB/s    0:00:00 (xfr#4, to-chk=0/8)  ",
         progress(1050000, 100, CheckKind::to, 0, 8, 4)},
        {"1.5K 1% 1KB/s 0:00:01", progress(1500, 1)},
        {"2M 2% 1,024.00kB/s 1:02:03", progress(2000000, 2)},
        {"3T 3% 1TB/s 100:00:00", progress(3000000000000, 3)},
        {"4P 4% 1PB/s 0:00:00", progress(4000000000000000, 4)},
        {"\t7\t7%\t7B/s\t0:00:07\t", progress(7, 7)},
        {"8 8% 8GB/s 0:00:08\r", progress(8, 8)},
        {"9 9% 9kB/s 0:00:09\n", progress(9, 9)},
        {"\v\f10 10% 10kB/s 0:00:10\v\f", progress(10, 10)},
        {"007 007% 1kB/s 0:00:00", progress(7, 7)},
        {",5 5% 1kB/s 0:00:00", progress(5, 5)},
        {",.5K 5% 1kB/s 0:00:00", progress(500, 5)},
        {"1,2,3,4 5% 1kB/s 0:00:00", progress(1234, 5)},
        {"0.0001 0% 1kB/s 0:00:00", progress(0, 0)},
        {"1.9999 0% 1kB/s 0:00:00", progress(1, 0)},
        {"1 0% 1kB/s 0:00:00 (xfr#1,\tto-chk=2/3)", progress(1, 0, CheckKind::to, 2, 3, 1)},
        {"1 0% 1kB/s 0:00:00   (xfr#1,  ir-chk=2/3)   ", progress(1, 0, CheckKind::ir, 2, 3, 1)},
        // Largest count below 2^63, and 2^63 itself, which the limit refuses.
        {"9223372036854774784 50% 1kB/s 0:00:00", progress(9223372036854774784, 50)},
        {"9,223,372,036,854,775,807 50% 1kB/s 0:00:00", std::nullopt},
        {"9223.372036854775P 50% 1kB/s 0:00:00", progress(9223372036854774784, 50)},
        {"9223.372036854776P 50% 1kB/s 0:00:00", std::nullopt},
        {"9223372036854775.807K 50% 1kB/s 0:00:00", std::nullopt},
        {"99999999999999999999999 50% 1kB/s 0:00:00", std::nullopt},
        {std::string(400, '9') + " 50% 1kB/s 0:00:00", std::nullopt},
        {"0." + std::string(400, '0') + "1 0% 1kB/s 0:00:00", progress(0, 0)},
        // Numbers of the parenthesis that don't fit are absent, each on its own.
        {"1 0% 1kB/s 0:00:00 (xfr#9223372036854775807, to-chk=9223372036854775808/5)",
         progress(1, 0, CheckKind::to, std::nullopt, 5, 9223372036854775807)},
        {"1 0% 1kB/s 0:00:00 (xfr#99999999999999999999, to-chk=1/99999999999999999999)",
         progress(1, 0, CheckKind::to, 1, std::nullopt, std::nullopt)},
        {"1 0% 1kB/s 0:00:00 (xfr#000000000000000000000001, ir-chk=0/0)",
         progress(1, 0, CheckKind::ir, 0, 0, 1)},
        // Refused.
        {"", std::nullopt},
        {"   ", std::nullopt},
        {"sending incremental file list", std::nullopt},
        {"Samples/Drums/kick 01.wav", std::nullopt},
        {"1,234,567 101% 1.23MB/s 0:00:10 (xfr#3, to-chk=7/10)", std::nullopt},
        {"1 999% 1kB/s 0:00:00", std::nullopt},
        {"1 1000% 1kB/s 0:00:00", std::nullopt},
        {"1 % 1kB/s 0:00:00", std::nullopt},
        {"1 1.5% 1kB/s 0:00:00", std::nullopt},
        {"1 1 % 1kB/s 0:00:00", std::nullopt},
        {"1 1%1kB/s 0:00:00", std::nullopt},
        {"1  1% 1kB/s0:00:00", std::nullopt},
        {"1 1% 1kB/s 0:00:00(xfr#1, to-chk=1/1)", std::nullopt},
        {"1% 1kB/s 0:00:00", std::nullopt},
        {", 1% 1kB/s 0:00:00", std::nullopt},
        {",,, 1% 1kB/s 0:00:00", std::nullopt},
        {".5 1% 1kB/s 0:00:00", std::nullopt},
        {"1. 1% 1kB/s 0:00:00", std::nullopt},
        {"1.K 1% 1kB/s 0:00:00", std::nullopt},
        {"1.2.3 1% 1kB/s 0:00:00", std::nullopt},
        {"1k 1% 1kB/s 0:00:00", std::nullopt},
        {"1KK 1% 1kB/s 0:00:00", std::nullopt},
        {"1E 1% 1kB/s 0:00:00", std::nullopt},
        {"-1 1% 1kB/s 0:00:00", std::nullopt},
        {"+1 1% 1kB/s 0:00:00", std::nullopt},
        {"1e5 1% 1kB/s 0:00:00", std::nullopt},
        {"1K1 1% 1kB/s 0:00:00", std::nullopt},
        {"1 1% kB/s 0:00:00", std::nullopt},
        {"1 1% 1mB/s 0:00:00", std::nullopt},
        {"1 1% 1MiB/s 0:00:00", std::nullopt},
        {"1 1% 1MB/sec 0:00:00", std::nullopt},
        {"1 1% 1MB 0:00:00", std::nullopt},
        {"1 1% 1kKB/s 0:00:00", std::nullopt},
        {"1 1% 1kB/s", std::nullopt},
        {"1 1% 1kB/s ", std::nullopt},
        {"1 1% 1kB/s 0:0:00", std::nullopt},
        {"1 1% 1kB/s 0:00:0", std::nullopt},
        {"1 1% 1kB/s 0:00:000", std::nullopt},
        {"1 1% 1kB/s :00:00", std::nullopt},
        {"1 1% 1kB/s 0:00", std::nullopt},
        {"1 1% 1kB/s ??:??:?", std::nullopt},
        {"1 1% 1kB/s ?:??:??", std::nullopt},
        {"1 1% 1kB/s ??:??:???", std::nullopt},
        {"1 1% 1kB/s 0:00:00 x", std::nullopt},
        {"1 1% 1kB/s 0:00:00 (xfr#1, to-chk=1/1", std::nullopt},
        {"1 1% 1kB/s 0:00:00 (xfr#1, to-chk=1/1) x", std::nullopt},
        {"1 1% 1kB/s 0:00:00 (xfr#1, to-chk=1/1))", std::nullopt},
        {"1 1% 1kB/s 0:00:00 (xfr#1,to-chk=1/1)", std::nullopt},
        {"1 1% 1kB/s 0:00:00 (xfr#1 to-chk=1/1)", std::nullopt},
        {"1 1% 1kB/s 0:00:00 (xfr#, to-chk=1/1)", std::nullopt},
        {"1 1% 1kB/s 0:00:00 (xfr#1, up-chk=1/1)", std::nullopt},
        {"1 1% 1kB/s 0:00:00 (xfr#1, to-chk=/1)", std::nullopt},
        {"1 1% 1kB/s 0:00:00 (xfr#1, to-chk=1/)", std::nullopt},
        {"1 1% 1kB/s 0:00:00 (xfr#1, to-chk=1)", std::nullopt},
        {"1 1% 1kB/s 0:00:00 (xfr#-1, to-chk=1/1)", std::nullopt},
        {"1 1% 1kB/s 0:00:00 (XFR#1, TO-CHK=1/1)", std::nullopt},
        {"1 1% 1kB/s 0:00:00 ()", std::nullopt},
        {"1\xC2\xA0"
         "1% 1kB/s 0:00:00",
         std::nullopt},
        {std::string("1 1% 1kB/s 0:00:00\0", 19), std::nullopt},
        {"\xEF\xBF\xBD 1% 1kB/s 0:00:00", std::nullopt},
    };
    return cases;
}

TEST(ProgressLineParserTest, ReadsEachTableLineAsExpected) {
    for (const auto& [line, expected] : parseCases()) {
        EXPECT_EQ(describe(parseProgressLine(line)), describe(expected)) << "line: \"" << line << "\"";
    }
}

TEST(ProgressLineParserTest, TableAgreesWithTheRegularExpression) {
    for (const auto& testCase : parseCases()) {
        EXPECT_EQ(describe(parseProgressLine(testCase.line)), describe(parseWithRegex(testCase.line)))
            << "line: \"" << testCase.line << "\"";
    }
}

struct NoiseCase {
    std::string line;
    bool noise;
};

TEST(ProgressLineParserTest, NoiseIsCheckCountsOrAProgressLikeBeginning) {
    const std::vector<NoiseCase> cases{
        {"1,234,567 101% 1.23MB/s 0:00:10 (xfr#3, to-chk=7/10)", true},
        {"1 101% 1kB/s 0:00:00", true},
        {"  12.5M  45% garbage follows", true},
        {"0\t0%\t", true},
        {"1,2.3K 999% x", true},
        {"to-chk=", true},
        {"something ir-chk=3/4", true},
        {"xto-chk=", true},
        {"-chk=1/2", false},
        {"ir-chk", false},
        {"up-chk=1/2", false},
        {"12.5M  45%", false},
        {"12.5M  1000% x", false},
        {"12.5M 45 % x", false},
        {"12.5k  45% x", false},
        {"12.5MB  45% x", false},
        {"M  45% x", false},
        {"12.5M45% x", false},
        {"sending incremental file list", false},
        {"Samples/Drums/kick 01.wav", false},
        {"sent 1,234 bytes  received 56 bytes  2,580.00 bytes/sec", false},
        {"Number of files: 1,234 (reg: 1,000, dir: 234)", false},
        {"", false},
    };
    for (const auto& [line, noise] : cases) {
        EXPECT_EQ(isProgressNoise(line), noise) << "line: \"" << line << "\"";
        EXPECT_EQ(isProgressNoise(line), isNoiseWithRegex(line)) << "line: \"" << line << "\"";
    }
}

// Builds lines of the progress format with each part usually well formed and sometimes not, so
// that both readings are compared on accepted lines and on every way of missing.
class ProgressLineGenerator {
public:
    explicit ProgressLineGenerator(unsigned seed) : random_(seed) {}

    std::string line() {
        std::string text = oneOf({"", "", " ", "     ", "\t", "\v\f"});
        text += byteCount() + oneOf({"", "", "", "", "K", "M", "G", "T", "P"}) + rarely({"k", "B"});
        text += gap() + percent() + gap() + rate() + gap() + time();
        if (chance(0.7)) text += gap() + checkGroup();
        return text + oneOf({"", "", "", " ", "  \t", "\r"}) + rarely({" x", ")"});
    }

    std::string mutated(std::string text) {
        static const std::string alphabet = "0123456789,.%KMGTPkB/s:?()#xfrchkito-= \t\v\x80";
        const int edits = 1 + static_cast<int>(below(3));
        for (int i = 0; i < edits; ++i) {
            const std::size_t at = below(text.size() + 1);
            const char c = alphabet[below(alphabet.size())];
            switch (below(4)) {
                case 0:
                    text.insert(at, 1, c);
                    break;
                case 1:
                    if (at < text.size()) text.erase(at, 1);
                    break;
                case 2:
                    if (at < text.size()) text[at] = c;
                    break;
                default:
                    text.insert(at, text.substr(at, below(6)));
                    break;
            }
        }
        return text;
    }

private:
    std::size_t below(std::size_t bound) {
        return std::uniform_int_distribution<std::size_t>(0, bound - 1)(random_);
    }
    bool chance(double probability) { return std::bernoulli_distribution(probability)(random_); }
    std::string oneOf(std::initializer_list<const char*> choices) {
        return *(choices.begin() + below(choices.size()));
    }

    std::string digits(std::size_t count) {
        std::string text;
        for (std::size_t i = 0; i < count; ++i) text += static_cast<char>('0' + below(10));
        return text;
    }

    std::string grouped(std::size_t count) {
        std::string plain = digits(count), text;
        for (std::size_t i = 0; i < plain.size(); ++i) {
            if (i > 0 && (plain.size() - i) % 3 == 0) text += ',';
            text += plain[i];
        }
        return text;
    }

    // Usually nothing, now and then one of the choices: the small slips that a matcher must catch.
    std::string rarely(std::initializer_list<const char*> slips) { return chance(0.03) ? oneOf(slips) : ""; }

    // The valid text, or now and then one of the slips in its place.
    std::string usually(const std::string& valid, std::initializer_list<const char*> slips) {
        return chance(0.03) ? oneOf(slips) : valid;
    }

    std::string gap() { return usually(oneOf({" ", " ", "  ", "    ", "\t", " \t "}), {"", "x"}); }

    std::string byteCount() {
        switch (below(20)) {
            case 0:
                return digits(1 + below(3)) + "." + digits(below(4));
            case 1:
                return digits(16 + below(8));
            case 2:
                return oneOf({"9223372036854774784", "9223372036854775807", "9223.372036854775P",
                              "9223372036854775.807K", "9223.372036854776P", "922337203685477.5807K"});
            case 3:
                return oneOf({",", ",,", ",5", ".5", "5.", "1..2", "1.2.3", "-1", ""});
            case 4:
            case 5:
                return digits(1 + below(3)) + "." + digits(1 + below(3));
            case 6:
            case 7:
                return digits(1 + below(5));
            default:
                return grouped(1 + below(13));
        }
    }

    std::string percent() {
        const std::size_t value = chance(0.05) ? 101 + below(899) : below(101);
        return usually(std::to_string(value) + "%", {"", "%", "1.5%", "1000%", "45 %", "-1%", "0045%"});
    }

    std::string rate() {
        const std::string valid =
            grouped(1 + below(5)) + "." + digits(2) + oneOf({"", "k", "K", "M", "G", "T", "P"});
        return usually(valid + "B/s", {"kB/s", "1mB/s", "1MiB/s", "1MB", "1 MB/s", "1KKB/s"});
    }

    std::string time() {
        if (chance(0.1)) return "??:??:??";
        const std::string valid = std::to_string(below(200)) + ":" + digits(2) + ":" + digits(2);
        return usually(valid, {"0:0:00", "0:00:0", "0:00:000", "?:??:??", "0:00", ":00:00", "??:??:?"});
    }

    std::string countText() {
        if (chance(0.06)) return digits(18 + below(5));
        return usually(std::to_string(below(5000)), {"", "-1", "1 ", "x"});
    }

    std::string checkGroup() {
        std::string text = "(xfr#" + countText() + usually(",", {"", ";"});
        text +=
            usually(oneOf({" ", " ", "  ", "\t"}), {""}) + usually(oneOf({"to", "ir"}), {"up", "TO", "t"});
        text += "-chk=" + countText() + usually("/", {"", "\\"}) + countText();
        return text + usually(")", {"", "))", ") )"});
    }

    std::mt19937 random_;
};

// The hand-written matcher and the regular expression read a few hundred thousand generated and
// mutated lines identically; the counts below make sure that the corpus reaches every rule.
TEST(ProgressLineParserTest, GeneratedLinesAgreeWithTheRegularExpression) {
    ProgressLineGenerator generator(0x7A9E);
    int accepted = 0, rejected = 0, singlyAbsent = 0, withCheckGroup = 0, noisy = 0;
    constexpr int lineCount = 150'000;
    for (int i = 0; i < lineCount; ++i) {
        const std::string generated = generator.line();
        for (const std::string& line : {generated, generator.mutated(generated)}) {
            const auto expected = parseWithRegex(line);
            ASSERT_EQ(describe(parseProgressLine(line)), describe(expected)) << "line: \"" << line << "\"";
            ASSERT_EQ(isProgressNoise(line), isNoiseWithRegex(line)) << "line: \"" << line << "\"";
            (expected ? accepted : rejected) += 1;
            noisy += isProgressNoise(line) && !expected ? 1 : 0;
            if (expected && expected->checkKind != CheckKind::none) {
                ++withCheckGroup;
                if (!expected->remaining || !expected->total || !expected->transferredFiles) ++singlyAbsent;
            }
        }
    }
    EXPECT_GT(accepted, lineCount / 3);
    EXPECT_GT(rejected, lineCount / 3);
    EXPECT_GT(withCheckGroup, lineCount / 5);
    EXPECT_GT(singlyAbsent, 2000);
    EXPECT_GT(noisy, 10000);
}

// rsync's own output, as a backup runs it: -avh with --info=progress2, in the C numeric locale.
TEST(ProgressLineParserTest, ReadsTheProgressOfARealRsyncRun) {
    test::TempDir folder;
    std::int64_t cardBytes = 0;
    for (int i = 0; i < 20; ++i) {
        const std::string content(5000 * static_cast<std::size_t>(i), 'x');
        test::writeFile(folder / ("card/Samples/kick " + std::to_string(i) + ".wav"), content);
        cardBytes += static_cast<std::int64_t>(content.size());
    }
    const std::string command = "LC_ALL=C rsync -avh --info=progress2 '" + (folder / "card/").string() +
                                "' '" + (folder / "copy/").string() + "' 2>&1";
    FILE* pipe = ::popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    std::vector<TransferProgressLine> progressLines;
    std::vector<std::string> otherLines;
    LineSplitter splitter([&](const std::string& line) {
        if (auto parsed = parseProgressLine(line)) {
            progressLines.push_back(*parsed);
        } else if (!isProgressNoise(line)) {
            otherLines.push_back(line);
        }
    });
    char buffer[4096];
    while (std::size_t read = std::fread(buffer, 1, sizeof buffer, pipe))
        splitter.append(std::string_view(buffer, read));
    splitter.finish();
    ASSERT_EQ(::pclose(pipe), 0);
    ASSERT_FALSE(progressLines.empty());
    const auto& last = progressLines.back();
    EXPECT_EQ(last.percent, 100);
    EXPECT_EQ(last.checkKind, CheckKind::to);
    EXPECT_EQ(last.remaining, 0);
    EXPECT_EQ(last.total, 22);  // the 20 files, "Samples/" and "."
    EXPECT_EQ(last.transferredFiles, 20);
    EXPECT_EQ(last.transferredBytes, cardBytes);  // printed as "950.00K"
    EXPECT_NE(std::find(otherLines.begin(), otherLines.end(), "Samples/kick 19.wav"), otherLines.end());
}

}  // namespace
}  // namespace tapekeep
