#include "platform/ExclusiveCopy.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <stop_token>
#include <string>

#include "TempDir.h"
#include "core/Cancelled.h"
#include "core/PosixError.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;
using namespace ExclusiveCopy;
using test::readFile;
using test::writeFile;

int errorOpening(const fs::path& path) {
    try {
        openRegularFileWithoutLinks(path);
    } catch (const PosixError& error) {
        return error.code();
    }
    return 0;
}

TEST(ExclusiveCopyTest, OpensOnlyARegularFileReachedWithoutALink) {
    test::TempDir temp;
    const fs::path root = fs::canonical(temp.path());
    writeFile(root / "real/kick.wav", "kick");
    fs::create_directory_symlink(root / "real", root / "linked");
    fs::create_symlink(root / "real/kick.wav", root / "real/alias.wav");
    ASSERT_EQ(::mkfifo((root / "real/pipe.wav").c_str(), 0600), 0);

    EXPECT_EQ(errorOpening(root / "real/kick.wav"), 0);
    EXPECT_EQ(errorOpening(root / "linked/kick.wav"), ENOTDIR);
    EXPECT_EQ(errorOpening(root / "real/alias.wav"), ELOOP);
    EXPECT_EQ(errorOpening(root / "real/pipe.wav"), EINVAL);  // and it did not wait for a writer
    EXPECT_EQ(errorOpening(root / "real"), EINVAL);
    EXPECT_EQ(errorOpening(root / "real/missing.wav"), ENOENT);
}

TEST(ExclusiveCopyTest, CopiesOnlyToANameThatIsFree) {
    test::TempDir temp;
    writeFile(temp / "kick.wav", "kick");
    writeFile(temp / "taken.wav", "mine");
    fs::create_symlink(temp / "nowhere.wav", temp / "dangling.wav");
    const auto source = openRegularFileWithoutLinks(fs::canonical(temp / "kick.wav"));

    copyToNewFile(source.get(), temp / "copy.wav", {});
    EXPECT_EQ(readFile(temp / "copy.wav"), "kick");
    for (const auto* name : {"taken.wav", "dangling.wav"}) {
        try {
            copyToNewFile(source.get(), temp / name, {});
            ADD_FAILURE() << "copied over " << name;
        } catch (const PosixError& error) {
            EXPECT_EQ(error.code(), EEXIST) << name;
        }
    }
    EXPECT_EQ(readFile(temp / "taken.wav"), "mine");
    EXPECT_FALSE(fs::exists(temp / "nowhere.wav"));

    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(copyToNewFile(source.get(), temp / "cancelled.wav", stop.get_token()), Cancelled);
    EXPECT_FALSE(fs::exists(fs::symlink_status(temp / "cancelled.wav")));
}

}  // namespace
}  // namespace tapekeep
