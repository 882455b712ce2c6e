// The mount table and the path rules the POSIX side of the seam decides drives with.
#ifndef _WIN32

#include "os/posix/mounts.h"

#include <gtest/gtest.h>

#include "support/temp_dir.h"

namespace {

using os::posix::MountEntry;

TEST(PosixMounts, ParsesMountInfoLines) {
  const char* text =
      "22 27 0:21 / /proc rw,relatime - proc proc rw\n"
      "27 1 254:0 / / rw,relatime - ext4 /dev/vda rw,discard\n"
      "36 35 98:0 /mnt1 /mnt/parent rw,noatime master:1 shared:7 - ext3 /dev/root rw\n"
      "40 27 8:17 / /media/u/MY\\040STICK rw,nosuid - vfat /dev/sdb1 rw,fmask=0022\n"
      "41 27 0:45 /@home /home rw - btrfs /dev/nvme0n1p2 rw\n"
      "garbage line without separator\n"
      "42 27 8:x / /bad rw - ext4 /dev/sdc rw\n"
      "43 27 8:33 / relative rw - ext4 /dev/sdc1 rw\n";
  auto table = os::posix::ParseMountInfo(text);
  struct Row {
    std::uint32_t major, minor;
    const char* mount_point;
    const char* fs_type;
    const char* source;
  } rows[] = {
      {0, 21, "/proc", "proc", "proc"},
      {254, 0, "/", "ext4", "/dev/vda"},
      {98, 0, "/mnt/parent", "ext3", "/dev/root"},        // optional fields skipped
      {8, 17, "/media/u/MY STICK", "vfat", "/dev/sdb1"},  // \040 is a blank
      {0, 45, "/home", "btrfs", "/dev/nvme0n1p2"},
  };
  ASSERT_EQ(table.size(), std::size(rows));  // the three bad lines are skipped
  for (std::size_t i = 0; i < table.size(); ++i) {
    EXPECT_EQ(table[i].major, rows[i].major) << i;
    EXPECT_EQ(table[i].minor, rows[i].minor) << i;
    EXPECT_EQ(table[i].mount_point, rows[i].mount_point) << i;
    EXPECT_EQ(table[i].fs_type, rows[i].fs_type) << i;
    EXPECT_EQ(table[i].source, rows[i].source) << i;
  }
}

TEST(PosixMounts, PathIsUnderComparesWholeComponents) {
  struct Row {
    const char* path;
    const char* folder;
    bool under;
  } rows[] = {
      {"/media/stick/app", "/media/stick", true},
      {"/media/stick", "/media/stick", true},
      {"/media/stick2/app", "/media/stick", false},
      {"/media", "/media/stick", false},
      {"/anything", "/", true},
      {"/", "/", true},
      {"relative", "/", false},
      {"/a", "", false},
  };
  for (const auto& row : rows)
    EXPECT_EQ(os::posix::PathIsUnder(row.path, row.folder), row.under)
        << row.path << " under " << row.folder;
}

TEST(PosixMounts, FindsTheLongestAndTopmostMount) {
  std::vector<MountEntry> table = {
      {254, 0, "/", "ext4", "/dev/vda"},
      {8, 17, "/media/stick", "vfat", "/dev/sdb1"},
      {8, 18, "/media/stick/inner", "ext4", "/dev/sdb2"},
      {8, 33, "/media/stick", "vfat", "/dev/sdc1"},  // mounted over the first one
  };
  struct Row {
    const char* path;
    int index;
  } rows[] = {
      {"/home/u/file", 0},         {"/media/stick/app/x", 3}, {"/media/stick", 3},
      {"/media/stick/inner/y", 2}, {"/media/stick2/z", 0},
  };
  for (const auto& row : rows)
    EXPECT_EQ(os::posix::FindMountFor(table, row.path), row.index) << row.path;
  EXPECT_EQ(os::posix::FindMountFor({}, "/x"), -1);
}

TEST(PosixMounts, ResolvesMissingTailsThroughTheNearestExistingFolder) {
  testing_support::TempDir temp;
  const std::string base = os::posix::ResolvePath(temp.path().string());
  ASSERT_FALSE(base.empty());
  EXPECT_EQ(os::posix::ResolvePath(temp.path().string() + "/not/there/x.exe"),
            base + "/not/there/x.exe");
  EXPECT_EQ(os::posix::ResolvePath(temp.path().string() + "/./"), base);
  EXPECT_EQ(os::posix::ResolvePath(""), "");
}

}  // namespace

#endif  // _WIN32
