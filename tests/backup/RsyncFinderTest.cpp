#include "backup/RsyncFinder.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "TempDir.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;

TEST(RsyncFinderTest, FindsTheFirstExecutableCandidateLinksIncluded) {
    test::TempDir folder;
    const std::string plain = (folder / "plain/rsync").string(),
                      directory = (folder / "directory/rsync").string(),
                      missing = (folder / "missing/rsync").string(), good = (folder / "good/rsync").string(),
                      link = (folder / "link").string();
    test::writeFile(plain, "#!/bin/sh\n");
    fs::create_directories(directory);
    test::writeFile(good, "#!/bin/sh\n");
    fs::permissions(good, fs::perms::owner_all);
    fs::create_symlink(good, link);
    EXPECT_EQ(findBestRsync({missing, plain, directory, link, good}), link);
    EXPECT_EQ(findBestRsync({missing, plain, directory}), std::nullopt);
    EXPECT_EQ(findBestRsync({}), std::nullopt);
    if (isExecutableFile("/usr/bin/rsync")) {
        EXPECT_TRUE(findBestRsync().has_value());
    }
}

}  // namespace
}  // namespace tapekeep
