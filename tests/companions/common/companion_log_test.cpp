// The companions' log file: lines reach a file of the user's own, and nothing planted under its
// name (a link, a folder) is written through.
#include "companions/common/companion_log.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "base/debug_log.h"
#include "base/text.h"
#include "support/scoped_env.h"
#include "support/temp_dir.h"

namespace {

using testing_support::TempDir;

TEST(CompanionLog, WritesOnlyIntoAFileOfTheUsersOwn) {
  enum class Planted { kNothing, kOwnFile, kFolder, kLinkToFile, kDanglingLink };
  struct Row {
    const char* name;
    Planted planted;
    bool written;  // the line reaches log.txt
  } rows[] = {
      {"missing", Planted::kNothing, true},
      {"own-file", Planted::kOwnFile, true},
      {"folder", Planted::kFolder, false},
#ifndef _WIN32
      {"link-to-a-file", Planted::kLinkToFile, false},
      {"dangling-link", Planted::kDanglingLink, false},
#endif
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    TempDir temp;
    temp.Write(u"Home/.profile", "the user's own\n");
    const std::filesystem::path log = temp.path() / "Shared" / "log.txt";
    std::filesystem::create_directories(log.parent_path());
    switch (row.planted) {
      case Planted::kNothing:
        break;
      case Planted::kOwnFile:
        temp.Write(u"Shared/log.txt", "earlier\r\n");
        break;
      case Planted::kFolder:
        std::filesystem::create_directory(log);
        break;
      case Planted::kLinkToFile:
        std::filesystem::create_symlink(temp.path() / "Home/.profile", log);
        break;
      case Planted::kDanglingLink:
        std::filesystem::create_symlink(temp.path() / "Home/new", log);
        break;
    }
    {
      testing_support::ScopedEnv env({{"TVEJECT_LOG", log.string().c_str()}});
      app::CompanionLog companion(u"TvDiskEjector");
      DebugLog(u"Started: /retry");
    }
    const std::string text = temp.Read(u"Shared/log.txt");
    EXPECT_EQ(text.find("]: Started: /retry\r\n") != std::string::npos, row.written) << text;
    if (row.planted == Planted::kOwnFile) {
      EXPECT_EQ(text.rfind("earlier\r\nTvDiskEjector[", 0), 0u);
    }
    EXPECT_EQ(temp.Read(u"Home/.profile"), "the user's own\n");
    EXPECT_FALSE(temp.Exists(u"Home/new"));
  }
}

}  // namespace
