#include "backup/RsyncCommands.h"

#include <gtest/gtest.h>

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

TEST(RsyncCommandsTest, EachListHoldsItsFlagsInOrder) {
    const std::string link = "--link-dest=" + previous.string();
    const Args fromList{"--recursive", "--from0", "--files-from=" + listFile.string()};
    const Args songs{"--include=/Songs/", "--include=/Songs/**", "--exclude=*"};
    const Args bracketed{"--include=/Songs/", "--include=/Songs/**", "--include=/Sam\\[ples/",
                         "--include=/Sam\\[ples/**", "--exclude=*"};
    const Args itemized{"--itemize-changes", "--out-format=%i\t%n"};
    const Args basePaths{previous.string() + "/", staging.string() + "/"};
    const Args toCard{previous.string() + "/", card.string() + "/"};
    const Args fat{"--no-perms", "--no-owner", "--no-group", "--omit-dir-times"};
    const Args restore{"-avh", "-u", "--progress", "--stats", "--checksum"};
    const Args copy{"-avh", "--checksum", "--safe-links", "--progress"};
    const std::vector<std::tuple<const char*, Args, Args>> cases{
        {"estimate, linked", estimateArguments(card, staging, previous),
         join({{"-an", "--stats", "--delete"}, E, {link}, paths})},
        {"estimate", estimateArguments(card, staging, std::nullopt),
         join({{"-an", "--stats", "--delete"}, E, paths})},
        {"full, linked", fullBackupArguments(card, staging, previous, true),
         join({{"-avh", "--checksum", "--delete", "--info=progress2"}, E, {link}, paths})},
        {"full, no progress", fullBackupArguments(card, staging, std::nullopt, false),
         join({{"-avh", "--delete"}, E, paths})},
        {"base snapshot, linked", baseSnapshotArguments(previous, staging, true),
         join({{"-a", link, "--checksum"}, E, basePaths})},
        {"base snapshot", baseSnapshotArguments(previous, staging, false),
         join({{"-a", "--checksum"}, E, basePaths})},
        {"folder pass, linked", folderPassArguments(card, staging, {"Songs", "Sam[ples"}, true, previous),
         join({{"-avh", "--checksum", "--delete", "--info=progress2", link}, E, bracketed, paths})},
        {"folder pass", folderPassArguments(card, staging, {"Songs", "Sam[ples"}, false, std::nullopt),
         join({{"-avh", "--checksum", "--delete"}, E, bracketed, paths})},
        {"folder pass, nested",
         folderPassArguments(card, staging, {"Samples/Drums", "Samples/Sam[ples/x", "Songs"}, false,
                             std::nullopt),
         join({{"-avh", "--checksum", "--delete"},
               E,
               {"--include=/Samples/", "--include=/Samples/Drums/", "--include=/Samples/Drums/**",
                "--include=/Samples/Sam\\[ples/", "--include=/Samples/Sam\\[ples/x/",
                "--include=/Samples/Sam\\[ples/x/**", "--include=/Songs/", "--include=/Songs/**",
                "--exclude=*"},
               paths})},
        {"verify nested", verifyArguments(card, staging, Folders{"Songs/Live"}, std::nullopt),
         join({{"-anic"},
               itemized,
               {"--delete"},
               E,
               {"--include=/Songs/", "--include=/Songs/Live/", "--include=/Songs/Live/**", "--exclude=*"},
               paths})},
        {"file list, linked", fileListPassArguments(card, staging, listFile, true, previous),
         join({{"-avh", "--checksum", "--info=progress2", link}, E, fromList, paths})},
        {"file list", fileListPassArguments(card, staging, listFile, false, std::nullopt),
         join({{"-avh", "--checksum"}, E, fromList, paths})},
        {"verify", verifyArguments(card, staging, std::nullopt, std::nullopt),
         join({{"-anic"}, itemized, {"--delete"}, E, paths})},
        {"verify folders", verifyArguments(card, staging, Folders{"Songs"}, std::nullopt),
         join({{"-anic"}, itemized, {"--delete"}, E, songs, paths})},
        {"verify no folder", verifyArguments(card, staging, Folders{}, std::nullopt),
         join({{"-anic"}, itemized, {"--delete"}, E, {"--exclude=*"}, paths})},
        {"verify list", verifyArguments(card, staging, std::nullopt, listFile),
         join({{"-anic"}, itemized, E, fromList, paths})},
        {"restore", wholeRestoreArguments(previous, card), join({restore, fat, E, toCard})},
        {"restore list", restoreFromListArguments(previous, card, listFile),
         join({restore, fat, E, fromList, toCard})},
        {"undo restore", undoRestoreArguments(previous, card, listFile),
         join({{"-avh", "--progress", "--stats", "--checksum"}, fat, E, fromList, toCard})},
        {"preview", restorePreviewArguments(previous, card, std::nullopt),
         join({{"-aniuc"}, itemized, fat, E, toCard})},
        {"preview folders", restorePreviewArguments(previous, card, Folders{"Songs"}),
         join({{"-aniuc"}, itemized, fat, E, songs, toCard})},
        {"preview list", restorePreviewFromListArguments(previous, card, listFile),
         join({{"-aniuc"}, itemized, fat, E, fromList, toCard})},
        {"compare", compareVersionsArguments(previous, staging),
         join({{"-anic", "--delete"}, itemized, E, basePaths})},
        {"copy folder", copyToCardArguments(previous / "Songs", card / "Songs", true),
         join({copy, fat, E, {previous.string() + "/Songs/", card.string() + "/Songs/"}})},
        {"copy file", copyToCardArguments(previous / "Songs/a.m8s", card / "Songs/a.m8s", false),
         join({copy, fat, E, {previous.string() + "/Songs/a.m8s", card.string() + "/Songs/a.m8s"}})},
        {"apply new file",
         applyEditArguments("/tmp/staged/A.wav", card / "Samples/a_trim.wav", true, 0100644),
         join({{"-avh", "--ignore-existing", "--checksum", "--safe-links", "--progress"},
               fat,
               {"--chmod=F644"},
               E,
               {"/tmp/staged/A.wav", card.string() + "/Samples/a_trim.wav"}})},
        {"apply over sample", applyEditArguments("/tmp/staged/A.wav", card / "Samples/a.wav", false),
         join({{"-avh", "--checksum", "--safe-links", "--progress"},
               fat,
               E,
               {"/tmp/staged/A.wav", card.string() + "/Samples/a.wav"}})},
        {"slashes not doubled",
         fullBackupArguments("/media/m8/M8/", staging.string() + "/", std::nullopt, false),
         join({{"-avh", "--delete"}, E, paths})},
    };
    for (const auto& [name, actual, expected] : cases) EXPECT_EQ(actual, expected) << name;
    EXPECT_EQ(folderContents("/"), "/");
}

TEST(RsyncCommandsTest, EscapingIncludePatterns) {
    EXPECT_EQ(escapeIncludePattern("Sam[ples"), "Sam\\[ples");
    EXPECT_EQ(escapeIncludePattern("a*b?c\\d"), "a\\*b\\?c\\\\d");
    EXPECT_EQ(escapeIncludePattern("Kits ]{}!# \u00e9t\u00e9"), "Kits ]{}!# \u00e9t\u00e9");
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

TEST_F(RsyncCommandsWithRsyncTest, NestedFolderPassEntersItsParentsForItAlone) {
    test::writeFile(source / "Samples/Drums/new.wav", "new");
    test::writeFile(source / "Samples/pad.wav", "changed on card");
    test::writeFile(source / "Samples/Keys/a.wav", "not selected");
    test::writeFile(destination / "Samples/Drums/gone.wav", "left the card");
    test::writeFile(destination / "Samples/pad.wav", "snapshot");
    test::writeFile(destination / "Samples/old.wav", "only in snapshot");
    run(folderPassArguments(source, destination, {"Samples/Drums"}, false, std::nullopt));
    EXPECT_EQ(test::readFile(destination / "Samples/Drums/new.wav"), "new");
    EXPECT_FALSE(fs::exists(destination / "Samples/Drums/gone.wav"));
    EXPECT_EQ(test::readFile(destination / "Samples/pad.wav"), "snapshot");
    EXPECT_TRUE(fs::exists(destination / "Samples/old.wav"));
    EXPECT_FALSE(fs::exists(destination / "Samples/Keys"));
}

TEST_F(RsyncCommandsWithRsyncTest, SelectivePassesTouchOnlyTheSelectedFolderOrFiles) {
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

    test::writeFile(source / "Songs/a.m8s", "a");
    test::writeFile(folder / "list", std::string("Songs/a.m8s") + '\0');
    run(fileListPassArguments(source, destination, folder / "list", false, std::nullopt));
    EXPECT_EQ(test::readFile(destination / "Songs/a.m8s"), "a");
    EXPECT_EQ(test::readFile(destination / "Songs/song.m8s"), "snapshot");
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

}  // namespace
}  // namespace tapekeep
