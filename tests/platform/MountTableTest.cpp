#include "platform/MountTable.h"

#include <gtest/gtest.h>

namespace tapekeep {
namespace {

using std::filesystem::path;

// Lines as the kernel writes them, optional fields and escapes included.
constexpr const char* sampleMountinfo =
    "22 27 0:21 / /proc rw,relatime - proc proc rw\n"
    "27 1 254:0 / / rw,relatime shared:1 - ext4 /dev/vda rw,discard\n"
    "90 27 8:17 / /media/user/M8\\040CARD rw,nosuid shared:45 master:3 - vfat /dev/sdb1 rw,fmask=0022\n"
    "91 27 8:33 / /run/media/anna/Back\\134slash\\011Tab rw - exfat /dev/sdc1 rw\n"
    "92 27 0:50 / /mnt/fuse\\040card rw - fuse.fusefat /dev/loop3 rw,user_id=0\n"
    "93 27 0:51 / /media/user/.hidden rw - vfat /dev/sdd1 rw\n"
    "94 27 0:52 / /media rw - tmpfs tmpfs rw\n"
    "95 27 0:53 / /mediaextra/x rw - vfat /dev/sde1 rw\n"
    "96 90 8:18 / /media/user/M8\\040CARD rw - vfat /dev/sdf1 rw\n"
    "97 27 0:54 / /home/user/mnt rw - fuse.sshfs user@host:/srv rw\n"
    "98 94 0:55 / /media/deep/a/b/c rw - vfat /dev/sdg1 rw\n";

TEST(MountTableTest, ParsesFieldsAroundOptionalFieldsAndDecodesOctalEscapes) {
    const auto table = MountTable::parse(sampleMountinfo);
    ASSERT_EQ(table.entries().size(), 11u);
    EXPECT_EQ(table.entries()[0], (MountTable::Entry{"/proc", "proc", "proc"}));
    EXPECT_EQ(table.entries()[2], (MountTable::Entry{"/media/user/M8 CARD", "/dev/sdb1", "vfat"}));
    EXPECT_EQ(table.entries()[3],
              (MountTable::Entry{"/run/media/anna/Back\\slash\tTab", "/dev/sdc1", "exfat"}));
    EXPECT_EQ(table.entries()[4], (MountTable::Entry{"/mnt/fuse card", "/dev/loop3", "fuse.fusefat"}));
    EXPECT_EQ(table.entries()[9].source, "user@host:/srv");
}

TEST(MountTableTest, SkipsLinesWithoutTheDocumentedShapeAndKeepsStrayBackslashes) {
    const auto table = MountTable::parse(
        "\n"
        "garbage\n"
        "1 2 3:4 / /no/separator rw ext4 /dev/x rw\n"
        "1 2 3:4 / /short/after rw - ext4\n"
        "1 2 3:4 / /m\\9x\\04 rw - vfat /dev/a rw");
    ASSERT_EQ(table.entries().size(), 1u);
    EXPECT_EQ(table.entries()[0].mountPoint, path("/m\\9x\\04"));
}

TEST(MountTableTest, MountContainingTakesTheDeepestAndThenTheLatestMount) {
    const auto table = MountTable::parse(sampleMountinfo);
    ASSERT_NE(table.mountContaining("/media/user/M8 CARD/Songs/a.m8s"), nullptr);
    EXPECT_EQ(table.mountContaining("/media/user/M8 CARD/Songs/a.m8s")->source,
              "/dev/sdf1");  // stacked on sdb1
    EXPECT_EQ(table.mountContaining("/mnt/fuse card/")->source, "/dev/loop3");
    EXPECT_EQ(table.mountContaining("/media/other")->source, "tmpfs");
    EXPECT_EQ(table.mountContaining("/mediaextra")->source, "/dev/vda");  // not below /media
    EXPECT_EQ(MountTable::parse("").mountContaining("/anything"), nullptr);
}

TEST(MountTableTest, VolumesBelowListsVisibleMountPointsStrictlyBelowTheRootsOnce) {
    const auto table = MountTable::parse(sampleMountinfo);
    const std::vector<path> expected{"/media/user/M8 CARD", "/run/media/anna/Back\\slash\tTab",
                                     "/mnt/fuse card", "/media/deep/a/b/c"};
    EXPECT_EQ(table.volumesBelow({"/media/", "/run/media", "/mnt/"}), expected);
    EXPECT_EQ(table.volumesBelow({"/home/user"}), std::vector<path>{"/home/user/mnt"});
    EXPECT_TRUE(table.volumesBelow({}).empty());
}

TEST(MountTableTest, ReadsTheLiveTableOfThisProcess) {
    const auto table = MountTable::readLive();
    ASSERT_NE(table.mountContaining("/"), nullptr);
    EXPECT_EQ(table.mountContaining("/")->mountPoint, path("/"));
}

}  // namespace
}  // namespace tapekeep
