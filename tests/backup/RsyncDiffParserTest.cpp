#include "backup/RsyncDiffParser.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "TempDir.h"
#include "backup/RsyncCommands.h"
#include "backup/RsyncParseError.h"
#include "backup/RsyncProcess.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;
using Kind = FileDiff::Kind;

// Each line with what it gives without and with folders (nothing: the line is skipped), and its path.
TEST(RsyncDiffParserTest, ReadsTheChangeOrSkipsTheLine) {
    const auto added = Kind::added, modified = Kind::modified, deleted = Kind::deleted;
    const std::optional<Kind> skipped;
    const std::vector<std::tuple<std::string, std::optional<Kind>, std::optional<Kind>, std::string>> cases{
        // rsync 3.x: 11 flags and a tab.
        {">f+++++++++\tSongs/a.m8s", added, added, "Songs/a.m8s"},
        {">f.st......\tSongs/a.m8s", modified, modified, "Songs/a.m8s"},
        {">f.........\tSongs/a.m8s", skipped, skipped, ""},
        {".f..t......\tSongs/a.m8s", skipped, skipped, ""},
        {"cL+++++++++\tSamples/link", added, added, "Samples/link"},
        {"cd+++++++++\tSongs/new/", skipped, added, "Songs/new/"},
        // Tabs and blanks in paths belong to the path.
        {">f+++++++++\tSongs/a\tb.m8s", added, added, "Songs/a\tb.m8s"},
        {">f+++++++++\t lead.m8s", added, added, " lead.m8s"},
        // Older rsync: 9 flags, with a tab or with its default blank.
        {"<f+++++++\tSongs/a.m8s", added, added, "Songs/a.m8s"},
        {">f+++++++ Songs/a b.m8s", added, added, "Songs/a b.m8s"},
        // Deletions, as rsync 3.x pads them before the tab, and without a tab.
        {"*deleting  \tSongs/old.m8s", deleted, deleted, "Songs/old.m8s"},
        {"*deleting  \tSongs/a\tb.m8s", deleted, deleted, "Songs/a\tb.m8s"},
        {"*deleting   Songs/old.m8s", deleted, deleted, "Songs/old.m8s"},
        {"*deleting Songs/old.m8s", deleted, deleted, "Songs/old.m8s"},
        {"*deleting    Songs/old.m8s", deleted, deleted, "Songs/old.m8s"},
        {"*deleting  \tSongs/", skipped, deleted, "Songs/"},
        {"*deleting  \t", skipped, skipped, ""},
        {"*deletingSongs/old.m8s", skipped, skipped, ""},
        // Everything else rsync prints.
        {">f+++++++++\t", skipped, skipped, ""},
        {">x+++++++++\tSongs/a.m8s", skipped, skipped, ""},
        {">f+++++++++Songs/a.m8s", skipped, skipped, ""},
        {"sent 123 bytes  received 45 bytes  336.00 bytes/sec", skipped, skipped, ""},
        {"cannot delete non-empty directory: Songs", skipped, skipped, ""},
        {"", skipped, skipped, ""},
    };
    for (const auto& [line, withoutFolders, withFolders, path] : cases) {
        for (const bool includeDirectories : {false, true}) {
            SCOPED_TRACE(testing::Message() << '"' << line << "\" folders " << includeDirectories);
            const auto expected = includeDirectories ? withFolders : withoutFolders;
            const std::optional<FileDiff> diff = RsyncDiffParser::parseLine(line, includeDirectories);
            ASSERT_EQ(diff.has_value(), expected.has_value());
            if (!diff) continue;
            EXPECT_EQ(diff->kind, *expected);
            EXPECT_EQ(diff->path, path);
            EXPECT_EQ(diff->id.size(), 36u);
        }
    }
}

TEST(RsyncDiffParserTest, KeepsTheOrderOfTheInputAndRefusesAnUnsupportedClass) {
    const std::vector<std::string> lines{"*deleting  \tb", "sent 1 bytes", ">f+++++++++\ta",
                                         "cd+++++++++\tc/"};
    const std::vector<FileDiff> diffs = RsyncDiffParser::parse(lines, RsyncVersion::v31(), true);
    ASSERT_EQ(diffs.size(), 3u);
    EXPECT_EQ(diffs[0].path, "b");
    EXPECT_EQ(diffs[1].path, "a");
    EXPECT_EQ(diffs[2].path, "c/");
    EXPECT_NE(diffs[0].id, diffs[1].id);
    EXPECT_EQ(RsyncDiffParser::parse(lines).size(), 2u);

    try {
        RsyncDiffParser::parse(lines, RsyncVersion::unsupported("rsync  version 3.6.0\nCopyright"), true);
        FAIL() << "an unsupported class was parsed";
    } catch (const RsyncParseError& error) {
        EXPECT_EQ(error.kind(), RsyncParseError::Kind::unsupportedVersion);
        EXPECT_EQ(error.raw(), "rsync  version 3.6.0\nCopyright");
        EXPECT_STREQ(error.what(), "Unsupported rsync version: rsync  version 3.6.0");
    }
}

// --- What the real rsync prints ----------------------------------------------------------------

void writeWithTime(const fs::path& file, const std::string& content) {
    test::writeFile(file, content);
    fs::last_write_time(file, fs::file_time_type(std::chrono::seconds(1'700'000'000)));
}

using Change = std::pair<std::string, Kind>;

std::set<Change> changes(const std::vector<FileDiff>& diffs) {
    std::set<Change> result;
    for (const FileDiff& diff : diffs) result.emplace(diff.path, diff.kind);
    return result;
}

TEST(RsyncDiffParserTest, ReadsWhatTheRealRsyncReportsBetweenTwoVersions) {
    const std::string rsync = "/usr/bin/rsync";
    if (!fs::exists(rsync)) GTEST_SKIP() << "no rsync at " << rsync;
    test::TempDir temp;
    const fs::path a = temp / "A";
    const fs::path b = temp / "B";
    writeWithTime(a / "Songs/new.m8s", "new");
    writeWithTime(a / "Songs/same.m8s", "same");
    writeWithTime(b / "Songs/same.m8s", "same");
    // Same size and time: only the checksum tells them apart.
    writeWithTime(a / "Songs/changed.m8s", "AAAA");
    writeWithTime(b / "Songs/changed.m8s", "BBBB");
    writeWithTime(b / "Songs/gone.m8s", "gone");
    writeWithTime(a / "Samples/kick\tdrum.wav", "kick");
    writeWithTime(a / "Samples/snare roll.wav", "snare");
    writeWithTime(a / "OnlyA/in.m8i", "in");
    writeWithTime(b / "OnlyB/deep/out.m8i", "out");

    std::vector<std::string> lines;
    const int status = runRsync(rsync, RsyncCommands::compareVersionsArguments(a, b),
                                [&lines](const std::string& line) { lines.push_back(line); }, {});
    ASSERT_EQ(status, 0);
    EXPECT_FALSE(fs::exists(b / "Songs/new.m8s")) << "a comparison changes nothing";
    const RsyncVersion version = RsyncVersion::detect(rsync);

    const std::set<Change> files{
        {"Songs/new.m8s", Kind::added},          {"Songs/changed.m8s", Kind::modified},
        {"Songs/gone.m8s", Kind::deleted},       {"Samples/kick\tdrum.wav", Kind::added},
        {"Samples/snare roll.wav", Kind::added}, {"OnlyA/in.m8i", Kind::added},
        {"OnlyB/deep/out.m8i", Kind::deleted}};
    EXPECT_EQ(changes(RsyncDiffParser::parse(lines, version, false)), files);

    std::set<Change> withFolders = files;
    withFolders.insert({{"Samples/", Kind::added},
                        {"OnlyA/", Kind::added},
                        {"OnlyB/", Kind::deleted},
                        {"OnlyB/deep/", Kind::deleted}});
    EXPECT_EQ(changes(RsyncDiffParser::parse(lines, version, true)), withFolders);
}

}  // namespace
}  // namespace tapekeep
