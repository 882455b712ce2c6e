// The POSIX side's table of open files, and the sharing rules Windows applies between openers.
#include "os/posix/file_table.h"

#include <map>
#include <mutex>

#include "os/files.h"

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

bool Reads(std::uint32_t access) {
  return (access & kGenericRead) != 0;
}
bool Writes(std::uint32_t access) {
  return (access & kGenericWrite) != 0;
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

// Windows checks sharing only for opens that read or write data: each side's access must be
// allowed by the other side's sharing.
bool SharingConflict(dev_t device, ino_t inode, std::uint32_t access, std::uint32_t share) {
  if (!Reads(access) && !Writes(access)) return false;
  Table& t = Files();
  std::lock_guard<std::mutex> lock(t.mutex);
  for (const auto& [handle, file] : t.files) {
    if (file->sysfs.size() || file->device != device || file->inode != inode) continue;
    if (!Reads(file->access) && !Writes(file->access)) continue;
    if (Reads(access) && !(file->share & kFileShareRead)) return true;
    if (Writes(access) && !(file->share & kFileShareWrite)) return true;
    if (Reads(file->access) && !(share & kFileShareRead)) return true;
    if (Writes(file->access) && !(share & kFileShareWrite)) return true;
  }
  return false;
}

bool DeleteConflict(dev_t device, ino_t inode) {
  Table& t = Files();
  std::lock_guard<std::mutex> lock(t.mutex);
  for (const auto& [handle, file] : t.files) {
    if (file->sysfs.size() || file->device != device || file->inode != inode) continue;
    if (!(file->share & kFileShareDelete)) return true;
  }
  return false;
}

}  // namespace os::posix
