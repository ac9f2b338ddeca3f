// The desktop folder as the user's user-dirs.dirs names it.

#include "platform/UserFolders.h"

#include <gtest/gtest.h>

namespace tapekeep {
namespace {

TEST(UserFoldersTest, TheDesktopIsReadFromUserDirsUnderHomeOrAbsolute) {
    const std::filesystem::path home = "/home/ana";
    EXPECT_EQ(UserFolders::desktopInUserDirs("# written by xdg-user-dirs-update\n"
                                             "XDG_DOWNLOAD_DIR=\"$HOME/Downloads\"\n"
                                             "XDG_DESKTOP_DIR=\"$HOME/Schreibtisch\"\n",
                                             home),
              home / "Schreibtisch");
    EXPECT_EQ(UserFolders::desktopInUserDirs("XDG_DESKTOP_DIR=\"/data/desk\"\n", home), "/data/desk");
    EXPECT_EQ(UserFolders::desktopInUserDirs("XDG_DESKTOP_DIR=\"$HOME\"\n", home), home);
}

TEST(UserFoldersTest, UserDirsWithoutAUsableDesktopLineNameNone) {
    const std::filesystem::path home = "/home/ana";
    EXPECT_EQ(UserFolders::desktopInUserDirs("", home), std::nullopt);
    EXPECT_EQ(UserFolders::desktopInUserDirs("XDG_MUSIC_DIR=\"$HOME/Music\"\n", home), std::nullopt);
    EXPECT_EQ(UserFolders::desktopInUserDirs("XDG_DESKTOP_DIR=\"desk\"\n", home), std::nullopt);
    EXPECT_EQ(UserFolders::desktopInUserDirs("# XDG_DESKTOP_DIR=\"$HOME/Old\"\n", home), std::nullopt);
}

}  // namespace
}  // namespace tapekeep
