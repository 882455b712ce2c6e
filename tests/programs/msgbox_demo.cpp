// Shows one message box through MsgBox and writes the button code it returned to a file.
//   msgbox_demo --out FILE [--flags N] [--title TEXT] [--text TEXT]
// The end-to-end scenarios drive it under Wine in Xvfb; on Linux it shows the box the way the
// POSIX side would (dialog, terminal or none).
#include <filesystem>
#include <fstream>

#include "options.h"
#include "text/msgbox.h"

int main() {
  const helper::Options options;
  const std::u16string out = options.Text(u"--out"), text = options.Text(u"--text");
  const std::int32_t answer = mUnicodePatch::MsgBox(
      options.Has(u"--text") ? text : u"Message box test",
      static_cast<int>(options.Number(u"--flags", 0)), options.Text(u"--title"));
  if (!out.empty()) std::ofstream(std::filesystem::path(out), std::ios::binary) << answer << "\n";
  return 0;
}
