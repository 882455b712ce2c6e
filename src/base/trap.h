// Run-time failures and the error trap every procedure of the program runs under.
//
// A procedure that can fail raises a RuntimeError carrying the classic error number and
// description (9 "Subscript out of range", 6 "Overflow", ...). Its body runs under Trap(),
// which turns any failure into one exact log line and the procedure's neutral value, so no
// failure ever crosses a procedure boundary:
//
//   std::u16string FileExtention(std::u16string_view name) {
//     return base::Trap(base::DansProperty(u"mFileUtils.FileExtention"), std::u16string(),
//                       [&] { ... });
//   }
//
// logs "Erreur 9 (Subscript out of range) dans Property mFileUtils.FileExtention" on failure.
#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <utility>

namespace base {

// The classic description of an error number; numbers outside the table give
// "Application-defined or object-defined error".
std::u16string ErrorDescription(std::int32_t number);

// Error numbers used across the program.
enum ErrorNumber : std::int32_t {
  kInvalidCall = 5,          // Invalid procedure call or argument
  kOverflow = 6,             // Overflow
  kOutOfMemory = 7,          // Out of memory
  kSubscriptOutOfRange = 9,  // Subscript out of range
  kDivisionByZero = 11,      // Division by zero
  kTypeMismatch = 13,        // Type mismatch
  kFileNotFound = 53,        // File not found
  kPermissionDenied = 70,    // Permission denied
  kPathNotFound = 76,        // Path not found
  kObjectNotSet = 91,        // Object variable or With block variable not set
};

// A run-time failure: an error number and its description.
class RuntimeError : public std::exception {
 public:
  explicit RuntimeError(std::int32_t number);
  RuntimeError(std::int32_t number, std::u16string description);
  std::int32_t Number() const { return number_; }
  const std::u16string& Description() const { return description_; }
  const char* what() const noexcept override { return "run-time error"; }

 private:
  std::int32_t number_;
  std::u16string description_;
};

[[noreturn]] void Raise(std::int32_t number);
[[noreturn]] void Raise(std::int32_t number, std::u16string description);

// Reads the exception in flight (call only inside a catch block) as a run-time error:
// RuntimeError as it is, std::bad_alloc as 7, std::out_of_range as 9, std::overflow_error as 6,
// anything else as 5.
RuntimeError CurrentError() noexcept;

// How a procedure's trap line is worded.
enum class TrapForm {
  kEnglish,      // "Error N (description) in KIND WHERE"
  kFrench,       // "Erreur N (description) dans KIND WHERE"
  kFrenchTerse,  // "Erreur N dans KIND WHERE : description"
};

// Where a trap sits: the wording, the kind ("Sub", "Function", "Property", "Fonction") and
// the qualified procedure name ("mGlobal.SaveConfig").
struct TrapSite {
  TrapForm form;
  std::u16string_view kind;
  std::u16string_view where;
};

constexpr TrapSite InSub(std::u16string_view w) {
  return {TrapForm::kEnglish, u"Sub", w};
}
constexpr TrapSite InFunction(std::u16string_view w) {
  return {TrapForm::kEnglish, u"Function", w};
}
constexpr TrapSite InProperty(std::u16string_view w) {
  return {TrapForm::kEnglish, u"Property", w};
}
constexpr TrapSite DansSub(std::u16string_view w) {
  return {TrapForm::kFrench, u"Sub", w};
}
constexpr TrapSite DansFunction(std::u16string_view w) {
  return {TrapForm::kFrench, u"Function", w};
}
constexpr TrapSite DansProperty(std::u16string_view w) {
  return {TrapForm::kFrench, u"Property", w};
}
constexpr TrapSite DansFonction(std::u16string_view w) {
  return {TrapForm::kFrench, u"Fonction", w};
}
constexpr TrapSite TerseFunction(std::u16string_view w) {
  return {TrapForm::kFrenchTerse, u"Function", w};
}

// The exact log line for a failure at a site.
std::u16string TrapLine(const TrapSite& site, std::int32_t number, std::u16string_view description);

// Logs the failure in flight for a site and returns it (call only inside a catch block).
RuntimeError ReportTrap(const TrapSite& site) noexcept;

// Runs body; on any failure logs the site's line and returns neutral.
template <class R, class Body>
R Trap(const TrapSite& site, R neutral, Body&& body) noexcept {
  try {
    return std::forward<Body>(body)();
  } catch (...) {
    ReportTrap(site);
    return neutral;
  }
}

// Runs a body that returns nothing; on failure logs the site's line. Returns whether the body
// completed, for callers that keep a partial result of their own.
template <class Body>
bool Trap(const TrapSite& site, Body&& body) noexcept {
  try {
    std::forward<Body>(body)();
    return true;
  } catch (...) {
    ReportTrap(site);
    return false;
  }
}

// The object a counted reference holds. A reference that holds nothing raises 91 ("Object
// variable or With block variable not set"), so that a member reached through a missing node
// fails under the caller's trap, logged like any other run-time error, instead of reading
// through nothing:
//
//   return base::Trap(site, std::u16string(), [&] { return base::Need(node).Name(); });
template <class Reference>
auto& Need(const Reference& reference) {
  if (!reference) Raise(kObjectNotSet);
  return *reference;
}

// Signed 32-bit arithmetic with the overflow check of the original numeric type: raises 6.
std::int32_t CheckedAdd(std::int32_t a, std::int32_t b);
std::int32_t CheckedSub(std::int32_t a, std::int32_t b);

}  // namespace base
