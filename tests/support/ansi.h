// Whether the platform's ANSI code page is 1252, for the rows written for it.
#pragma once

#include "os/codepage.h"

namespace testing_support {

inline bool AnsiIs1252() {
  char16_t euro = 0;
  return os::MultiByteToWideChar(os::kCpAcp, "\x80", 1, &euro, 1) == 1 && euro == u'\u20AC';
}

}  // namespace testing_support
