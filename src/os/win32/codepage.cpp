// Win32 side of the seam: code-page conversion and the UTF-16 guess, straight to the API.
#include <windows.h>

#include "os/codepage.h"

namespace os {

int MultiByteToWideChar(std::uint32_t code_page, std::uint32_t flags, const char* source,
                        int source_length, char16_t* target, int target_length) {
  return ::MultiByteToWideChar(code_page, flags, source, source_length,
                               reinterpret_cast<wchar_t*>(target), target_length);
}

int WideCharToMultiByte(std::uint32_t code_page, std::uint32_t flags, const char16_t* source,
                        int source_length, char* target, int target_length,
                        const char* default_char, bool* used_default) {
  BOOL used = FALSE;
  int n = ::WideCharToMultiByte(code_page, flags, reinterpret_cast<const wchar_t*>(source),
                                source_length, target, target_length, default_char,
                                used_default ? &used : nullptr);
  if (used_default && n != 0) *used_default = used != FALSE;
  return n;
}

bool IsTextUnicode(const void* data, int size, int* tests) {
  INT result = tests ? *tests : 0;
  BOOL answer = ::IsTextUnicode(data, size, tests ? &result : nullptr);
  if (tests) *tests = result;
  return answer != FALSE;
}

std::uint32_t GetACP() {
  return ::GetACP();
}

}  // namespace os
