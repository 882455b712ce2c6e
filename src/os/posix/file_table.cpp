// The POSIX side's table of open files and devices.
#include "os/posix/file_table.h"

#include <map>
#include <mutex>

namespace os::posix {
namespace {

struct Table {
  std::mutex mutex;
  std::map<Handle, std::shared_ptr<OpenFile>> files;
  Handle next = 0x1000;
};

Table& Files() {
  static Table table;
  return table;
}

}  // namespace

Handle AddOpenFile(std::shared_ptr<OpenFile> file) {
  Table& t = Files();
  std::lock_guard<std::mutex> lock(t.mutex);
  Handle h = t.next;
  t.next += 4;
  t.files.emplace(h, std::move(file));
  return h;
}

std::shared_ptr<OpenFile> FindOpenFile(Handle handle) {
  Table& t = Files();
  std::lock_guard<std::mutex> lock(t.mutex);
  auto it = t.files.find(handle);
  return it == t.files.end() ? nullptr : it->second;
}

std::shared_ptr<OpenFile> RemoveOpenFile(Handle handle) {
  Table& t = Files();
  std::lock_guard<std::mutex> lock(t.mutex);
  auto it = t.files.find(handle);
  if (it == t.files.end()) return nullptr;
  std::shared_ptr<OpenFile> file = std::move(it->second);
  t.files.erase(it);
  return file;
}

}  // namespace os::posix
