#include "backup/RsyncFinder.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "TempDir.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;

struct Candidates {
    test::TempDir folder;
    std::string notExecutable = (folder / "plain/rsync").string();
    std::string directory = (folder / "directory/rsync").string();
    std::string missing = (folder / "missing/rsync").string();
    std::string executable = (folder / "good/rsync").string();
    std::string secondExecutable = (folder / "other/rsync").string();

    Candidates() {
        test::writeFile(notExecutable, "#!/bin/sh\n");
        fs::create_directories(directory);
        for (const std::string& path : {executable, secondExecutable}) {
            test::writeFile(path, "#!/bin/sh\n");
            fs::permissions(path, fs::perms::owner_all);
        }
    }
};

TEST(RsyncFinderTest, FindsTheFirstExecutableCandidate) {
    const Candidates candidates;
    EXPECT_EQ(findBestRsync({candidates.missing, candidates.notExecutable, candidates.directory,
                             candidates.executable, candidates.secondExecutable}),
              candidates.executable);
}

TEST(RsyncFinderTest, FindsNothingWithoutAnExecutableCandidate) {
    const Candidates candidates;
    EXPECT_EQ(findBestRsync({candidates.missing, candidates.notExecutable, candidates.directory}),
              std::nullopt);
    EXPECT_EQ(findBestRsync({}), std::nullopt);
}

TEST(RsyncFinderTest, LinkToAnExecutableCounts) {
    const Candidates candidates;
    const fs::path link = candidates.folder / "link";
    fs::create_symlink(candidates.executable, link);
    EXPECT_EQ(findBestRsync({link.string()}), link.string());
}

TEST(RsyncFinderTest, DefaultCandidatesGiveAnExecutableOrNothing) {
    const auto found = findBestRsync();
    if (found) {
        EXPECT_TRUE(isExecutableFile(*found));
    }
    if (isExecutableFile("/usr/bin/rsync")) {
        EXPECT_TRUE(found.has_value());
    }
}

}  // namespace
}  // namespace tapekeep
