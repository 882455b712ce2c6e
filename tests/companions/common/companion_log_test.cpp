// The companions' log file: lines reach a file of the user's own, and nothing planted under its
// name (a link, a folder) is written through.
#include "companions/common/companion_log.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "base/debug_log.h"
#include "base/text.h"
#include "support/scoped_env.h"
#include "support/temp_dir.h"

namespace {

using testing_support::TempDir;

TEST(CompanionLog, WritesOnlyIntoAFileOfTheUsersOwn) {
  namespace fs = std::filesystem;
  const struct {
    const char* name;
    std::function<void(const TempDir&, const fs::path& log)> plant;
    bool written;  // the line reaches log.txt
  } rows[] = {
      {"missing", [](auto&, auto&) {}, true},
      {"own-file", [](auto& temp, auto&) { temp.Write(u"Shared/log.txt", "earlier\r\n"); }, true},
      {"folder", [](auto&, auto& log) { fs::create_directory(log); }, false},
#ifndef _WIN32
      {"link-to-a-file",
       [](auto& temp, auto& log) { fs::create_symlink(temp.path() / "Home/.profile", log); },
       false},
      {"dangling-link",
       [](auto& temp, auto& log) { fs::create_symlink(temp.path() / "Home/new", log); }, false},
#endif
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    TempDir temp;
    temp.Write(u"Home/.profile", "the user's own\n");
    const fs::path log = temp.path() / "Shared" / "log.txt";
    fs::create_directories(log.parent_path());
    row.plant(temp, log);
    {
      testing_support::ScopedEnv env({{"TVEJECT_LOG", log.string().c_str()}});
      app::CompanionLog companion(u"TvDiskEjector");
      DebugLog(u"Started: /retry");
    }
    const std::string text = temp.Read(u"Shared/log.txt");
    EXPECT_EQ(text.find("]: Started: /retry\r\n") != std::string::npos, row.written) << text;
    if (text.starts_with("earlier")) {
      EXPECT_EQ(text.rfind("earlier\r\nTvDiskEjector[", 0), 0u);
    }
    EXPECT_EQ(temp.Read(u"Home/.profile"), "the user's own\n");
    EXPECT_FALSE(temp.Exists(u"Home/new"));
  }
}

}  // namespace
