#include "app/companion_log.h"

#include "base/text.h"
#include "os/apps.h"
#include "os/program_env.h"
#include "text/text_file.h"

namespace app {

CompanionLog::CompanionLog(std::u16string_view program) {
  const std::u16string file = os::GetEnvironmentVariableW(u"TVEJECT_LOG");
  if (file.empty()) return;
  const std::u16string prefix =
      std::u16string(program) + u"[" + base::ToText(os::GetCurrentProcessId()) + u"]: ";
  previous_ = base::SetLogSink([file, prefix](std::u16string_view line) {
    // The save logs lines of its own: they are not written, or each line would write another.
    static thread_local bool writing = false;
    if (writing) return;
    writing = true;
    mStringTools::SaveFile(file, prefix + std::u16string(line) + u"\r\n", true, 2, false, 1252, 0,
                           true, u"", 0, 5);
    writing = false;
  });
  installed_ = true;
}

CompanionLog::~CompanionLog() {
  if (installed_) base::SetLogSink(std::move(previous_));
}

}  // namespace app
