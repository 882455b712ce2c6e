#include "app/start.h"

#include <cmath>
#include <string>

#include "base/text.h"
#include "files/file_utils.h"
#include "files/paths.h"
#include "files/text_file.h"
#include "lang/lang.h"
#include "lang/language_file.h"
#include "os/entry.h"
#include "os/os.h"
#include "sys/config.h"
#include "sys/program.h"
#include "sys/sync_shell.h"
#include "text/msgbox.h"
#include "text/strings.h"

namespace app {
namespace {

// Kept loaded for the run, from the start until the run ends.
os::Library shell_library;

constexpr std::u16string_view kIntroDefault =
    u"Tarvel USB Eject ferme tous les programmes du p\u00E9riph\u00E9rique USB !";
constexpr std::u16string_view kCloseErrorDefault =
    u"Erreur en ex\u00E9cutant le programme de fermeture des applications";
constexpr std::u16string_view kStillRunningDefault =
    u"Il reste encore des applications en cours d'ex\u00E9cution.\r\n\r\n"
    u"D\u00E9connexion USB annul\u00E9e";
constexpr std::u16string_view kEjectErrorDefault =
    u"Erreur en ex\u00E9cutant le programme d'ejection du disque USB";

std::u16string Text(std::u16string_view key, std::u16string_view default_text) {
  return mLang::Lang().GetString(key, default_text);
}

std::int32_t Box(const std::u16string& text, std::int32_t flags) {
  return mUnicodePatch::MsgBox(text, flags, u"", u"", 0, -1, true);
}

}  // namespace

void FreeShellLibrary() {
  shell_library = os::Library();
}

std::int32_t ParseCount(std::u16string_view text) {
  // The longest leading piece that reads as a number counts; anything else reads as 0.
  std::size_t used = 0;
  double value = base::ReadNumber(text, used);
  value = std::nearbyint(value);  // the default rounding mode: halves to even
  if (!(value >= -2147483648.0 && value <= 2147483647.0)) {
    // More applications than a count can hold: still "some are running".
    return value > 0 ? 2147483647 : 0;
  }
  return static_cast<std::int32_t>(value);
}

void RunEject() {
  if (!mGlobal::LoadConfig()) {
    FreeShellLibrary();
    return;
  }
  mLang::InitLanguage();
  mGlobal::SaveConfig();

  if (Box(Text(u"Messages.Intro", kIntroDefault), 1) == os::kIdCancel) {
    FreeShellLibrary();
    return;
  }

  std::u16string companion = mGlobal::GetFullPath(mGlobal::ProgramFolder() + u"\\..\\TvAppsClose");
  mStringTools::AddBackSlash(companion);
  const std::u16string result_file = companion + u"TvAppsClose.out";
  mFileUtils::KillFile(result_file, 20);

  std::u16string error_text;
  if (!mSyncShell::SyncShell(companion + u"TvAppsClose" + std::u16string(os::kExecutableSuffix),
                             u"/now /out", std::nullopt, 1, error_text, 2000000000, u"")) {
    Box(Text(u"Messages.Errors.TvAppsCloseRunError", kCloseErrorDefault), 16);
    FreeShellLibrary();
    return;
  }

  std::int32_t count = 0;
  if (mFileUtils::FileExists(result_file)) {
    const std::u16string text = mGlobal::LoadTextFile(result_file);
    mFileUtils::KillFile(result_file, 20);
    count = ParseCount(text);
  }

  if (count > 0) {
    std::u16string message = Text(u"Message.AppStillRunning", kStillRunningDefault);
    message = base::ReplaceAll(std::move(message), u"%count%", base::ToText(count));
    Box(message, 64);
    FreeShellLibrary();
    return;
  }

  std::int32_t shell_result = 0;
  if (!mSyncShell::ShellExec(
          mGlobal::ProgramFolder() + u"\\TvDiskEjector" + std::u16string(os::kExecutableSuffix), 1,
          u"/retry", u"", u"", 0, shell_result)) {
    Box(Text(u"Messages.Errors.TvDiskEjectorRunError", kEjectErrorDefault), 16);
  }
  mLang::SaveLangFile();
  FreeShellLibrary();
}

void Start() {
  os::RestrictLibrarySearch();
  shell_library = os::LoadLibraryW(u"shell32.dll");
  // ICC_USEREX_CLASSES with the 8-byte structure; the result does not matter to the run.
  os::InitCommonControls(8, 0x200);
  RunEject();
}

}  // namespace app
