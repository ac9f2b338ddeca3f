#include "backup/RsyncCommands.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "TempDir.h"
#include "backup/RsyncProcess.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;
using Args = std::vector<std::string>;
using namespace RsyncCommands;

const Args E{"--exclude=.DS_Store",           "--exclude=._*",
             "--exclude=.Spotlight-V100",     "--exclude=.Trashes",
             "--exclude=.fseventsd",          "--exclude=.tapekeep-note",
             "--exclude=.tapekeep-sizes.json"};

Args join(std::initializer_list<Args> parts) {
    Args all;
    for (const Args& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

const fs::path card = "/media/m8/M8";
const fs::path staging = "/backups/M8_1234ABCD/.incomplete-X";
const fs::path previous = "/backups/M8_1234ABCD/backup-2026-01-02-030405";
const fs::path listFile = "/tmp/m8-files-X";
const Args paths{"/media/m8/M8/", "/backups/M8_1234ABCD/.incomplete-X/"};

// --- Argument lists, flag by flag ---------------------------------------------------------------

TEST(RsyncCommandsTest, EstimateIsADryRunWithStatsAndNoChecksum) {
    EXPECT_EQ(estimateArguments(card, staging, previous),
              join({{"-an", "--stats", "--delete"}, E, {"--link-dest=" + previous.string()}, paths}));
    EXPECT_EQ(estimateArguments(card, staging, std::nullopt),
              join({{"-an", "--stats", "--delete"}, E, paths}));
}

TEST(RsyncCommandsTest, FullBackupChecksumsExactlyWhenLinking) {
    EXPECT_EQ(fullBackupArguments(card, staging, previous, true),
              join({{"-avh", "--checksum", "--delete", "--info=progress2"},
                    E,
                    {"--link-dest=" + previous.string()},
                    paths}));
    EXPECT_EQ(fullBackupArguments(card, staging, std::nullopt, false),
              join({{"-avh", "--delete"}, E, paths}));
    EXPECT_EQ(fullBackupArguments(card, staging, std::nullopt, true),
              join({{"-avh", "--delete", "--info=progress2"}, E, paths}));
}

TEST(RsyncCommandsTest, BaseSnapshotCopiesThePreviousVersionIntoStaging) {
    const Args basePaths{previous.string() + "/", staging.string() + "/"};
    EXPECT_EQ(baseSnapshotArguments(previous, staging, true),
              join({{"-a", "--link-dest=" + previous.string(), "--checksum"}, E, basePaths}));
    EXPECT_EQ(baseSnapshotArguments(previous, staging, false), join({{"-a", "--checksum"}, E, basePaths}));
}

TEST(RsyncCommandsTest, FolderPassIncludesEachFolderThenExcludesTheRest) {
    const Args includes{"--include=/Songs/", "--include=/Songs/**", "--include=/Sam\\[ples/",
                        "--include=/Sam\\[ples/**", "--exclude=*"};
    EXPECT_EQ(
        folderPassArguments(card, staging, {"Songs", "Sam[ples"}, true, previous),
        join({{"-avh", "--checksum", "--delete", "--info=progress2", "--link-dest=" + previous.string()},
              E,
              includes,
              paths}));
    EXPECT_EQ(folderPassArguments(card, staging, {"Songs", "Sam[ples"}, false, std::nullopt),
              join({{"-avh", "--checksum", "--delete"}, E, includes, paths}));
}

TEST(RsyncCommandsTest, FileListPassReadsTheListAndNeverDeletes) {
    const Args list{"--recursive", "--from0", "--files-from=" + listFile.string()};
    EXPECT_EQ(fileListPassArguments(card, staging, listFile, true, previous),
              join({{"-avh", "--checksum", "--info=progress2", "--link-dest=" + previous.string()},
                    E,
                    list,
                    paths}));
    EXPECT_EQ(fileListPassArguments(card, staging, listFile, false, std::nullopt),
              join({{"-avh", "--checksum"}, E, list, paths}));
}

TEST(RsyncCommandsTest, VerifyForms) {
    const Args flags{"-anic", "--itemize-changes", "--out-format=%i\t%n"};
    EXPECT_EQ(verifyArguments(card, staging, std::nullopt, std::nullopt),
              join({flags, {"--delete"}, E, paths}));
    EXPECT_EQ(
        verifyArguments(card, staging, Folders{"Songs"}, std::nullopt),
        join({flags, {"--delete"}, E, {"--include=/Songs/", "--include=/Songs/**", "--exclude=*"}, paths}));
    EXPECT_EQ(verifyArguments(card, staging, Folders{}, std::nullopt),
              join({flags, {"--delete"}, E, {"--exclude=*"}, paths}));
    EXPECT_EQ(verifyArguments(card, staging, std::nullopt, listFile),
              join({flags, E, {"--recursive", "--from0", "--files-from=" + listFile.string()}, paths}));
}

TEST(RsyncCommandsTest, ItemizedFormatHoldsARealTab) {
    const Args arguments = compareVersionsArguments(previous, staging);
    EXPECT_EQ(arguments[3], std::string("--out-format=%i") + '\t' + "%n");
}

TEST(RsyncCommandsTest, RestoreListsUpdateAndNeverDelete) {
    const Args flags{"-avh", "-u", "--progress", "--stats", "--checksum"};
    const Args restorePaths{previous.string() + "/", card.string() + "/"};
    EXPECT_EQ(wholeRestoreArguments(previous, card), join({flags, E, restorePaths}));
    EXPECT_EQ(
        restoreFromListArguments(previous, card, listFile),
        join({flags, E, {"--recursive", "--from0", "--files-from=" + listFile.string()}, restorePaths}));
}

TEST(RsyncCommandsTest, RestorePreviewForms) {
    const Args flags{"-aniuc", "--itemize-changes", "--out-format=%i\t%n"};
    const Args restorePaths{previous.string() + "/", card.string() + "/"};
    EXPECT_EQ(restorePreviewArguments(previous, card, std::nullopt), join({flags, E, restorePaths}));
    EXPECT_EQ(restorePreviewArguments(previous, card, Folders{"Instruments"}),
              join({flags,
                    E,
                    {"--include=/Instruments/", "--include=/Instruments/**", "--exclude=*"},
                    restorePaths}));
    EXPECT_EQ(
        restorePreviewFromListArguments(previous, card, listFile),
        join({flags, E, {"--recursive", "--from0", "--files-from=" + listFile.string()}, restorePaths}));
}

TEST(RsyncCommandsTest, CompareVersionsRunsFromAToB) {
    EXPECT_EQ(compareVersionsArguments(previous, staging),
              join({{"-anic", "--delete", "--itemize-changes", "--out-format=%i\t%n"},
                    E,
                    {previous.string() + "/", staging.string() + "/"}}));
}

TEST(RsyncCommandsTest, CopyToCardSlashesFoldersOnly) {
    const Args flags{"-avh", "--checksum", "--safe-links", "--progress"};
    EXPECT_EQ(copyToCardArguments(previous / "Songs", card / "Songs", true),
              join({flags, E, {previous.string() + "/Songs/", card.string() + "/Songs/"}}));
    EXPECT_EQ(copyToCardArguments(previous / "Songs/a.m8s", card / "Songs/a.m8s", false),
              join({flags, E, {previous.string() + "/Songs/a.m8s", card.string() + "/Songs/a.m8s"}}));
}

TEST(RsyncCommandsTest, PathAlreadyEndingInSlashGetsNoSecondOne) {
    const Args arguments = fullBackupArguments("/media/m8/M8/", "/backups/staging/", std::nullopt, false);
    EXPECT_EQ(Args(arguments.end() - 2, arguments.end()), (Args{"/media/m8/M8/", "/backups/staging/"}));
    EXPECT_EQ(folderContents("relative/folder"), "relative/folder/");
    EXPECT_EQ(folderContents("/"), "/");
}

TEST(RsyncCommandsTest, EscapingIncludePatterns) {
    EXPECT_EQ(escapeIncludePattern("Sam[ples"), "Sam\\[ples");
    EXPECT_EQ(escapeIncludePattern("a*b?c\\d"), "a\\*b\\?c\\\\d");
    EXPECT_EQ(escapeIncludePattern("Kits ]{}!#"), "Kits ]{}!#");
    EXPECT_EQ(escapeIncludePattern("Drums \u00e9t\u00e9"), "Drums \u00e9t\u00e9");
    EXPECT_EQ(escapeIncludePattern(""), "");
}

// --- The lists against the real rsync -----------------------------------------------------------

class RsyncCommandsWithRsyncTest : public testing::Test {
protected:
    void SetUp() override {
        if (!fs::exists(rsync)) GTEST_SKIP() << "no /usr/bin/rsync on this machine";
    }

    Args run(const Args& arguments) {
        Args lines;
        const int status =
            runRsync(rsync, arguments, [&lines](const std::string& line) { lines.push_back(line); }, {});
        EXPECT_EQ(status, 0) << testing::PrintToString(lines);
        return lines;
    }

    // Itemised lines that report a change: rsync also lists untouched folders as ".d" and blanks.
    static Args differences(const Args& lines) {
        Args changed;
        std::copy_if(lines.begin(), lines.end(), std::back_inserter(changed), [](const std::string& line) {
            const std::string flags = line.substr(0, line.find('\t'));
            return !flags.starts_with('.') || flags.find_first_not_of(' ', 2) != std::string::npos;
        });
        return changed;
    }

    static bool hasLine(const Args& lines, const std::string& line) {
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    }

    const std::string rsync = "/usr/bin/rsync";
    test::TempDir folder;
    fs::path source = folder / "card";
    fs::path destination = folder / "backup";
};

TEST_F(RsyncCommandsWithRsyncTest, FullBackupCopiesContentsAndSkipsExcludedNames) {
    test::writeFile(source / "Songs/song.m8s", "song");
    for (const char* name : {".DS_Store", "._song.m8s", ".tapekeep-note", ".tapekeep-sizes.json"})
        test::writeFile(source / name, "litter");
    test::writeFile(source / ".Trashes/501/x", "trash");
    run(fullBackupArguments(source, destination, std::nullopt, true));
    EXPECT_EQ(test::readFile(destination / "Songs/song.m8s"), "song");
    EXPECT_FALSE(fs::exists(destination / "card"));
    for (const char* name : {".DS_Store", "._song.m8s", ".tapekeep-note", ".tapekeep-sizes.json", ".Trashes"})
        EXPECT_FALSE(fs::exists(destination / name)) << name;
}

TEST_F(RsyncCommandsWithRsyncTest, LinkedBackupHardLinksUnchangedFiles) {
    test::writeFile(source / "Samples/kick.wav", "kick");
    const fs::path first = folder / "first";
    run(fullBackupArguments(source, first, std::nullopt, false));
    run(fullBackupArguments(source, destination, first, true));
    struct stat linked {};
    struct stat original {};
    ASSERT_EQ(::stat((destination / "Samples/kick.wav").c_str(), &linked), 0);
    ASSERT_EQ(::stat((first / "Samples/kick.wav").c_str(), &original), 0);
    EXPECT_EQ(linked.st_ino, original.st_ino);
}

TEST_F(RsyncCommandsWithRsyncTest, FolderPassTouchesOnlyTheSelectedFolderEvenWithBrackets) {
    test::writeFile(source / "Sam[ples/new.wav", "new");
    test::writeFile(source / "Songs/song.m8s", "changed on card");
    test::writeFile(destination / "Sam[ples/gone.wav", "left the card");
    test::writeFile(destination / "Songs/song.m8s", "snapshot");
    test::writeFile(destination / "Songs/old.m8s", "only in snapshot");
    run(folderPassArguments(source, destination, {"Sam[ples"}, false, std::nullopt));
    EXPECT_EQ(test::readFile(destination / "Sam[ples/new.wav"), "new");
    EXPECT_FALSE(fs::exists(destination / "Sam[ples/gone.wav"));
    EXPECT_EQ(test::readFile(destination / "Songs/song.m8s"), "snapshot");
    EXPECT_TRUE(fs::exists(destination / "Songs/old.m8s"));
}

TEST_F(RsyncCommandsWithRsyncTest, FileListPassCopiesOnlyListedFiles) {
    test::writeFile(source / "Songs/a.m8s", "a");
    test::writeFile(source / "Songs/b.m8s", "b");
    const fs::path list = folder / "list";
    test::writeFile(list, std::string("Songs/a.m8s") + '\0');
    run(fileListPassArguments(source, destination, list, false, std::nullopt));
    EXPECT_EQ(test::readFile(destination / "Songs/a.m8s"), "a");
    EXPECT_FALSE(fs::exists(destination / "Songs/b.m8s"));
}

TEST_F(RsyncCommandsWithRsyncTest, VerifyFindsAContentChangeThatSizeAndTimeHide) {
    test::writeFile(source / "Songs/song.m8s", "original");
    run(fullBackupArguments(source, destination, std::nullopt, false));
    EXPECT_EQ(differences(run(verifyArguments(source, destination, std::nullopt, std::nullopt))), Args{});
    const auto time = fs::last_write_time(destination / "Songs/song.m8s");
    test::writeFile(destination / "Songs/song.m8s", "ORIGINAL");
    fs::last_write_time(destination / "Songs/song.m8s", time);
    EXPECT_EQ(differences(run(verifyArguments(source, destination, std::nullopt, std::nullopt))),
              Args{">fc........\tSongs/song.m8s"});
}

TEST_F(RsyncCommandsWithRsyncTest, CompareVersionsReportsAddedAndDeletedFromA) {
    test::writeFile(source / "only-in-a.wav", "a");
    test::writeFile(destination / "only-in-b.wav", "b");
    const Args lines = run(compareVersionsArguments(source, destination));
    EXPECT_TRUE(hasLine(lines, ">f+++++++++\tonly-in-a.wav")) << testing::PrintToString(lines);
    EXPECT_TRUE(hasLine(lines, "*deleting  \tonly-in-b.wav")) << testing::PrintToString(lines);
    EXPECT_FALSE(fs::exists(destination / "only-in-a.wav"));
}

TEST_F(RsyncCommandsWithRsyncTest, EstimateReportsSizesAndWritesNothing) {
    test::writeFile(source / "Samples/kick.wav", std::string(5000, 'k'));
    fs::create_directories(destination);
    const Args lines = run(estimateArguments(source, destination, std::nullopt));
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
        return line.starts_with("Total transferred file size: ");
    }));
    EXPECT_TRUE(fs::is_empty(destination));
}

}  // namespace
}  // namespace tapekeep
