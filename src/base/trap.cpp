#include "base/trap.h"

#include <new>
#include <stdexcept>

#include "base/debug_log.h"
#include "base/text.h"

namespace base {

std::u16string ErrorDescription(std::int32_t number) {
  switch (number) {
    case 3:
      return u"Return without GoSub";
    case 5:
      return u"Invalid procedure call or argument";
    case 6:
      return u"Overflow";
    case 7:
      return u"Out of memory";
    case 9:
      return u"Subscript out of range";
    case 10:
      return u"This array is fixed or temporarily locked";
    case 11:
      return u"Division by zero";
    case 13:
      return u"Type mismatch";
    case 14:
      return u"Out of string space";
    case 28:
      return u"Out of stack space";
    case 35:
      return u"Sub or Function not defined";
    case 48:
      return u"Error in loading DLL";
    case 51:
      return u"Internal error";
    case 52:
      return u"Bad file name or number";
    case 53:
      return u"File not found";
    case 54:
      return u"Bad file mode";
    case 55:
      return u"File already open";
    case 57:
      return u"Device I/O error";
    case 58:
      return u"File already exists";
    case 61:
      return u"Disk full";
    case 62:
      return u"Input past end of file";
    case 67:
      return u"Too many files";
    case 68:
      return u"Device unavailable";
    case 70:
      return u"Permission denied";
    case 71:
      return u"Disk not ready";
    case 74:
      return u"Can't rename with different drive";
    case 75:
      return u"Path/File access error";
    case 76:
      return u"Path not found";
    case 91:
      return u"Object variable or With block variable not set";
    case 92:
      return u"For loop not initialized";
    case 93:
      return u"Invalid pattern string";
    case 94:
      return u"Invalid use of Null";
    case 438:
      return u"Object doesn't support this property or method";
    case 440:
      return u"Automation error";
    case 445:
      return u"Object doesn't support this action";
    case 450:
      return u"Wrong number of arguments or invalid property assignment";
    default:
      return u"Application-defined or object-defined error";
  }
}

RuntimeError::RuntimeError(std::int32_t number)
    : number_(number), description_(ErrorDescription(number)) {}

RuntimeError::RuntimeError(std::int32_t number, std::u16string description)
    : number_(number), description_(std::move(description)) {}

void Raise(std::int32_t number) {
  throw RuntimeError(number);
}
void Raise(std::int32_t number, std::u16string description) {
  throw RuntimeError(number, std::move(description));
}

RuntimeError CurrentError() noexcept {
  try {
    try {
      throw;
    } catch (const RuntimeError& e) {
      return e;
    } catch (const std::bad_alloc&) {
      return RuntimeError(kOutOfMemory);
    } catch (const std::length_error&) {
      return RuntimeError(kOutOfMemory);
    } catch (const std::out_of_range&) {
      return RuntimeError(kSubscriptOutOfRange);
    } catch (const std::overflow_error&) {
      return RuntimeError(kOverflow);
    } catch (...) {
      return RuntimeError(kInvalidCall);
    }
  } catch (...) {
    // Building the error itself failed (no memory left for its text).
    return RuntimeError(kOutOfMemory, std::u16string());
  }
}

std::u16string TrapLine(const TrapSite& site, std::int32_t number,
                        std::u16string_view description) {
  std::u16string line;
  const std::u16string n = ToText(number);
  switch (site.form) {
    case TrapForm::kEnglish:
      line.append(u"Error ").append(n).append(u" (").append(description).append(u") in ");
      break;
    case TrapForm::kFrench:
      line.append(u"Erreur ").append(n).append(u" (").append(description).append(u") dans ");
      break;
    case TrapForm::kFrenchTerse:
      line.append(u"Erreur ").append(n).append(u" dans ");
      break;
  }
  line.append(site.kind).append(u" ").append(site.where);
  if (site.form == TrapForm::kFrenchTerse) line.append(u" : ").append(description);
  return line;
}

RuntimeError ReportTrap(const TrapSite& site) noexcept {
  RuntimeError error = CurrentError();
  try {
    DebugLog(TrapLine(site, error.Number(), error.Description()));
  } catch (...) {
  }
  return error;
}

std::int32_t CheckedAdd(std::int32_t a, std::int32_t b) {
  std::int32_t r;
  if (__builtin_add_overflow(a, b, &r)) Raise(kOverflow);
  return r;
}

std::int32_t CheckedSub(std::int32_t a, std::int32_t b) {
  std::int32_t r;
  if (__builtin_sub_overflow(a, b, &r)) Raise(kOverflow);
  return r;
}

}  // namespace base
