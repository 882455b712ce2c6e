// The program's surroundings through the seam: copies of a program that still run, folders and
// environment. The deletion of a program file is seen through the ejector's tests.
#include "os/program_env.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "base/text.h"
#include "os/files.h"
#include "os/types.h"
#include "support/child_process.h"
#include "support/scoped_env.h"
#include "support/temp_dir.h"

namespace {

using testing_support::TempDir;

TEST(OsProgramEnv, CopiesReplaceOnlyWhenAllowedAndStillRun) {
  struct Row {
    bool source, destination, fail_if_exists;
    std::uint32_t error;  // 0: copied
    const char* result;   // the destination's content afterwards
  } rows[] = {
      // clang-format off
      {true, false, true, 0, "new"}, {true, true, false, 0, "new"},
      {true, true, true, os::kErrorFileExists, "old"}, {false, false, false, os::kErrorFileNotFound, ""},
      // clang-format on
  };
  for (const auto& row : rows) {
    TempDir temp;
    if (row.source) temp.Write(u"from.bin", "new");
    if (row.destination) temp.Write(u"to.bin", "old");
    os::SetLastError(0);
    EXPECT_EQ(os::CopyFileW(temp.u16(u"from.bin").c_str(), temp.u16(u"to.bin").c_str(),
                            row.fail_if_exists),
              row.error == 0);
    EXPECT_EQ(os::GetLastError(), row.error);
    EXPECT_EQ(temp.Read(u"to.bin"), row.result);
  }
  TempDir temp;
  const std::u16string program = testing_support::HelperProgram(u"sleeper"),
                       copy = temp.u16(program.ends_with(u".exe") ? u"copy.exe" : u"copy");
  ASSERT_TRUE(os::CopyFileW(program.c_str(), copy.c_str(), true));
  testing_support::ChildProcess child;
  ASSERT_TRUE(child.Start(copy, {u"--life", u"0"}, temp.u16()));
  EXPECT_TRUE(child.WaitExit(10000));
}

// The copy's folder: always a new one, the user's alone; and what stands at a path, told without
// following a link.
TEST(OsProgramEnv, PrivateFoldersFactsAndEnvironment) {
  TempDir temp;
  const std::u16string a = os::CreatePrivateFolder(temp.u16(), u"Copy-");
  const std::u16string b = os::CreatePrivateFolder(temp.u16() + u"/", u"Copy-");
  ASSERT_FALSE(a.empty() || b.empty());
  EXPECT_NE(a, b);
  for (const auto& folder : {a, b}) {
    const std::filesystem::path path(base::Narrow(folder));
    EXPECT_EQ(path.parent_path(), temp.path()) << path;
    EXPECT_TRUE(path.filename().string().starts_with("Copy-")) << path;
    const os::PathFacts facts = os::GetPathFacts(folder);
    EXPECT_TRUE(facts.exists && facts.folder && facts.own && !facts.link) << path;
#ifndef _WIN32
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms::owner_all);
#endif
  }
  EXPECT_EQ(os::CreatePrivateFolder(temp.u16(u"missing"), u"Copy-"), u"");
  EXPECT_EQ(os::GetLastError(), os::kErrorPathNotFound);
  const os::PathFacts file = os::GetPathFacts(temp.Write(u"file", "x"));
  EXPECT_TRUE(file.exists && file.own && !file.folder && !file.link);
  EXPECT_FALSE(os::GetPathFacts(temp.u16(u"missing")).exists);

  const std::filesystem::path here = std::filesystem::current_path();
  ASSERT_TRUE(os::SetCurrentDirectoryW(a.c_str()));
  EXPECT_TRUE(std::filesystem::equivalent(std::filesystem::current_path(), base::Narrow(a)));
  EXPECT_FALSE(os::SetCurrentDirectoryW(temp.u16(u"missing").c_str()));
  std::filesystem::current_path(here);
  testing_support::ScopedEnv env({{"TVEJECT_PROBE", "some value"}, {"TVEJECT_NONE", nullptr}});
  EXPECT_EQ(
      os::GetEnvironmentVariableW(u"TVEJECT_PROBE") + os::GetEnvironmentVariableW(u"TVEJECT_NONE"),
      u"some value");
#ifndef _WIN32
  std::filesystem::create_directory_symlink(base::Narrow(a), temp.path() / "link");
  const os::PathFacts link = os::GetPathFacts(temp.u16(u"link"));
  EXPECT_TRUE(link.exists && link.link && !link.folder);
  std::filesystem::permissions(base::Narrow(b), std::filesystem::perms::all);
  EXPECT_TRUE(os::GetPathFacts(b).others_may_move);
  std::filesystem::permissions(base::Narrow(b), std::filesystem::perms::sticky_bit,
                               std::filesystem::perm_options::add);
  EXPECT_FALSE(os::GetPathFacts(b).others_may_move);
  // The places in order, each once; what names no folder is left out.
  testing_support::ScopedEnv places({{"XDG_RUNTIME_DIR", base::Narrow(a).c_str()},
                                     {"TMPDIR", base::Narrow(a).c_str()},
                                     {"HOME", base::Narrow(temp.u16(u"nohome")).c_str()}});
  EXPECT_EQ(os::ScratchFolders(), std::vector<std::u16string>{a + u"/"});
#endif
}

}  // namespace
