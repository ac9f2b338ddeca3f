#include "platform/NoReplaceRename.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>

#include "TempDir.h"
#include "core/PosixError.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using test::readFile;
using test::TempDir;
using test::writeFile;

using RenameFunction = std::function<void(const fs::path&, const fs::path&)>;

struct RenameVariant {
    const char* name;
    RenameFunction rename;
};

// The atomic call and its fallback must keep the same contract.
class NoReplaceRenameTest : public ::testing::TestWithParam<RenameVariant> {
protected:
    TempDir temp;

    int errnoOfRename(const fs::path& from, const fs::path& to) {
        try {
            GetParam().rename(from, to);
        } catch (const PosixError& error) {
            return error.code();
        }
        return 0;
    }
};

TEST_P(NoReplaceRenameTest, MovesAFolderWithItsContentToAFreeName) {
    writeFile(temp / "staging/Songs/a.m8s", "song");
    GetParam().rename(temp / "staging", temp / "backup-1");
    EXPECT_FALSE(fs::exists(temp / "staging"));
    EXPECT_EQ(readFile(temp / "backup-1/Songs/a.m8s"), "song");
}

TEST_P(NoReplaceRenameTest, NeverReplacesAnExistingTarget) {
    writeFile(temp / "source/file", "new");
    writeFile(temp / "file-target", "old");
    fs::create_directory(temp / "empty-folder-target");
    fs::create_symlink(temp / "nowhere", temp / "dangling-link-target");

    for (const char* target : {"file-target", "empty-folder-target", "dangling-link-target"}) {
        SCOPED_TRACE(target);
        EXPECT_EQ(errnoOfRename(temp / "source", temp / target), EEXIST);
        EXPECT_EQ(readFile(temp / "source/file"), "new");
    }
    EXPECT_EQ(readFile(temp / "file-target"), "old");
    EXPECT_TRUE(fs::is_empty(temp / "empty-folder-target"));
    EXPECT_TRUE(fs::is_symlink(temp / "dangling-link-target"));
}

TEST_P(NoReplaceRenameTest, ReportsAMissingSourceWithItsErrnoAndBothPaths) {
    try {
        GetParam().rename(temp / "missing", temp / "target");
        FAIL() << "renaming a missing item succeeded";
    } catch (const PosixError& error) {
        EXPECT_EQ(error.code(), ENOENT);
        EXPECT_EQ(error.description(), "Could not rename " + (temp / "missing").string() + " to " +
                                           (temp / "target").string() + ": " + errnoText(ENOENT));
    }
    EXPECT_FALSE(fs::exists(fs::symlink_status(temp / "target")));
}

INSTANTIATE_TEST_SUITE_P(BothWays, NoReplaceRenameTest,
                         ::testing::Values(RenameVariant{"Atomic", renameNoReplace},
                                           RenameVariant{"ExistenceTest", detail::renameAfterExistenceTest}),
                         [](const auto& variant) { return std::string(variant.param.name); });

}  // namespace
}  // namespace tapekeep
