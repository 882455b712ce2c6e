// The companions' log file: lines reach a file of the user's own, and nothing planted under its
// name (a link, a folder) is written through.
#include "companions/common/companion_log.h"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>

#include "base/debug_log.h"
#include "support/scoped_env.h"
#include "support/temp_dir.h"

namespace {

TEST(CompanionLog, WritesOnlyIntoAFileOfTheUsersOwn) {
  namespace fs = std::filesystem;
  using Plant = std::function<void(const fs::path& home, const fs::path& log)>;
  const struct {
    Plant plant;
    bool written;  // the line reaches log.txt, after what it held
  } rows[] = {
      {[](auto&, auto&) {}, true},
      {[](auto&, auto& log) { std::ofstream(log) << "earlier\r\n"; }, true},
      {[](auto&, auto& log) { fs::create_directory(log); }, false},
#ifndef _WIN32
      {[](auto& home, auto& log) { fs::create_symlink(home / ".profile", log); }, false},
      {[](auto& home, auto& log) { fs::create_symlink(home / "new", log); }, false},
#endif
  };
  for (const auto& row : rows) {
    testing_support::TempDir temp;
    temp.Write(u"Home/.profile", "the user's own\n");
    const fs::path log = temp.path() / "Shared" / "log.txt";
    fs::create_directories(log.parent_path());
    row.plant(temp.path() / "Home", log);
    const std::string before = temp.Read(u"Shared/log.txt");
    {
      testing_support::ScopedEnv env({{"TVEJECT_LOG", log.string().c_str()}});
      app::CompanionLog companion(u"TvDiskEjector");
      DebugLog(u"Started: /retry");
    }
    const std::string text = temp.Read(u"Shared/log.txt");
    EXPECT_EQ(text.rfind(before + "TvDiskEjector[", 0) == 0 &&
                  text.find("]: Started: /retry\r\n") != std::string::npos,
              row.written)
        << text;
    EXPECT_EQ(temp.Read(u"Home/.profile"), "the user's own\n");
    EXPECT_FALSE(temp.Exists(u"Home/new"));
  }
}

}  // namespace
