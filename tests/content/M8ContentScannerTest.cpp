#include "content/M8ContentScanner.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "TempDir.h"
#include "core/SettingsStore.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

void writeFiles(const fs::path& root, const std::vector<std::string>& relativePaths) {
    for (const auto& path : relativePaths) test::writeFile(root / path, "x");
}

std::set<std::string> pathsOf(const Manifest& manifest) {
    std::set<std::string> paths;
    for (const auto& [path, entry] : manifest) paths.insert(path);
    return paths;
}

TEST(M8ContentScannerTest, ManifestHoldsRegularVisibleFilesByNfcPathFromAnyRootSpelling) {
    test::TempDir folder;
    const fs::path card = folder / "card";
    test::writeFile(card / "Songs/A.m8s", "12345");
    writeFiles(card,
               {"Samples/Cafe\xCC\x81.wav", "Cho\xCC\x88re/x.wav", ".DS_Store", "Samples/.tapekeep-note",
                ".Trashes/501/old.wav", "Songs/.fseventsd/y.m8s", "Samples/.hidden.wav"});
    fs::create_symlink("../Songs/A.m8s", card / "Samples/link.m8s");
    fs::create_symlink("missing", card / "Samples/dangling.wav");
    fs::create_directory_symlink("Samples", card / "LinkedFolder");
    fs::create_directory_symlink(card, folder / "card link");
    const timespec times[2] = {{0, UTIME_OMIT}, {1'700'000'000, 123'456'789}};
    ASSERT_EQ(::utimensat(AT_FDCWD, (card / "Songs/A.m8s").c_str(), times, 0), 0);

    const std::set<std::string> expected = {"Songs/A.m8s", "Samples/Caf\xC3\xA9.wav", "Ch\xC3\xB6re/x.wav"};
    M8ContentScanner scanner;
    for (const fs::path& root : {card, folder / "card link", card / "Songs/../", folder / "./card link/"}) {
        const auto manifest = scanner.scanManifest(root);
        ASSERT_TRUE(manifest.has_value()) << root;
        EXPECT_EQ(pathsOf(*manifest), expected) << root;
        const auto song = manifest->at("Songs/A.m8s");
        EXPECT_EQ(song.size, 5);
        EXPECT_EQ(song.modified, Clock::time_point(1'700'000'000s + 123'456'789ns));
    }
}

TEST(M8ContentScannerTest, RootThatIsNoFolderGivesEmptyResultsNotCancellation) {
    test::TempDir folder;
    test::writeFile(folder / "file", "x");
    M8ContentScanner scanner;
    for (const fs::path& root : {folder / "missing", folder / "file"}) {
        EXPECT_EQ(scanner.scanManifest(root), Manifest{}) << root;
        EXPECT_EQ(scanner.scanContent(root), (std::pair<ContentCounts, Manifest>{})) << root;
    }
}

TEST(M8ContentScannerTest, CountsFollowTheContentTable) {
    struct Case {
        std::vector<std::string> files;
        ContentCounts expected;
    };
    const std::vector<Case> cases = {
        {{}, {}},
        {{"Themes/t.m8t", "Samples/s.wav", "Instruments/i.m8i", "Songs/s.m8s"},
         {{"Songs", 1}, {"Instruments", 1}, {"Wavs", 1}, {"Themes", 1}}},
        {{"Songs/A.m8s", "Songs/A1.m8s", "Songs/A2.m8s"}, {{"Songs (3 files)", 1}}},
        {{"Songs/A.m8s", "Songs/B.m8s"}, {{"Songs", 2}}},
        {{"Songs/SONG01.m8s", "Songs/song02.m8s", "Songs/Song.m8s", "Songs/123.m8s", "Songs/0.m8s"},
         {{"Songs (5 files)", 3}}},
        {{"Songs/backup/A.m8s", "Songs/Backup 2/B.m8s", "Songs2/Old BACKUPS/C.m8s", "Songs/A.BACKUP.m8s",
          "Songs/backup-beat.m8s", "Samples/backup/kick.wav"},
         {{"Songs", 2}, {"Wavs", 1}}},
        {{"Samples/a.WAV", "Samples/a.aif", "System/x.wav", "system/x.wav", "System/STARTUP.m8s", "README"},
         {{"Wavs", 2}}},
    };
    M8ContentScanner scanner;
    for (const auto& [files, expected] : cases) {
        test::TempDir card;
        writeFiles(card.path(), files);
        const auto [counts, manifest] = scanner.scanContent(card.path());
        EXPECT_EQ(counts, expected) << ::testing::PrintToString(files);
        EXPECT_EQ(manifest.size(), files.size()) << "uncounted files stay in the manifest";
    }
}

TEST(M8ContentScannerTest, ProgressAfterEveryFiftyCountedFiles) {
    test::TempDir card;
    for (int i = 0; i < 120; ++i) test::writeFile(card / ("Samples/" + std::to_string(i) + ".wav"), "x");
    for (int i = 0; i < 40; ++i) test::writeFile(card / ("System/" + std::to_string(i) + ".wav"), "x");
    std::vector<ContentCounts> reports;
    M8ContentScanner scanner;
    const auto [counts, manifest] =
        scanner.scanContent(card.path(), [&](ContentCounts soFar) { reports.push_back(std::move(soFar)); });
    EXPECT_EQ(reports, (std::vector<ContentCounts>{{{"Wavs", 50}}, {{"Wavs", 100}}}));
    EXPECT_EQ(counts, (ContentCounts{{"Wavs", 120}}));
    EXPECT_EQ(manifest.size(), 160u);
}

TEST(M8ContentScannerTest, CancellationGivesAbsentManifestAndEmptyContent) {
    test::TempDir card;
    for (int i = 0; i < 200; ++i) test::writeFile(card / ("Songs/" + std::to_string(i) + ".m8s"), "x");
    M8ContentScanner scanner;

    std::stop_source stopped;
    stopped.request_stop();
    EXPECT_EQ(scanner.scanManifest(card.path(), stopped.get_token()), std::nullopt);

    std::stop_source midway;
    int reports = 0;
    const auto result = scanner.scanContent(
        card.path(),
        [&](const ContentCounts&) {
            ++reports;
            midway.request_stop();
        },
        midway.get_token());
    EXPECT_EQ(reports, 1);
    EXPECT_EQ(result, (std::pair<ContentCounts, Manifest>{}));
}

TEST(M8ContentScannerTest, QuickDiffToleratesCoarseTimestampsAndDaylightSavingShifts) {
    struct Case {
        std::chrono::duration<double> baselineOlderBy;
        std::int64_t sizeChange;
        bool unchanged;
    };
    // Two seconds either way, or an hour plus or minus two seconds.
    const std::vector<Case> cases = {{2s, 0, true},     {2.1s, 0, false},    {-2s, 0, true},
                                     {-2.1s, 0, false}, {3598s, 0, true},    {3597s, 0, false},
                                     {3602s, 0, true},  {3602.1s, 0, false}, {-3601.9s, 0, true},
                                     {7200s, 0, false}, {0s, 1, false},      {3600s, -1, false}};
    const Clock::time_point now = Clock::now();
    for (const auto& [olderBy, sizeChange, unchanged] : cases) {
        const Manifest current = {{"Songs/A.m8s", {1000, now}}};
        const Manifest baseline = {
            {"Songs/A.m8s", {1000 + sizeChange, now - std::chrono::duration_cast<Clock::duration>(olderBy)}}};
        const auto diffs = M8ContentScanner::quickDiff(current, baseline);
        EXPECT_EQ(diffs.size(), unchanged ? 0u : 1u) << olderBy.count() << " s, size " << sizeChange;
        if (!diffs.empty()) {
            EXPECT_EQ(diffs.front().kind, FileDiff::Kind::modified);
        }
    }
    const ManifestEntry unknownTime{1000};
    EXPECT_TRUE(M8ContentScanner::entriesAgree(unknownTime, unknownTime));
    EXPECT_FALSE(M8ContentScanner::entriesAgree(unknownTime, {1000, now}));
    EXPECT_FALSE(M8ContentScanner::entriesAgree({1000, now}, unknownTime));
}

TEST(M8ContentScannerTest, QuickDiffReportsAddedModifiedDeletedSortedByExactPath) {
    const Clock::time_point now = Clock::now();
    const Manifest current = {
        {"b.wav", {1, now}}, {"A.wav", {1, now}}, {"c.wav", {2, now}}, {"e.wav", {1, now}}};
    const Manifest baseline = {
        {"a.wav", {1, now}}, {"c.wav", {1, now}}, {"d.wav", {1, now}}, {"e.wav", {1, now}}};
    const auto diffs = M8ContentScanner::quickDiff(current, baseline);

    using Kind = FileDiff::Kind;
    std::vector<std::pair<std::string, Kind>> listed;
    std::set<std::string> ids;
    for (const auto& diff : diffs) {
        listed.emplace_back(diff.path, diff.kind);
        ids.insert(diff.id);
    }
    EXPECT_EQ(listed, (std::vector<std::pair<std::string, Kind>>{{"A.wav", Kind::added},
                                                                 {"a.wav", Kind::deleted},
                                                                 {"b.wav", Kind::added},
                                                                 {"c.wav", Kind::modified},
                                                                 {"d.wav", Kind::deleted}}));
    EXPECT_EQ(ids.size(), diffs.size());
    EXPECT_FALSE(ids.contains(""));
}

TEST(M8ContentScannerTest, SummaryCacheRoundTripKeepsOtherCards) {
    test::TempDir folder;
    SettingsStore settings(folder / "settings.json");
    EXPECT_EQ(M8ContentScanner::cachedSummary("CARD-1", settings), std::nullopt);

    const ContentCounts counts = {{"Songs (3 files)", 1}, {"Wavs", 120}};
    M8ContentScanner::storeSummary(counts, "CARD-1", settings);
    M8ContentScanner::storeSummary({}, "CARD-2", settings);
    EXPECT_EQ(M8ContentScanner::cachedSummary("CARD-1", settings), counts);
    EXPECT_EQ(M8ContentScanner::cachedSummary("CARD-2", settings), ContentCounts{});
    EXPECT_EQ(M8ContentScanner::cachedSummary("CARD-3", settings), std::nullopt);
    EXPECT_EQ(settings.value("contentSummaryCache")->at("CARD-1"),
              nlohmann::json::parse(
                  R"json([{"label": "Songs (3 files)", "count": 1}, {"label": "Wavs", "count": 120}])json"));
}

TEST(M8ContentScannerTest, MalformedCacheReadsAsAbsentOrDropsBadRows) {
    struct Case {
        const char* stored;
        std::optional<ContentCounts> expected;
    };
    const std::vector<Case> cases = {
        {R"("not a dictionary")", std::nullopt},
        {R"({"CARD": {"label": "Wavs", "count": 1}})", std::nullopt},
        {R"({"CARD": [{"label": "Songs", "count": "3"}, {"label": "Wavs", "count": 120}]})",
         ContentCounts{{"Wavs", 120}}},
        {R"({"CARD": [{"count": 3}, {"label": 7, "count": 3}, {"label": "Wavs", "count": 1.5},
                      {"label": "Wavs", "count": 99999999999}, "row", null]})",
         ContentCounts{}},
    };
    for (const auto& [stored, expected] : cases) {
        test::TempDir folder;
        SettingsStore settings(folder / "settings.json");
        settings.setValue("contentSummaryCache", nlohmann::json::parse(stored));
        EXPECT_EQ(M8ContentScanner::cachedSummary("CARD", settings), expected) << stored;
    }
    test::TempDir folder;
    test::writeFile(folder / "settings.json", R"({"contentSummaryCache": {"CARD": [)");
    SettingsStore corruptFile(folder / "settings.json");
    EXPECT_EQ(M8ContentScanner::cachedSummary("CARD", corruptFile), std::nullopt);
}

}  // namespace
}  // namespace tapekeep
