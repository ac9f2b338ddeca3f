#include "backup/RsyncProcess.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "TempDir.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;
using Environment = std::vector<std::string>;

TEST(RsyncProcessTest, NumbersInCAndCharacterSetKept) {
    const std::vector<std::pair<Environment, Environment>> cases{
        {{"PATH=/bin", "LANG=de_DE.UTF-8"}, {"PATH=/bin", "LANG=de_DE.UTF-8", "LC_NUMERIC=C"}},
        {{"LC_NUMERIC=de_DE.UTF-8", "LC_TIME=de_DE.UTF-8"}, {"LC_TIME=de_DE.UTF-8", "LC_NUMERIC=C"}},
        {{"LC_ALL=de_DE.UTF-8", "PATH=/bin"}, {"PATH=/bin", "LC_CTYPE=de_DE.UTF-8", "LC_NUMERIC=C"}},
        {{"LC_CTYPE=fr_FR.UTF-8", "LC_ALL=de_DE.UTF-8", "LC_NUMERIC=de_DE.UTF-8"},
         {"LC_CTYPE=de_DE.UTF-8", "LC_NUMERIC=C"}},
        {{"LC_CTYPE=fr_FR.UTF-8"}, {"LC_CTYPE=fr_FR.UTF-8", "LC_NUMERIC=C"}},
        {{"LC_ALL=", "LC_CTYPE=fr_FR.UTF-8"}, {"LC_CTYPE=fr_FR.UTF-8", "LC_NUMERIC=C"}},
        {{"LC_ALLX=1", "MY_LC_ALL=2", "LC_NUMERICS=3"},
         {"LC_ALLX=1", "MY_LC_ALL=2", "LC_NUMERICS=3", "LC_NUMERIC=C"}},
        {{}, {"LC_NUMERIC=C"}},
    };
    for (const auto& [current, expected] : cases)
        EXPECT_EQ(rsyncEnvironment(current), expected) << ::testing::PrintToString(current);
    const Environment environment = currentEnvironment();
    EXPECT_NE(std::find(environment.begin(), environment.end(), std::string("PATH=") + std::getenv("PATH")),
              environment.end());
}

TEST(RsyncProcessTest, RunRsyncHandsOverLinesInRsyncsLocaleAndReturnsTheStatus) {
    test::TempDir folder;
    const fs::path script = folder / "rsync";
    test::writeFile(script, "#!/bin/sh\necho \"numeric=$LC_NUMERIC args=$*\"\nexit 23\n");
    fs::permissions(script, fs::perms::owner_all);
    std::vector<std::string> lines;
    const auto collect = [&lines](const std::string& line) { lines.push_back(line); };
    EXPECT_EQ(runRsync(script.string(), {"-a", "src/", "dst/"}, collect, {}), 23);
    EXPECT_EQ(lines, (std::vector<std::string>{"numeric=C args=-a src/ dst/"}));
}

}  // namespace
}  // namespace tapekeep
