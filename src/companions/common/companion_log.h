// An opt-in log file for the companions: when the environment variable TVEJECT_LOG names a
// file, every line of the debug log is added to it, behind the companion's name and process
// id. The companions run without a window; this is where a user (or a script) reads what they
// did and why. Each line opens and closes the file, so a log on the drive never holds it.
//
//   app::CompanionLog log(u"TvDiskEjector");  // for the whole run
#pragma once

#include <string>
#include <string_view>

#include "base/debug_log.h"

namespace app {

class CompanionLog {
 public:
  explicit CompanionLog(std::u16string_view program);
  ~CompanionLog();
  CompanionLog(const CompanionLog&) = delete;
  CompanionLog& operator=(const CompanionLog&) = delete;

 private:
  base::LogSink previous_;
  bool installed_ = false;
};

}  // namespace app
