#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "CliProcess.h"
#include "M8Files.h"
#include "TempDir.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using Json = nlohmann::json;

// A version in a store on disk, read through the real CLI's browse command.
class BrowseCommandTest : public ::testing::Test {
protected:
    void SetUp() override {
        test::writeFile(
            version_ / "Songs/KIT.m8s",
            test::songWithSamples({"/Samples/kick.wav", "/Samples/gone.wav", "/../../outside.wav"}));
        test::writeFile(version_ / "Songs/BROKEN.m8s", "short");
        test::writeFile(version_ / "Samples/kick.wav", "RIFF kick");
        test::writeFile(version_ / ".hidden", "x");
        test::writeFile(temp_ / "store/outside.wav", "RIFF");
        fs::create_directory_symlink(temp_ / "store", version_ / "Elsewhere");
    }

    test::CliResult browse(const std::vector<std::string>& words, bool json = true) const {
        std::vector<std::string> arguments{"--base", (temp_ / "store").string()};
        if (json) arguments.push_back("--json");
        arguments.insert(arguments.end(), {"browse", "M8_4C3C645B", version_.filename().string()});
        arguments.insert(arguments.end(), words.begin(), words.end());
        return test::runCli(temp_ / "home", arguments);
    }

    test::TempDir temp_;
    const fs::path version_ = temp_ / "store/M8_4C3C645B/backup-2026-01-01-100000";
};

TEST_F(BrowseCommandTest, AFolderListsItsEntriesWithoutHiddenNamesOrLinks) {
    const auto top = browse({});
    ASSERT_EQ(top.status, 0) << top.err;
    EXPECT_EQ(Json::parse(top.out),
              Json({{"entries",
                     {{{"name", "Samples"}, {"isDirectory", true}, {"size", nullptr}},
                      {{"name", "Songs"}, {"isDirectory", true}, {"size", nullptr}}}}}));
    const auto samples = browse({"Samples"}, false);
    ASSERT_EQ(samples.status, 0) << samples.err;
    EXPECT_EQ(samples.out, "kick.wav\t9\n");
}

TEST_F(BrowseCommandTest, ASongShowsEachSampleAsPresentOrMissingAndAnEscapeIsMissing) {
    const auto song = browse({"Songs/KIT.m8s"});
    ASSERT_EQ(song.status, 0) << song.err;
    const auto shown = Json::parse(song.out);
    EXPECT_EQ(shown.at("instruments").size(), 3u);
    EXPECT_EQ(shown.at("samples"), Json({{{"path", "/../../outside.wav"}, {"present", false}},
                                         {{"path", "/Samples/gone.wav"}, {"present", false}},
                                         {{"path", "/Samples/kick.wav"}, {"present", true}}}));
    const auto plain = browse({"Songs/KIT.m8s"}, false);
    ASSERT_EQ(plain.status, 0) << plain.err;
    EXPECT_TRUE(plain.out.ends_with("missing\t/Samples/gone.wav\npresent\t/Samples/kick.wav\n")) << plain.out;
}

TEST_F(BrowseCommandTest, PathsThatLeaveTheVersionOrAreNotThereAreRefusedInTheApplicationsWords) {
    const auto broken = browse({"Songs/BROKEN.m8s"});
    EXPECT_EQ(broken.status, 1);
    EXPECT_EQ(broken.lastErrorLine, "Could not read song or instrument: BROKEN.m8s");
    for (const auto* escape : {"../../outside.wav", "Elsewhere/outside.wav", "/etc"}) {
        const auto result = browse({escape});
        EXPECT_EQ(result.status, 1) << escape;
        EXPECT_EQ(result.lastErrorLine, "The selected file is outside this backup version.") << escape;
    }
    const auto hidden = browse({".hidden"});
    EXPECT_EQ(hidden.status, 1);
    EXPECT_EQ(hidden.lastErrorLine, "Source file not found: .hidden");
    const auto sample = browse({"Samples/kick.wav"});
    EXPECT_EQ(sample.status, 2);
}

}  // namespace
}  // namespace tapekeep
