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
  // A root keeps its separator: "E:\TvEject.exe" lives in "E:\", "/TvEject" in "/".
  return sys::ParentFolder(ProgramFile());
}

std::u16string InProgramFolder(std::u16string_view name) {
  return sys::ChildPath(ProgramFolder(), name);
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
