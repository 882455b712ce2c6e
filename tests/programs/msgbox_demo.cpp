// Shows one message box through MsgBox and writes the button code it returned to a file.
//   msgbox_demo --out FILE [--flags N] [--title TEXT] [--text TEXT]
// The end-to-end scenarios drive it under Wine in Xvfb; on Linux it shows the box the way the
// POSIX side would (dialog, terminal or none).
#ifdef _WIN32
#include <windows.h>

#include <shellapi.h>
#endif

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "base/text.h"
#include "text/msgbox.h"

int main(int argc, char** argv) {
  std::vector<std::u16string> args;
#ifdef _WIN32
  int count = 0;
  LPWSTR* w = ::CommandLineToArgvW(::GetCommandLineW(), &count);
  for (int i = 1; i < count; ++i) args.emplace_back(reinterpret_cast<const char16_t*>(w[i]));
  ::LocalFree(w);
#else
  for (int i = 1; i < argc; ++i) args.push_back(base::Widen(argv[i]));
#endif
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
