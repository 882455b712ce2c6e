// The mount table and the path rules the POSIX side of the seam decides drives with.
#ifndef _WIN32

#include "os/posix/mounts.h"

#include <gtest/gtest.h>

#include "support/temp_dir.h"

namespace {

TEST(PosixMounts, ParsesMountInfoAndFindsTheTopmostLongestMount) {
  const auto table = os::posix::ParseMountInfo(
      "27 1 254:0 / / rw,relatime - ext4 /dev/vda rw,discard\n"
      "36 35 98:0 /mnt1 /mnt/parent rw,noatime master:1 shared:7 - ext3 /dev/root rw\n"
      "40 27 8:17 / /media/u/MY\\040STICK rw,nosuid - vfat /dev/sdb1 rw,fmask=0022\n"
      "garbage line without separator\n"
      "42 27 8:x / /bad rw - ext4 /dev/sdc rw\n"
      "43 27 8:33 / relative rw - ext4 /dev/sdc1 rw\n"
      "44 27 8:18 / /media/u/MY\\040STICK/in rw - ext4 /dev/sdb2 rw\n"
      "45 27 8:49 / /media/u/MY\\040STICK rw - vfat /dev/sdd1 rw\n");  // over the first
  // Optional fields are skipped, \040 is a blank, the three bad lines are left out.
  std::string shown;
  for (const auto& m : table)
    shown += std::to_string(m.major) + ":" + std::to_string(m.minor) + " " + m.mount_point + " " +
             m.fs_type + " " + m.source + "\n";
  EXPECT_EQ(shown,
            "254:0 / ext4 /dev/vda\n98:0 /mnt/parent ext3 /dev/root\n"
            "8:17 /media/u/MY STICK vfat /dev/sdb1\n8:18 /media/u/MY STICK/in ext4 /dev/sdb2\n"
            "8:49 /media/u/MY STICK vfat /dev/sdd1\n");
  // clang-format off
  for (auto [path, index] : {std::pair{"/home/u/file", 0}, {"/media/u/MY STICK/app/x", 4},
           {"/media/u/MY STICK", 4}, {"/media/u/MY STICK/in/y", 3}, {"/media/u/MY STICK2/z", 0}})
    EXPECT_EQ(os::posix::FindMountFor(table, path), index) << path;
  // clang-format on
  EXPECT_EQ(os::posix::FindMountFor({}, "/x"), -1);
}

TEST(PosixMounts, PathRules) {
  // clang-format off
  for (auto [path, folder, under] : {std::tuple{"/media/stick/app", "/media/stick", true},
           {"/media/stick", "/media/stick", true}, {"/media/stick2/app", "/media/stick", false},
           {"/media", "/media/stick", false}, {"/", "/", true}, {"relative", "/", false},
           {"/a", "", false}})
    EXPECT_EQ(os::posix::PathIsUnder(path, folder), under) << path << " under " << folder;
  // clang-format on
  // A missing tail is resolved through the nearest existing folder.
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
