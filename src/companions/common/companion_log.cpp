#include "companions/common/companion_log.h"

#include "base/text.h"
#include "files/file_utils.h"
#include "files/paths.h"
#include "files/text_file.h"
#include "os/apps.h"
#include "os/files.h"
#include "os/program_env.h"

namespace app {
namespace {

// The log is often asked for in the temporary folder, where any user may put something under
// its name first: a link would have the lines written into whatever file of the user's it points
// to, a file of someone else's would hand them the lines. So the log is written only into a file
// of the user's own, not through a link, made exclusively when it is missing. Once the user's,
// it stays so: in a shared temporary folder (sticky) nobody else may rename or delete it.
bool OwnLogFile(const std::u16string& file) {
  os::PathFacts facts = os::GetPathFacts(file);
  if (!facts.exists) {
    const std::u16string folder = sys::ParentFolder(file);
    if (!folder.empty()) mFileUtils::CreateFolder(folder);
    // Made and closed at once: only the file matters here.
    os::CreateFileW(file.c_str(), os::kGenericWrite, os::kFileShareRead, os::kCreateNew, 0);
    facts = os::GetPathFacts(file);
  }
  return facts.exists && !facts.link && !facts.folder && facts.own;
}

}  // namespace

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
    if (OwnLogFile(file)) {
      mStringTools::SaveFile(file, prefix + std::u16string(line) + u"\r\n", true, 2, false, 1252, 0,
                             true, u"", 0, 5);
    }
    writing = false;
  });
  installed_ = true;
}

CompanionLog::~CompanionLog() {
  if (installed_) base::SetLogSink(std::move(previous_));
}

}  // namespace app
