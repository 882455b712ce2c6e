// Shows one message box through MsgBox and writes the button code it returned to a file.
//   msgbox_demo --out FILE [--flags N] [--title TEXT] [--text TEXT]
// The end-to-end scenarios drive it under Wine in Xvfb; on Linux it shows the box the way the
// POSIX side would (dialog, terminal or none).
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "base/text.h"
#include "os/program_env.h"
#include "text/msgbox.h"

int main() {
  const std::vector<std::u16string> args = os::ProgramArguments();
  std::u16string out, title, text = u"Message box test";
  int flags = 0;
  for (std::size_t i = 0; i + 1 < args.size(); i += 2) {
    if (args[i] == u"--out") out = args[i + 1];
    if (args[i] == u"--flags") flags = std::stoi(base::Narrow(args[i + 1]));
    if (args[i] == u"--title") title = args[i + 1];
    if (args[i] == u"--text") text = args[i + 1];
  }
  std::int32_t answer = mUnicodePatch::MsgBox(text, flags, title);
  if (!out.empty()) {
    std::ofstream file(std::filesystem::path(out), std::ios::binary | std::ios::trunc);
    file << answer << "\n";
  }
  return 0;
}
