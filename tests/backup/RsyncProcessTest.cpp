#include "backup/RsyncProcess.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "TempDir.h"
#include "core/PosixError.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;
using Environment = std::vector<std::string>;

struct EnvironmentCase {
    const char* name;
    Environment current;
    Environment expected;
};

class RsyncEnvironmentTest : public testing::TestWithParam<EnvironmentCase> {};

TEST_P(RsyncEnvironmentTest, NumbersInCAndCharacterSetKept) {
    EXPECT_EQ(rsyncEnvironment(GetParam().current), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    LocaleRule, RsyncEnvironmentTest,
    testing::Values(EnvironmentCase{"NoLocaleSet",
                                    {"PATH=/bin", "HOME=/home/m8"},
                                    {"PATH=/bin", "HOME=/home/m8", "LC_NUMERIC=C"}},
                    EnvironmentCase{"LangIsKept", {"LANG=de_DE.UTF-8"}, {"LANG=de_DE.UTF-8", "LC_NUMERIC=C"}},
                    EnvironmentCase{"NumericIsReplaced",
                                    {"LC_NUMERIC=de_DE.UTF-8", "LC_TIME=de_DE.UTF-8"},
                                    {"LC_TIME=de_DE.UTF-8", "LC_NUMERIC=C"}},
                    EnvironmentCase{"AllMovesToCtype",
                                    {"LC_ALL=de_DE.UTF-8", "PATH=/bin"},
                                    {"PATH=/bin", "LC_CTYPE=de_DE.UTF-8", "LC_NUMERIC=C"}},
                    EnvironmentCase{"AllOverridesAnEarlierCtype",
                                    {"LC_CTYPE=fr_FR.UTF-8", "LC_ALL=de_DE.UTF-8", "LC_NUMERIC=de_DE.UTF-8"},
                                    {"LC_CTYPE=de_DE.UTF-8", "LC_NUMERIC=C"}},
                    EnvironmentCase{"CtypeWithoutAllIsKept",
                                    {"LC_CTYPE=fr_FR.UTF-8"},
                                    {"LC_CTYPE=fr_FR.UTF-8", "LC_NUMERIC=C"}},
                    EnvironmentCase{"EmptyAllIsDroppedAndCtypeKept",
                                    {"LC_ALL=", "LC_CTYPE=fr_FR.UTF-8"},
                                    {"LC_CTYPE=fr_FR.UTF-8", "LC_NUMERIC=C"}},
                    EnvironmentCase{"SimilarNamesAreNotLocale",
                                    {"LC_ALLX=1", "MY_LC_ALL=2", "LC_NUMERICS=3"},
                                    {"LC_ALLX=1", "MY_LC_ALL=2", "LC_NUMERICS=3", "LC_NUMERIC=C"}},
                    EnvironmentCase{"EmptyEnvironment", {}, {"LC_NUMERIC=C"}}),
    [](const testing::TestParamInfo<EnvironmentCase>& example) { return example.param.name; });

TEST(RsyncProcessTest, CurrentEnvironmentHoldsThisProcesssVariables) {
    const char* path = std::getenv("PATH");
    ASSERT_NE(path, nullptr);
    const Environment environment = currentEnvironment();
    EXPECT_NE(std::find(environment.begin(), environment.end(), std::string("PATH=") + path),
              environment.end());
}

TEST(RsyncProcessTest, RunRsyncHandsOverLinesAndReturnsTheStatus) {
    test::TempDir folder;
    const fs::path script = folder / "rsync";
    test::writeFile(script, "#!/bin/sh\necho \"numeric=$LC_NUMERIC args=$*\"\nexit 23\n");
    fs::permissions(script, fs::perms::owner_all);
    std::vector<std::string> lines;
    const int status = runRsync(script.string(), {"-a", "src/", "dst/"},
                                [&lines](const std::string& line) { lines.push_back(line); }, {});
    EXPECT_EQ(status, 23);
    EXPECT_EQ(lines, (std::vector<std::string>{"numeric=C args=-a src/ dst/"}));
}

TEST(RsyncProcessTest, RunRsyncWithTheRealRsync) {
    if (!fs::exists("/usr/bin/rsync")) GTEST_SKIP() << "no /usr/bin/rsync on this machine";
    std::vector<std::string> lines;
    const int status = runRsync("/usr/bin/rsync", {"--version"},
                                [&lines](const std::string& line) { lines.push_back(line); }, {});
    EXPECT_EQ(status, 0);
    ASSERT_FALSE(lines.empty());
    EXPECT_TRUE(lines.front().starts_with("rsync")) << lines.front();
}

TEST(RsyncProcessTest, RunRsyncThrowsWhenRsyncCannotStart) {
    EXPECT_THROW(runRsync("/nonexistent/rsync", {"--version"}, {}, {}), PosixError);
}

}  // namespace
}  // namespace tapekeep
