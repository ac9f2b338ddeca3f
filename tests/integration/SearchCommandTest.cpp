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

// A version in a store on disk, searched through the real CLI.
class SearchCommandTest : public ::testing::Test {
protected:
    void SetUp() override {
        test::writeFile(version_ / "Songs/drums.m8s", test::songWithSamples({"/Samples/Drums/Kick1.wav"}));
        test::writeFile(version_ / "Samples/Drums/Kick1.wav", "RIFF");
        test::writeFile(version_ / "Samples/Drums/Kick2.wav", "RIFF");
        test::writeFile(version_ / "Renders/kick mix.wav", "RIFF");
        fs::create_directory_symlink(version_.filename(), set_ / "latest");
    }

    test::CliResult search(const std::vector<std::string>& words, bool json = true) const {
        std::vector<std::string> arguments{"--base", (temp_ / "store").string()};
        if (json) arguments.push_back("--json");
        arguments.insert(arguments.end(), {"search", "M8CARD_4C3C645B", "latest"});
        arguments.insert(arguments.end(), words.begin(), words.end());
        return test::runCli(temp_ / "home", arguments);
    }

    test::TempDir temp_;
    const fs::path set_ = temp_ / "store/M8CARD_4C3C645B";
    const fs::path version_ = set_ / "backup-2026-01-01-100000";
};

TEST_F(SearchCommandTest, FindsFilesByTokensSpreadOverTheirPathInJsonAndPlain) {
    const auto json = search({"DRUMS"});
    ASSERT_EQ(json.status, 0) << json.err;
    EXPECT_EQ(Json::parse(json.out), Json({{"hits",
                                            {{{"path", "Samples/Drums"}, {"isDirectory", true}},
                                             {{"path", "Songs/drums.m8s"}, {"isDirectory", false}},
                                             {{"path", "Samples/Drums/Kick1.wav"}, {"isDirectory", false}},
                                             {{"path", "Samples/Drums/Kick2.wav"}, {"isDirectory", false}}}},
                                           {"truncated", false}}));

    const auto plain = search({"drums", "kick"}, false);
    ASSERT_EQ(plain.status, 0) << plain.err;
    EXPECT_EQ(plain.out, "Samples/Drums/Kick1.wav\nSamples/Drums/Kick2.wav\n");
    const auto none = search({"--filter", "bundles"}, false);
    ASSERT_EQ(none.status, 0) << none.err;
    EXPECT_EQ(none.out, "");
}

TEST_F(SearchCommandTest, FiltersByTheirRawValues) {
    const auto renders = search({"--filter", "renders", "kick"});
    ASSERT_EQ(renders.status, 0) << renders.err;
    EXPECT_EQ(Json::parse(renders.out).at("hits"),
              Json({{{"path", "Renders/kick mix.wav"}, {"isDirectory", false}}}));

    const auto unused = search({"--filter=unused"}, false);
    ASSERT_EQ(unused.status, 0) << unused.err;
    EXPECT_EQ(unused.out, "Samples/Drums/Kick2.wav\n");
}

TEST_F(SearchCommandTest, AnUnknownFilterIsAUsageError) {
    const auto result = search({"--filter", "Songs", "kick"});
    EXPECT_EQ(result.status, 2) << result.err;
    EXPECT_EQ(
        result.lastErrorLine,
        "Unknown filter \"Songs\". Use one of: all, songs, instruments, samples, themes, scales, bundles, "
        "renders, unused, other.");
}

TEST_F(SearchCommandTest, MoreThanFiveHundredHitsAreCutAndSaySo) {
    for (int at = 0; at < 501; ++at)
        test::writeFile(version_ / "Loops" / ("loop" + std::to_string(1000 + at) + ".wav"), "");
    const auto json = search({"loop1"});
    ASSERT_EQ(json.status, 0) << json.err;
    const auto result = Json::parse(json.out);
    EXPECT_EQ(result.at("hits").size(), 500u);
    EXPECT_EQ(result.at("truncated"), true);

    const auto plain = search({"loop1"}, false);
    ASSERT_EQ(plain.status, 0) << plain.err;
    EXPECT_TRUE(
        plain.out.ends_with("Loops/loop1499.wav\nOnly the first 500 hits are shown; narrow the search.\n"))
        << plain.out.substr(plain.out.size() - 200);
}

}  // namespace
}  // namespace tapekeep
