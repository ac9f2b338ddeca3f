#include "backup/AtomicFileExport.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <regex>
#include <stop_token>

#include "FileContent.h"
#include "FileSnapshot.h"
#include "TempDir.h"
#include "backup/AtomicFileExportError.h"
#include "core/Cancelled.h"
#include "core/PosixError.h"
#include "platform/FileTimes.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;
using test::exportTemporariesBelow;
using test::FileSnapshot;
using test::pseudoRandomBytes;
using test::readFile;
using test::TempDir;
using test::writeFile;
using Kind = AtomicFileExportError::Kind;

// What an export raised, or nothing when it published.
std::optional<Kind> refusal(const std::function<void()>& exporting) {
    try {
        exporting();
    } catch (const AtomicFileExportError& error) {
        return error.kind();
    }
    return std::nullopt;
}

class AtomicFileExportTest : public ::testing::Test {
protected:
    void SetUp() override {
        writeFile(source_, pseudoRandomBytes(3 * 1024 * 1024 + 17, 4));  // more than one copy block
        writeFile(destination_, "the old export");
    }

    TempDir temp_;
    fs::path source_ = temp_ / "version/Samples/Kick.wav";
    fs::path destination_ = temp_ / "out/Kick.wav";
};

TEST(AtomicFileExportNameTest, TheTemporaryIsAHiddenNeighbourThatKeepsTheExtensionLast) {
    const struct {
        const char* destination;
        std::string pattern;
    } cases[] = {
        {"/music/Kick.wav", "\\.Kick-export-UUID\\.tmp\\.wav"},
        {"/music/README", "\\.README-export-UUID\\.tmp"},
        {"/music/set.tar.gz", "\\.set\\.tar-export-UUID\\.tmp\\.gz"},
    };
    for (const auto& [destination, pattern] : cases) {
        const fs::path temporary = AtomicFileExport::temporaryPath(destination);
        EXPECT_EQ(temporary.parent_path(), fs::path(destination).parent_path()) << destination;
        const std::string expected = std::regex_replace(
            pattern, std::regex("UUID"), "[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}");
        EXPECT_TRUE(std::regex_match(temporary.filename().string(), std::regex(expected)))
            << destination << " -> " << temporary;
    }
    EXPECT_NE(AtomicFileExport::temporaryPath("/a.wav"), AtomicFileExport::temporaryPath("/a.wav"));
}

TEST_F(AtomicFileExportTest, ACopyReplacesTheOldFileWholeWithTheSourcesModeAndTime) {
    fs::permissions(source_, fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
    struct stat before {};
    ASSERT_EQ(::stat(source_.c_str(), &before), 0);

    AtomicFileExport::copy(source_, destination_, {});

    EXPECT_EQ(readFile(destination_), readFile(source_));
    struct stat copied {};
    ASSERT_EQ(::stat(destination_.c_str(), &copied), 0);
    EXPECT_EQ(copied.st_mode & 07777, 0640u);
    EXPECT_EQ(copied.st_mtim.tv_sec, before.st_mtim.tv_sec);
    EXPECT_EQ(copied.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
    EXPECT_NE(copied.st_ino, before.st_ino);
    EXPECT_TRUE(exportTemporariesBelow(destination_.parent_path()).empty());
}

TEST_F(AtomicFileExportTest, TheSourceItselfIsNeverOverwrittenByPathLinkOrHardLink) {
    fs::create_hard_link(source_, temp_ / "out/hard.wav");
    fs::create_symlink(source_, temp_ / "out/soft.wav");
    const FileSnapshot original = FileSnapshot::of(source_);
    for (const fs::path& destination : {source_, temp_ / "out/hard.wav", temp_ / "out/soft.wav",
                                        temp_ / "version/Samples/../Samples/Kick.wav"}) {
        EXPECT_EQ(refusal([&] { AtomicFileExport::copy(source_, destination, {}); }),
                  Kind::sourceAndDestinationAreSame)
            << destination;
        EXPECT_TRUE(exportTemporariesBelow(destination.parent_path()).empty()) << destination;
    }
    EXPECT_EQ(FileSnapshot::of(source_), original);
    EXPECT_TRUE(fs::is_symlink(temp_ / "out/soft.wav"));
}

TEST_F(AtomicFileExportTest, TheRefusalsSayTheApplicationsWords) {
    EXPECT_EQ(AtomicFileExportError::sourceAndDestinationAreSame().description(),
              "Refusing to overwrite the export source.");
    EXPECT_EQ(AtomicFileExportError::sourceChangedDuringExport().description(),
              "The export source changed while it was being read.");
    EXPECT_EQ(AtomicFileExportError::outputMissing().description(),
              "The export did not produce an output file.");
}

TEST_F(AtomicFileExportTest, ASourceTouchedWhileItIsReadLeavesTheOldDestination) {
    const std::string content = readFile(source_);
    const auto touching = [&](const fs::path& temporary) {
        writeFile(temporary, content);
        setModificationTimeToNow(source_);  // no byte changes
    };
    EXPECT_EQ(refusal([&] { AtomicFileExport::exportFile(source_, destination_, touching, {}); }),
              Kind::sourceChangedDuringExport);
    EXPECT_EQ(readFile(destination_), "the old export");
    EXPECT_TRUE(exportTemporariesBelow(destination_.parent_path()).empty());

    // Replaced by another file of the same bytes under the same name: another inode, so changed too.
    const auto replacing = [&](const fs::path& temporary) {
        writeFile(temporary, content);
        writeFile(temp_ / "version/other", content);
        fs::rename(temp_ / "version/other", source_);
    };
    EXPECT_EQ(refusal([&] { AtomicFileExport::exportFile(source_, destination_, replacing, {}); }),
              Kind::sourceChangedDuringExport);
    EXPECT_EQ(readFile(destination_), "the old export");
}

TEST_F(AtomicFileExportTest, ASourceThatBecameTheDestinationIsRefusedAtTheEnd) {
    const std::string content = readFile(source_);
    const auto linking = [&](const fs::path& temporary) {
        writeFile(temporary, "new");
        fs::remove(destination_);
        fs::create_symlink(source_, destination_);  // leaves the source's fingerprint as it was
    };
    EXPECT_EQ(refusal([&] { AtomicFileExport::exportFile(source_, destination_, linking, {}); }),
              Kind::sourceAndDestinationAreSame);
    EXPECT_EQ(readFile(source_), content);
    EXPECT_TRUE(fs::is_symlink(destination_));
    EXPECT_TRUE(exportTemporariesBelow(destination_.parent_path()).empty());
}

TEST_F(AtomicFileExportTest, AWriterThatWritesNothingPublishesNothing) {
    EXPECT_EQ(
        refusal([&] { AtomicFileExport::exportFile(source_, destination_, [](const fs::path&) {}, {}); }),
        Kind::outputMissing);
    EXPECT_EQ(readFile(destination_), "the old export");
}

TEST_F(AtomicFileExportTest, AFailingWriterLeavesNoTemporaryAndTheOldDestination) {
    struct WriterFailure : std::runtime_error {
        WriterFailure() : std::runtime_error("the writer failed") {}
    };
    const auto failing = [](const fs::path& temporary) {
        writeFile(temporary, "half");
        throw WriterFailure();
    };
    EXPECT_THROW(AtomicFileExport::exportFile(source_, destination_, failing, {}), WriterFailure);
    EXPECT_EQ(readFile(destination_), "the old export");
    EXPECT_TRUE(exportTemporariesBelow(destination_.parent_path()).empty());
}

TEST_F(AtomicFileExportTest, CancellationLeavesNoTemporaryAndTheOldDestination) {
    std::stop_source stop;
    const auto cancelling = [&](const fs::path& temporary) {
        writeFile(temporary, "whole, but cancelled");
        stop.request_stop();
    };
    EXPECT_THROW(AtomicFileExport::exportFile(source_, destination_, cancelling, stop.get_token()),
                 Cancelled);
    EXPECT_EQ(readFile(destination_), "the old export");
    EXPECT_TRUE(exportTemporariesBelow(destination_.parent_path()).empty());

    bool called = false;
    EXPECT_THROW(AtomicFileExport::exportFile(
                     source_, destination_, [&](const fs::path&) { called = true; }, stop.get_token()),
                 Cancelled);
    EXPECT_FALSE(called);
    EXPECT_THROW(AtomicFileExport::copy(source_, destination_, stop.get_token()), Cancelled);
    EXPECT_EQ(readFile(destination_), "the old export");
    EXPECT_TRUE(exportTemporariesBelow(destination_.parent_path()).empty());
}

TEST_F(AtomicFileExportTest, WithoutASourceTheWriterAlonePublishes) {
    // Even over the file that would be the source: nothing is compared when none is named.
    AtomicFileExport::exportFile(std::nullopt, source_,
                                 [](const fs::path& temporary) { writeFile(temporary, "trim"); }, {});
    EXPECT_EQ(readFile(source_), "trim");
    EXPECT_TRUE(exportTemporariesBelow(source_.parent_path()).empty());
}

TEST_F(AtomicFileExportTest, SystemFailuresCarryTheirErrnoAndLeaveNoTemporary) {
    const auto codeOf = [](const std::function<void()>& exporting) {
        try {
            exporting();
        } catch (const PosixError& error) {
            return error.code();
        }
        return 0;
    };
    EXPECT_EQ(codeOf([&] { AtomicFileExport::copy(temp_ / "version/missing.wav", destination_, {}); }),
              ENOENT);
    EXPECT_EQ(codeOf([&] { AtomicFileExport::copy(source_, temp_ / "nowhere/Kick.wav", {}); }), ENOENT);
    // A folder full of things cannot be replaced by a file.
    writeFile(temp_ / "out/Folder.wav/inside", "kept");
    EXPECT_EQ(codeOf([&] { AtomicFileExport::copy(source_, temp_ / "out/Folder.wav", {}); }), EISDIR);
    EXPECT_EQ(readFile(temp_ / "out/Folder.wav/inside"), "kept");
    EXPECT_TRUE(exportTemporariesBelow(temp_ / "out").empty());
}

}  // namespace
}  // namespace tapekeep
