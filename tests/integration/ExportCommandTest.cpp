// export and export-file through the real CLI, on versions laid out on disk as a backup leaves them:
// what is refused and in which words, and that neither a change of the source, a failure nor a
// SIGTERM ever leaves a temporary file or touches the file already at the destination.

#include <gtest/gtest.h>

#include <csignal>
#include <nlohmann/json.hpp>

#include "CliProcess.h"
#include "FatCard.h"
#include "FileContent.h"
#include "FileSnapshot.h"
#include "LiveProcesses.h"
#include "TempDir.h"
#include "platform/FileTimes.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using test::CliProcess;
using test::CliResult;
using test::exportTemporariesBelow;
using test::FileSnapshot;
using test::pseudoRandomBytes;
using test::readFile;
using test::treeOf;
using test::writeFile;

constexpr const char* setName = "M8CARD_1234ABCD";
constexpr const char* versionName = "backup-2024-05-01-120000";

class ExportCommandTest : public ::testing::Test {
protected:
    void SetUp() override {
        writeFile(version_ / "Songs/DEMO.m8s", pseudoRandomBytes(110566, 1));
        writeFile(version_ / "Samples/pad.wav", pseudoRandomBytes(3'000'000, 2));
        writeFile(version_ / "Samples/kick.wav", pseudoRandomBytes(20'000, 3));
        writeFile(version_ / "Samples/-dash.wav", "named like an option");
        fs::create_symlink("/etc/hostname", version_ / "Samples/outside.wav");
        fs::create_symlink(versionName, set_ / "latest");
        fs::create_directories(out_);
    }

    CliResult cli(std::vector<std::string> arguments,
                  const std::map<std::string, std::string>& environment = {}) const {
        arguments.insert(arguments.begin(), {"--base", base_.string()});
        return test::runCli(home_, arguments, environment);
    }

    // The command started, paused at `step` (the marker file is there), still running.
    std::unique_ptr<CliProcess> pausedAt(const std::string& step, std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"--base", base_.string()});
        auto process = std::make_unique<CliProcess>(
            home_, arguments,
            std::map<std::string, std::string>{{"TAPEKEEP_TEST_PAUSE_AT", step},
                                               {"TAPEKEEP_TEST_PAUSE_MARKER", marker_.string()}});
        EXPECT_TRUE(test::waitUntil([&] { return fs::exists(marker_) || process->hasExited(); }) &&
                    fs::exists(marker_))
            << process->err();
        return process;
    }

    test::TempDir temp_;
    fs::path home_ = temp_ / "home";
    fs::path base_ = temp_ / "backups";
    fs::path set_ = base_ / setName;
    fs::path version_ = set_ / versionName;
    fs::path out_ = temp_ / "out";
    fs::path marker_ = temp_ / "paused";
};

// ---- export-file ------------------------------------------------------------------------------

TEST_F(ExportCommandTest, ExportFileWritesTheVersionsFileAndSaysWhere) {
    const auto json =
        cli({"--json", "export-file", setName, "latest", "/Samples/pad.wav", (out_ / "pad.wav").string()});
    ASSERT_EQ(json.status, 0) << json.err;
    EXPECT_EQ(nlohmann::json::parse(json.out), (nlohmann::json{{"file", (out_ / "pad.wav").string()}}));
    EXPECT_EQ(readFile(out_ / "pad.wav"), readFile(version_ / "Samples/pad.wav"));

    const auto plain =
        cli({"export-file", setName, versionName, "--", "Samples/-dash.wav", (out_ / "-dash.wav").string()});
    ASSERT_EQ(plain.status, 0) << plain.err;
    EXPECT_EQ(plain.out, (out_ / "-dash.wav").string() + "\n");
    EXPECT_EQ(readFile(out_ / "-dash.wav"), "named like an option");
    EXPECT_TRUE(exportTemporariesBelow(temp_.path()).empty());
}

TEST_F(ExportCommandTest, ExportFileNeverWritesOverItsSourceThroughAHardLink) {
    fs::create_hard_link(version_ / "Samples/pad.wav", out_ / "pad.wav");
    const FileSnapshot before = FileSnapshot::of(version_ / "Samples/pad.wav");
    const auto result =
        cli({"export-file", setName, "latest", "Samples/pad.wav", (out_ / "pad.wav").string()});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.lastErrorLine, "Refusing to overwrite the export source.");
    EXPECT_EQ(FileSnapshot::of(version_ / "Samples/pad.wav"), before);
    EXPECT_EQ(FileSnapshot::of(out_ / "pad.wav"), before);
    EXPECT_TRUE(exportTemporariesBelow(temp_.path()).empty());
}

TEST_F(ExportCommandTest, ExportFileRefusesWhatIsNoFileOfTheVersionInTheApplicationsWords) {
    writeFile(out_ / "kept.wav", "kept");
    const auto store = treeOf(base_);
    const auto exports = treeOf(out_);
    const std::string kept = (out_ / "kept.wav").string();
    const struct {
        std::vector<std::string> arguments;
        int status;
        std::string message;
    } cases[] = {
        {{"export-file", setName, "latest", "Samples", kept}, 1, "Unsupported source type: Samples"},
        {{"export-file", setName, "latest", "Samples/none.wav", kept}, 1, "Source file not found: none.wav"},
        {{"export-file", setName, "latest", "../../../home", kept},
         1,
         "The selected file is outside this backup version."},
        {{"export-file", setName, "latest", "Samples/outside.wav", kept},
         1,
         "The selected file is outside this backup version."},
        {{"export-file", setName, "latest", "", kept},
         1,
         "The selected file is outside this backup version."},
        {{"export-file", setName, "backup-2020-01-01-000000", "Samples/pad.wav", kept},
         2,
         "Unknown version \"backup-2020-01-01-000000\" in M8CARD_1234ABCD."},
        {{"export-file", "../backups", "latest", "Samples/pad.wav", kept},
         2,
         "Unknown backup set \"../backups\"."},
        {{"export-file", setName, "latest", "Samples/pad.wav", out_.string()},
         2,
         out_.string() + " is a folder. Name the file to write in it."},
        {{"export-file", setName, "latest", "Samples/pad.wav", (temp_ / "none/pad.wav").string()},
         2,
         "There is no folder " + (temp_ / "none").string() + " to write into."},
        {{"export-file", setName, "latest", "Samples/pad.wav"},
         2,
         "Usage: tapekeep-cli export-file SET VERSION PATH DEST"},
    };
    for (const auto& [arguments, status, message] : cases) {
        const auto result = cli(arguments);
        EXPECT_EQ(result.status, status) << arguments[3];
        EXPECT_EQ(result.lastErrorLine, message) << arguments[3];
        EXPECT_TRUE(result.out.empty()) << arguments[3];
    }
    EXPECT_TRUE(treeOf(base_) == store);
    EXPECT_TRUE(treeOf(out_) == exports);
}

TEST_F(ExportCommandTest, ASourceTouchedWhileItIsCopiedLeavesTheOldFile) {
    writeFile(out_ / "pad.wav", "the old export");
    auto paused = pausedAt(
        "export-written", {"export-file", setName, "latest", "Samples/pad.wav", (out_ / "pad.wav").string()});
    ASSERT_EQ(exportTemporariesBelow(out_).size(), 1u);      // the copy is written, not yet checked
    setModificationTimeToNow(version_ / "Samples/pad.wav");  // the bytes stay as they were
    fs::remove(marker_);
    EXPECT_EQ(paused->waitAtMost(std::chrono::seconds(60)), 1);
    EXPECT_EQ(paused->lastErrorLine(), "The export source changed while it was being read.");
    EXPECT_EQ(readFile(out_ / "pad.wav"), "the old export");
    EXPECT_TRUE(exportTemporariesBelow(temp_.path()).empty());
}

TEST_F(ExportCommandTest, ASigtermWhileTheCopyIsWrittenLeavesNoTemporaryAndTheOldFile) {
    writeFile(out_ / "pad.wav", "the old export");
    auto paused = pausedAt(
        "export-written", {"export-file", setName, "latest", "Samples/pad.wav", (out_ / "pad.wav").string()});
    ASSERT_EQ(exportTemporariesBelow(out_).size(), 1u);
    paused->signal(SIGTERM);
    EXPECT_EQ(paused->waitAtMost(std::chrono::seconds(60)), 130);
    EXPECT_EQ(paused->lastErrorLine(), "Cancelled.");
    EXPECT_EQ(readFile(out_ / "pad.wav"), "the old export");
    EXPECT_TRUE(exportTemporariesBelow(temp_.path()).empty());
}

// ---- export -----------------------------------------------------------------------------------

TEST_F(ExportCommandTest, AZipInsideTheVersionIsRefusedWithNothingWritten) {
    fs::create_symlink(version_, out_ / "version link");
    fs::create_symlink(set_, out_ / "set link");
    const auto before = treeOf(base_);
    for (const fs::path& destination :
         {version_ / "gig.zip", version_ / "Samples/gig.zip", set_ / "latest/gig.zip",
          out_ / "version link/gig.zip", out_ / "set link/latest/Songs/gig.zip",
          out_ / "set link" / versionName / "gig.zip"}) {
        const auto result = cli({"--json", "export", setName, "latest", destination.string()});
        EXPECT_EQ(result.status, 1) << destination;
        EXPECT_EQ(result.lastErrorLine, "Choose a ZIP destination outside the folder being exported.")
            << destination;
        EXPECT_TRUE(result.out.empty()) << destination;
    }
    EXPECT_TRUE(treeOf(base_) == before);
    EXPECT_TRUE(exportTemporariesBelow(temp_.path()).empty());
}

TEST_F(ExportCommandTest, AZipOfTheVersionHasItsFolderOnTopAndPassesUnzipsTest) {
    const fs::path archive = out_ / "gig.zip";
    const auto result = cli({"export", "--json", setName, "latest", archive.string()});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(nlohmann::json::parse(result.out), (nlohmann::json{{"archive", archive.string()}}));
    std::string listing;
    ASSERT_EQ(test::runShell("unzip -Z1 " + test::shellQuote(archive.string()), &listing), 0) << listing;
    EXPECT_TRUE(listing.starts_with(std::string(versionName) + "/\n")) << listing;
    EXPECT_NE(listing.find(std::string(versionName) + "/Samples/outside.wav\n"), std::string::npos)
        << listing;
    std::string tested;
    EXPECT_EQ(test::runShell("unzip -tqq " + test::shellQuote(archive.string()), &tested), 0) << tested;
}

TEST_F(ExportCommandTest, AnEntryAddedToTheVersionMeanwhileLeavesTheOldArchive) {
    writeFile(out_ / "gig.zip", "the old archive");
    auto paused = pausedAt("export-written", {"export", setName, "latest", (out_ / "gig.zip").string()});
    writeFile(version_ / "late.wav", "added while it was archived");
    fs::remove(marker_);
    EXPECT_EQ(paused->waitAtMost(std::chrono::seconds(60)), 1);
    EXPECT_EQ(paused->lastErrorLine(), "The export source changed while it was being read.");
    EXPECT_EQ(readFile(out_ / "gig.zip"), "the old archive");
    EXPECT_TRUE(exportTemporariesBelow(temp_.path()).empty());
}

TEST_F(ExportCommandTest, ASigtermWhileTheZipIsWrittenLeavesNoTemporaryAndTheOldArchive) {
    writeFile(out_ / "gig.zip", "the old archive");
    auto paused = pausedAt("zip-entry", {"export", setName, "latest", (out_ / "gig.zip").string()});
    ASSERT_EQ(exportTemporariesBelow(out_).size(), 1u);  // one file in, the rest to come
    paused->signal(SIGTERM);
    EXPECT_EQ(paused->waitAtMost(std::chrono::seconds(60)), 130);
    EXPECT_EQ(paused->lastErrorLine(), "Cancelled.");
    EXPECT_EQ(readFile(out_ / "gig.zip"), "the old archive");
    EXPECT_TRUE(exportTemporariesBelow(temp_.path()).empty());
}

}  // namespace
}  // namespace tapekeep
