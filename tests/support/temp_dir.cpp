#include "support/temp_dir.h"

#include <atomic>
#include <chrono>
#include <fstream>
#include <iterator>

#include "os/process.h"

namespace fs = std::filesystem;

namespace testing_support {
namespace {
std::atomic<int> counter{0};
}

TempDir::TempDir() {
  const auto stamp = std::to_string(std::chrono::steady_clock::now().time_since_epoch().count());
  std::error_code ec;
  do
    path_ = fs::temp_directory_path() / ("tveject-test-" + stamp + "-" + std::to_string(counter++));
  while (!fs::create_directory(path_, ec));
}

TempDir::~TempDir() {
  std::error_code ec;
  // Files made read-only by a test must not keep the folder alive.
  for (auto it = fs::recursive_directory_iterator(path_, ec);
       !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
    fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ec);
  }
  fs::remove_all(path_, ec);
}

std::u16string TempDir::u16() const {
  return path_.u16string();
}

std::u16string TempDir::u16(std::u16string_view name) const {
  return (path_ / fs::path(std::u16string(name))).u16string();
}

std::u16string TempDir::Write(std::u16string_view name, std::string_view bytes) const {
  fs::path p = path_ / fs::path(std::u16string(name));
  fs::create_directories(p.parent_path());
  std::ofstream out(p, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return p.u16string();
}

std::string TempDir::Read(std::u16string_view name) const {
  // A folder reads as nothing (the stream would throw reading it).
  const fs::path file = path_ / fs::path(std::u16string(name));
  if (!fs::is_regular_file(file)) return std::string();
  std::ifstream in(file, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

bool TempDir::Exists(std::u16string_view name) const {
  return fs::exists(path_ / fs::path(std::u16string(name)));
}

std::u16string ProgramFolder() {
  return fs::path(os::ModuleFileName()).parent_path().u16string();
}

std::u16string HelperProgram(std::u16string_view name) {
  // The test program's own extension: ".exe" on Windows, none elsewhere.
  return (fs::path(ProgramFolder()) / fs::path(std::u16string(name)))
      .concat(fs::path(os::ModuleFileName()).extension().u16string())
      .u16string();
}

}  // namespace testing_support
