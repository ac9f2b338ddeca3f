#include "content/SampleReferences.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <stop_token>
#include <string>
#include <vector>

#include "M8Files.h"
#include "TempDir.h"
#include "content/BrowseFileError.h"
#include "core/Cancelled.h"
#include "core/PosixError.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;
using namespace BrowseFileService;
using test::instrumentWithSample;
using test::songWithSamples;
using test::writeFile;

std::vector<std::string> keysOf(const std::vector<SampleCandidate>& candidates) {
    std::vector<std::string> keys;
    for (const auto& candidate : candidates) keys.push_back(candidate.key);
    return keys;
}

TEST(SampleReferencesTest, NormalizedKeyHasOneSpellingPerPlace) {
    const struct {
        std::string path, key;
    } examples[] = {
        {"", "/"},
        {"Samples//a.wav", "/Samples/a.wav"},
        {"/Samples/a.wav/", "/Samples/a.wav"},
        {"\\Samples\\\\Kick.WAV", "/Samples/Kick.WAV"},
        {"Cafe\u0301.wav", "/Caf\u00e9.wav"},
    };
    for (const auto& example : examples) EXPECT_EQ(normalizedKey(example.path), example.key) << example.path;
    EXPECT_EQ(indexKey("SAMPLES/\u00c9T\u00c9.WAV"), "/samples/\u00e9t\u00e9.wav");
}

class SampleVersionTest : public testing::Test {
protected:
    SampleVersionTest() {
        fs::create_directories(version / "Songs/Live");
        fs::create_directory_symlink("version", temp / "latest");
        fs::create_directory_symlink("../Samples", version / "Songs/samples");
        writeFile(temp / "outside.wav", "x");
        fs::create_symlink(temp / "outside.wav", version / "out.wav");
        fs::create_symlink(temp / "not-there/ghost.wav", version / "ghost.wav");
        fs::create_directory_symlink(temp.path(), version / "Elsewhere");
        fs::create_symlink("loop.wav", version / "loop.wav");
    }

    test::TempDir temp;
    const fs::path version = fs::canonical(temp.path()) / "version";
};

TEST_F(SampleVersionTest, CandidatesComeInOrderOfPreferenceAndStayInside) {
    const struct {
        std::string stored, song;
        std::vector<std::string> keys;
    } examples[] = {
        {"Samples/a.wav", "Songs/a.m8s", {"/Samples/a.wav", "/Songs/Samples/a.wav"}},
        {"a.wav", "Songs/Live/x.m8s", {"/Songs/a.wav", "/Songs/Live/a.wav", "/a.wav"}},
        {"\\Samples\\a.wav", "Songs/Live/x.m8s", {"/Samples/a.wav"}},
        {" ../Samples/kick.wav\n", "Songs/a.m8s", {"/Samples/kick.wav"}},
        {"..", "Songs/a.m8s", {"/"}},
        // The first base reaches /Samples through a link; the root's /samples is the same place.
        {"samples/a.wav", "Songs/Live/x.m8s", {"/Samples/a.wav", "/Songs/Live/samples/a.wav"}},
    };
    for (const auto& example : examples) {
        SCOPED_TRACE(example.stored);
        // Given through a link, as the newest version is; every candidate lies in the real folder.
        const auto candidates =
            sampleCandidates(example.stored, temp / "latest" / example.song, temp / "latest");
        EXPECT_EQ(keysOf(candidates), example.keys);
        for (const auto& candidate : candidates)
            EXPECT_EQ(candidate.url, candidate.key == "/" ? version : version / candidate.key.substr(1));
    }
    // A link inside the version on the way is told; the link that leads to the version is not.
    const auto linked = sampleCandidates("samples/a.wav", temp / "latest/Songs/Live/x.m8s", temp / "latest");
    ASSERT_EQ(linked.size(), 2u);
    EXPECT_TRUE(linked[0].throughSymbolicLink);
    EXPECT_FALSE(linked[1].throughSymbolicLink);
    EXPECT_FALSE(sampleCandidates("Samples/a.wav", temp / "latest/Songs/a.m8s", temp / "latest")[0]
                     .throughSymbolicLink);
}

TEST_F(SampleVersionTest, PathsThatLeaveTheVersionAreRefused) {
    const struct {
        std::string stored, message;
    } examples[] = {
        {"  \t", "Referenced sample is missing:   \t"},
        {"/", "Sample path escapes the backup: /"},
        {"/../../etc/passwd", "Sample path escapes the backup: /../../etc/passwd"},
        {"../../x.wav", "Sample path escapes the backup: ../../x.wav"},
        {"/out.wav", "Sample path escapes the backup: /out.wav"},
        {"/ghost.wav", "Sample path escapes the backup: /ghost.wav"},
        {"/Elsewhere/outside.wav", "Sample path escapes the backup: /Elsewhere/outside.wav"},
        {"/loop.wav", "Sample path escapes the backup: /loop.wav"},
    };
    for (const auto& example : examples) {
        try {
            const auto candidates = sampleCandidates(example.stored, version / "Songs/a.m8s", version);
            ADD_FAILURE() << example.stored << " gave " << candidates.front().url;
        } catch (const BrowseFileError& error) {
            EXPECT_EQ(error.description(), example.message);
        }
    }
}

TEST_F(SampleVersionTest, RelativePathOnlyForExistingFilesInside) {
    writeFile(version / "Samples/a.wav", "a");
    EXPECT_EQ(relativePath(temp / "latest/Songs/samples/a.wav", temp / "latest"), "Samples/a.wav");
    const struct {
        fs::path file;
        std::string message;
    } refused[] = {
        {version, "The selected file is outside this backup version."},
        {temp / "outside.wav", "The selected file is outside this backup version."},
        {version / "out.wav", "The selected file is outside this backup version."},
        {version / "Samples/gone.wav", "Source file not found: gone.wav"},
    };
    for (const auto& example : refused) {
        try {
            ADD_FAILURE() << relativePath(example.file, version);
        } catch (const BrowseFileError& error) {
            EXPECT_EQ(error.description(), example.message);
        }
    }
}

TEST(SampleReferencesTest, IsInsideComparesWholeComponents) {
    const struct {
        fs::path url, root;
        bool inside;
    } examples[] = {
        {"/v", "/v", true},         {"/v/a.wav", "/v/", true},
        {"/vx/a.wav", "/v", false}, {"/v/../x/a.wav", "/v", false},
        {"/anything", "/", true},
    };
    for (const auto& example : examples)
        EXPECT_EQ(isInside(example.url, example.root), example.inside) << example.url;
}

TEST(SampleReferencesTest, ZeroByteOnlyForAnEmptyRegularFile) {
    test::TempDir temp;
    writeFile(temp / "empty.m8s", "");
    writeFile(temp / "full.m8s", "x");
    fs::create_symlink(temp / "empty.m8s", temp / "link.m8s");
    fs::create_directory(temp / "folder");
    const struct {
        std::string name;
        bool zero;
    } examples[] = {
        {"empty.m8s", true}, {"full.m8s", false}, {"link.m8s", false}, {"folder", false}, {"gone", false}};
    for (const auto& example : examples)
        EXPECT_EQ(isZeroByteFile(temp / example.name), example.zero) << example.name;
}

TEST(SampleReferencesTest, UsageLabelCountsSongsThenInstruments) {
    const struct {
        std::vector<std::string> paths;
        std::string label;
    } examples[] = {
        {{}, ""},
        {{"/Songs/a.m8s"}, "1 song"},
        {{"a.m8s", "b.M8S", "c", "i.m8i"}, "3 songs, 1 instrument"},
        {{"i.M8I", "j.m8i"}, "2 instruments"},
    };
    for (const auto& example : examples) EXPECT_EQ(usageLabel(example.paths), example.label);
}

TEST(SampleReferencesTest, IndexListsEveryPlaceAReferenceCanMean) {
    test::TempDir temp;
    const fs::path version = temp / "version";
    writeFile(version / "Songs/a.m8s",
              songWithSamples({"/Samples/Kick.wav", "snare.wav", "/Samples/Cafe\u0301.wav"}));
    writeFile(version / "Songs/Live/B.M8S", songWithSamples({"/samples/KICK.WAV"}));
    writeFile(version / "Instruments/i.m8i", instrumentWithSample("../Samples/kick.wav"));
    writeFile(version / "Instruments/notes.m8i", "plain text, no header");
    writeFile(version / "Songs/empty.m8s", "");
    writeFile(version / "Instruments/empty.m8i", "");
    fs::copy_file(TAPEKEEP_FIXTURES_DIR "/TEST-FILE.m8s", version / "Songs/TEST-FILE.m8s");
    // Neither is walked: either would stop the index.
    writeFile(version / ".Trashes/bad.m8s", "M8VERSION");
    writeFile(temp / "linked/bad.m8s", "M8VERSION");
    fs::create_directory_symlink(temp / "linked", version / "Linked");

    const auto index = sampleUsageIndex(version);
    auto kickUsers = index.at("/samples/kick.wav");
    std::sort(kickUsers.begin(), kickUsers.end());
    EXPECT_EQ(kickUsers, (std::vector<fs::path>{version / "Instruments/i.m8i", version / "Songs/Live/B.M8S",
                                                version / "Songs/a.m8s"}));
    EXPECT_EQ(index.at("/songs/snare.wav"), std::vector<fs::path>{version / "Songs/a.m8s"});
    EXPECT_EQ(index.at("/snare.wav"), std::vector<fs::path>{version / "Songs/a.m8s"});
    EXPECT_EQ(index.at("/samples/drums/hits/tr505/bass drum 505.wav"),
              std::vector<fs::path>{version / "Songs/TEST-FILE.m8s"});
    EXPECT_EQ(index.size(), 5u);

    const struct {
        fs::path file;
        bool unused;
    } samples[] = {
        {version / "Samples/KICK.wav", false},
        {version / "Samples/Caf\u00e9.wav", false},
        {version / "Samples/hat.wav", true},
        {temp / "Samples/hat.wav", false},
    };
    for (const auto& sample : samples)
        EXPECT_EQ(isUnusedSample(sample.file, version, index), sample.unused) << sample.file;
}

TEST(SampleReferencesTest, IndexStopsWholeAtTheFirstBadFile) {
    const struct {
        std::string name, content, message;
    } examples[] = {
        {"cut.m8s", songWithSamples({}).substr(0, 107965), "Could not read song or instrument: cut.m8s"},
        {"cut.m8i", instrumentWithSample("").substr(0, 20), "Could not read song or instrument: cut.m8i"},
        {"escape.m8s", songWithSamples({"a.wav", "/../../etc/passwd"}),
         "Sample path escapes the backup: /../../etc/passwd"},
    };
    for (const auto& example : examples) {
        test::TempDir temp;
        writeFile(temp / "Songs/good.m8s", songWithSamples({"a.wav"}));
        writeFile(temp / "Songs" / example.name, example.content);
        try {
            ADD_FAILURE() << sampleUsageIndex(temp.path()).size() << " keys for " << example.name;
        } catch (const BrowseFileError& error) {
            EXPECT_EQ(error.description(), example.message);
        }
    }
}

TEST(SampleReferencesTest, WalksStopWhenCancelledOrUnlistable) {
    test::TempDir temp;
    writeFile(temp / "Songs/a.m8s", songWithSamples({}));
    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(m8FileURLs(temp.path(), stop.get_token()), Cancelled);
    EXPECT_THROW(sampleUsageIndex(temp.path(), stop.get_token()), Cancelled);
    EXPECT_THROW(m8FileURLs(temp / "missing"), PosixError);
}

}  // namespace
}  // namespace tapekeep
