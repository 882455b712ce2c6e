#include "sys/program.h"

#include "files/paths.h"
#include "os/process.h"

namespace mGlobal {
namespace {

std::u16string& Override() {
  static std::u16string path;
  return path;
}

std::u16string ProgramFile() {
  return Override().empty() ? os::ModuleFileName() : Override();
}

}  // namespace

std::u16string ProgramFolder() {
  const std::u16string file = ProgramFile();
  std::size_t cut = file.find_last_of(u"\\/");
  if (cut == std::u16string::npos) return std::u16string();
  std::u16string folder = file.substr(0, cut);
  // A root keeps its separator: "E:\TvEject.exe" lives in "E:\", "/TvEject" in "/".
  if (folder.empty() || (folder.size() == 2 && folder[1] == u':')) folder += file[cut];
  return folder;
}

std::u16string InProgramFolder(std::u16string_view name) {
  std::u16string folder = ProgramFolder();
  // At a root the folder already ends with its separator.
  if (folder.empty() || (folder.back() != u'\\' && folder.back() != u'/')) folder += u'\\';
  return folder + std::u16string(name);
}

std::u16string ProgramBaseName() {
  const std::u16string name = mFileUtils::FileNameOnly(ProgramFile());
  const std::u16string ext = mFileUtils::FileExtention(name);
  return ext.empty() ? name : name.substr(0, name.size() - ext.size() - 1);
}

void SetProgramFile(std::u16string_view path) {
  Override() = std::u16string(path);
}

}  // namespace mGlobal
