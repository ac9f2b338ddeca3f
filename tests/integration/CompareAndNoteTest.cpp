#include <gtest/gtest.h>

#include <filesystem>

#include <nlohmann/json.hpp>

#include "CliProcess.h"
#include "TempDir.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using test::writeFile;
using Json = nlohmann::json;

// A set of two versions on disk, compared and annotated, and the CLI run over it.
class CompareAndNoteTest : public ::testing::Test {
protected:
    void SetUp() override {
        writeFile(older_ / "Songs/KEEP.m8s", "kept");
        writeFile(older_ / "Songs/GONE.m8s", "deleted later");
        writeFile(newer_ / "Songs/KEEP.m8s", "kept");
        writeFile(newer_ / "Samples/new.wav", "recorded later");
        fs::create_directory_symlink(newer_.filename(), set_ / "latest");
    }

    test::CliResult run(const std::string& command, const std::vector<std::string>& operands) const {
        std::vector<std::string> arguments{"--base", (temp_ / "store").string(), "--json", command, "--"};
        arguments.insert(arguments.end(), operands.begin(), operands.end());
        return test::runCli(temp_ / "home", arguments);
    }
    test::CliResult compare(const std::vector<std::string>& operands) const {
        return run("compare", operands);
    }
    test::CliResult note(const std::vector<std::string>& operands) const { return run("note", operands); }

    test::TempDir temp_;
    const fs::path set_ = temp_ / "store/M8CARD_4C3C645B";
    const fs::path older_ = set_ / "backup-2026-01-01-100000";
    const fs::path newer_ = set_ / "backup-2026-01-02-100000";
};

TEST_F(CompareAndNoteTest, ListsWhatTheFirstVersionHasThatTheSecondLacksAsAdded) {
    const auto result = compare({"M8CARD_4C3C645B", "latest", "backup-2026-01-01-100000"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(
        Json::parse(result.out),
        Json({{"added", {"Samples/new.wav"}}, {"modified", Json::array()}, {"deleted", {"Songs/GONE.m8s"}}}));

    const auto same = compare({"M8CARD_4C3C645B", "latest", "backup-2026-01-02-100000"});
    EXPECT_EQ(same.status, 1) << same.err;
    EXPECT_EQ(same.lastErrorLine, "Select two different versions.");
}

TEST_F(CompareAndNoteTest, AnUnknownVersionIsAUsageError) {
    const auto result = compare({"M8CARD_4C3C645B", "backup-2026-01-01-100000", "backup-2030-01-01-100000"});
    EXPECT_EQ(result.status, 2) << result.err;
    EXPECT_EQ(result.lastErrorLine, "Unknown version \"backup-2030-01-01-100000\" in M8CARD_4C3C645B.");
}

TEST_F(CompareAndNoteTest, ANoteIsWrittenTrimmedReadBackAndClearedByAnEmptyText) {
    const std::vector<std::string> version{"M8CARD_4C3C645B", "latest"};
    auto with = [&](std::vector<std::string> operands) {
        operands.insert(operands.begin(), version.begin(), version.end());
        return operands;
    };
    const auto written = note(with({"  -before the gig\n"}));
    ASSERT_EQ(written.status, 0) << written.err;
    EXPECT_EQ(Json::parse(written.out), Json({{"note", "-before the gig"}}));
    EXPECT_EQ(test::readFile(newer_ / ".tapekeep-note"), "-before the gig");
    EXPECT_EQ(Json::parse(note(version).out), Json({{"note", "-before the gig"}}));

    const auto cleared = note(with({""}));
    ASSERT_EQ(cleared.status, 0) << cleared.err;
    EXPECT_EQ(Json::parse(cleared.out), Json({{"note", nullptr}}));
    EXPECT_FALSE(fs::exists(newer_ / ".tapekeep-note"));
}

TEST_F(CompareAndNoteTest, ANoteThatCannotBeSavedSaysSoAndChangesNothing) {
    // A folder in the note's place: the new note's rename cannot replace it.
    writeFile(older_ / ".tapekeep-note/keep.txt", "not Tapekeep's");
    const auto result = note({"M8CARD_4C3C645B", "backup-2026-01-01-100000", "the new note"});
    EXPECT_EQ(result.status, 1) << result.err;
    EXPECT_TRUE(result.lastErrorLine.starts_with("Could not save note: ")) << result.lastErrorLine;
    EXPECT_EQ(test::readFile(older_ / ".tapekeep-note/keep.txt"), "not Tapekeep's");
    std::size_t entries = 0;
    for ([[maybe_unused]] const auto& entry : fs::directory_iterator(older_)) ++entries;
    EXPECT_EQ(entries, 2u) << "no temporary file is left beside the version's songs";
}

}  // namespace
}  // namespace tapekeep
