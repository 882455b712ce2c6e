// Saves and loads one text file the way TvEject saves and loads its configuration, so that a
// save can be interrupted from outside (strace's fault injection, a full disk) and the next
// load checked.
//   saver save FILE TEXT    saves TEXT (or the bytes of the file PATH when TEXT is "@PATH") to
//                           FILE as UTF-8 without a mark, with the temporary safety copy only;
//                           exit 0 when the save reported success, 1 when it did not
//   saver load FILE         puts back the safety copy an interrupted save left, then prints the
//                           file's text (UTF-8) to standard output; exit 0, 3 when FILE is
//                           missing after the recovery
// The save is framed on standard error by the lines "save begins" and "save ends", the recovery
// by "recovery begins" and "recovery ends", each one write, so that a trace can tell their own
// system calls from the program's start-up. The program's log lines are held back until then
// and written to standard error at the end.
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "base/debug_log.h"
#include "base/text.h"
#include "files/file_utils.h"
#include "files/text_file.h"

namespace {

void Say(const std::string& line) {
  // Standard error is unbuffered: one line, one write.
  std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  if (!(mode == "save" && argc == 4) && !(mode == "load" && argc == 3)) {
    Say("usage: saver save FILE TEXT|@PATH  |  saver load FILE\n");
    return 2;
  }
  const std::u16string file = base::Widen(argv[2]);
  std::vector<std::u16string> log;
  base::ScopedLogSink sink([&](std::u16string_view line) { log.emplace_back(line); });
  bool done = true;
  if (mode == "save") {
    std::string bytes = argv[3];
    if (bytes.starts_with('@')) {
      std::ifstream in(bytes.substr(1), std::ios::binary);
      if (!in) {
        Say("cannot read " + bytes.substr(1) + "\n");
        return 2;
      }
      bytes.assign(std::istreambuf_iterator<char>(in), {});
    }
    Say("save begins\n");
    done =
        mStringTools::SaveFile(file, base::Widen(bytes), true, 2, false, 1252, 0, false, u"", 0, 5);
    Say("save ends\n");
  } else {
    Say("recovery begins\n");
    mStringTools::RecoverInterruptedSave(file);
    Say("recovery ends\n");
    done = mFileUtils::FileExists(file);
    const std::string text = base::Narrow(mGlobal::LoadTextFile(file));
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
  }
  for (const auto& line : log) Say("log: " + base::Narrow(line) + "\n");
  return done ? 0 : mode == "save" ? 1 : 3;
}
