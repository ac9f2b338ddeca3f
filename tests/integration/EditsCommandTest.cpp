#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "CliProcess.h"
#include "TempDir.h"
#include "core/Uuid.h"
#include "edits/EditManifestStore.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using Json = nlohmann::json;
using test::writeFile;

// A set with staged edits, written by the store as the application writes them, listed by the CLI.
class EditsCommandTest : public ::testing::Test {
protected:
    void SetUp() override { fs::create_directories(base_ / set_ / "backup-2026-01-01-100000"); }

    EditEntry stage(EditMode mode, const std::string& source, const std::string& target) {
        EditEntry edit;
        edit.id = makeUuid();
        edit.mode = mode;
        edit.createdAt = TimePoint(std::chrono::seconds(1'767'261'600));
        edit.sourceVersionFolder = "backup-2026-01-01-100000";
        edit.sourceRelativePath = source;
        edit.targetRelativePath = target;
        edit.stagedFileName = edit.id + ".wav";
        edit.parameters.sampleTrim = {0.5, 1.0, 2.0};
        const auto rendered = temp_ / (edit.id + ".wav");
        writeFile(rendered, "RIFF");
        store_.addEdit(edit, rendered, set_);
        return edit;
    }

    test::CliResult edits(std::vector<std::string> operands, bool json = true) const {
        std::vector<std::string> arguments{"--base", base_.string()};
        if (json) arguments.push_back("--json");
        arguments.insert(arguments.end(), {"edits", "--"});
        arguments.insert(arguments.end(), operands.begin(), operands.end());
        return test::runCli(temp_ / "home", arguments);
    }

    test::TempDir temp_;
    const fs::path base_ = temp_ / "store";
    const std::string set_ = "M8CARD_4C3C645B";
    EditManifestStore store_{base_};
};

TEST_F(EditsCommandTest, ListsEveryEditInStagingOrderWithItsState) {
    const auto trim = stage(EditMode::saveAsNew, "/Samples/kick.wav", "/Samples/kick_trim.wav");
    const auto over = stage(EditMode::overwrite, "/Samples/snare.wav", "/Samples/snare.wav");
    store_.markApplied(trim, set_);

    const auto result = edits({set_, "list"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(Json::parse(result.out), Json({{"edits",
                                              {{{"id", trim.id},
                                                {"mode", "saveAsNew"},
                                                {"target", "/Samples/kick_trim.wav"},
                                                {"state", "applied"}},
                                               {{"id", over.id},
                                                {"mode", "overwrite"},
                                                {"target", "/Samples/snare.wav"},
                                                {"state", "pending"}}}}}));

    const auto plain = edits({set_, "list"}, false);
    ASSERT_EQ(plain.status, 0) << plain.err;
    EXPECT_EQ(plain.out, trim.id + "\tsaveAsNew\t/Samples/kick_trim.wav\tapplied\n" + over.id +
                             "\toverwrite\t/Samples/snare.wav\tpending\n");
}

TEST_F(EditsCommandTest, ASetWithoutEditsListsNone) {
    const auto result = edits({set_, "list"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(Json::parse(result.out), Json({{"edits", Json::array()}}));
    EXPECT_FALSE(fs::exists(base_ / ".edits"));
}

TEST_F(EditsCommandTest, AnUnknownSetOrActionIsAUsageError) {
    const auto unknown = edits({"M8CARD_00000000", "list"});
    EXPECT_EQ(unknown.status, 2) << unknown.err;
    EXPECT_EQ(unknown.lastErrorLine, "Unknown backup set \"M8CARD_00000000\".");
    EXPECT_EQ(edits({"../store", "list"}).status, 2);
    EXPECT_EQ(edits({set_, "frobnicate"}).status, 2);
    EXPECT_EQ(edits({set_}).status, 2);
}

TEST_F(EditsCommandTest, ADamagedOrLinkedStorageFailsWithTheStoresText) {
    writeFile(base_ / ".edits" / set_ / "manifest.json",
              R"({"backupRootName":"other","edits":[],"schemaVersion":1})");
    const auto damaged = edits({set_, "list"});
    EXPECT_EQ(damaged.status, 1) << damaged.err;
    EXPECT_EQ(damaged.lastErrorLine,
              "Failed to decode manifest: Manifest belongs to a different backup root.");

    fs::rename(base_ / ".edits", temp_ / "elsewhere");
    fs::create_directory_symlink(temp_ / "elsewhere", base_ / ".edits");
    const auto linked = edits({set_, "list"});
    EXPECT_EQ(linked.status, 1) << linked.err;
    EXPECT_EQ(linked.lastErrorLine, "Edit storage contains a symbolic link: " + (base_ / ".edits").string());
}

}  // namespace
}  // namespace tapekeep
