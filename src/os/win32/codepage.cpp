// Win32 side of the seam: code-page conversion and the UTF-16 guess, straight to the API.
#include <windows.h>

#include "os/codepage.h"

namespace os {

int MultiByteToWideChar(std::uint32_t code_page, const char* source, int source_length,
                        char16_t* target, int target_length) {
  return ::MultiByteToWideChar(code_page, 0, source, source_length,
                               reinterpret_cast<wchar_t*>(target), target_length);
}

int WideCharToMultiByte(std::uint32_t code_page, const char16_t* source, int source_length,
                        char* target, int target_length) {
  return ::WideCharToMultiByte(code_page, 0, reinterpret_cast<const wchar_t*>(source),
                               source_length, target, target_length, nullptr, nullptr);
}

bool IsTextUnicode(const void* data, int size, int* tests) {
  INT result = tests ? *tests : 0;
  BOOL answer = ::IsTextUnicode(data, size, tests ? &result : nullptr);
  if (tests) *tests = result;
  return answer != FALSE;
}

}  // namespace os
