#include "os/fault.h"

#include <array>
#include <atomic>
#include <mutex>
#include <utility>

#include "os/types.h"

namespace os::fault {
namespace {

struct Slot {
  int countdown = 0;  // calls left before the first failure; 0 = disarmed
  int remaining = 0;  // failures left once started; negative = unlimited
  std::uint32_t error = 0;
};

std::array<Slot, static_cast<int>(Op::kCount)>& Slots() {
  static std::array<Slot, static_cast<int>(Op::kCount)> slots;
  return slots;
}

std::atomic<bool>& AnyArmed() {
  static std::atomic<bool> armed{false};
  return armed;
}

std::function<std::uint32_t()>& Clock() {
  static std::function<std::uint32_t()> clock;
  return clock;
}

std::function<void(Event, std::intptr_t)>& Observer() {
  static std::function<void(Event, std::intptr_t)> observer;
  return observer;
}

std::function<std::int32_t(const MessageBoxParams&)>& BoxAnswer() {
  static std::function<std::int32_t(const MessageBoxParams&)> answer;
  return answer;
}

std::function<ProgressPress(std::u16string_view)>& ProgressAnswer() {
  static std::function<ProgressPress(std::u16string_view)> answer;
  return answer;
}

std::mutex& DiskMutex() {
  static std::mutex m;
  return m;
}

std::u16string& Disk() {
  static std::u16string disk;
  return disk;
}

}  // namespace

ScopedRemovableDisk::ScopedRemovableDisk(std::u16string disk) {
  std::lock_guard<std::mutex> lock(DiskMutex());
  previous_ = std::exchange(Disk(), std::move(disk));
}

ScopedRemovableDisk::~ScopedRemovableDisk() {
  std::lock_guard<std::mutex> lock(DiskMutex());
  Disk() = previous_;
}

std::u16string RemovableDisk() {
  std::lock_guard<std::mutex> lock(DiskMutex());
  return Disk();
}

void Arm(Op op, std::uint32_t error, int nth, int times) {
  Slot& slot = Slots()[static_cast<int>(op)];
  slot.countdown = nth < 1 ? 1 : nth;
  slot.remaining = times <= 0 ? -1 : times;
  slot.error = error;
  AnyArmed() = true;
}

void Reset() {
  for (auto& slot : Slots()) slot = Slot{};
  AnyArmed() = false;
  Clock() = nullptr;
  Observer() = nullptr;
  BoxAnswer() = nullptr;
  ProgressAnswer() = nullptr;
}

bool Hit(Op op) {
  if (!AnyArmed().load(std::memory_order_relaxed)) return false;
  Slot& slot = Slots()[static_cast<int>(op)];
  if (slot.countdown == 0) return false;
  if (slot.countdown > 1) {
    --slot.countdown;
    return false;
  }
  // This call fails.
  if (slot.remaining > 0 && --slot.remaining == 0) slot.countdown = 0;
  SetLastError(slot.error);
  return true;
}

void SetClock(std::function<std::uint32_t()> clock) {
  Clock() = std::move(clock);
  if (Clock()) AnyArmed() = true;
}

bool ClockOverridden(std::uint32_t* now) {
  if (!Clock()) return false;
  *now = Clock()();
  return true;
}

}  // namespace os::fault

namespace os::fault {

void SetObserver(std::function<void(Event, std::intptr_t)> observer) {
  Observer() = std::move(observer);
}

void Notify(Event event, std::intptr_t value) {
  if (Observer()) Observer()(event, value);
}

void SetMessageBoxAnswer(std::function<std::int32_t(const MessageBoxParams&)> answer) {
  BoxAnswer() = std::move(answer);
}

bool AnswerMessageBox(const MessageBoxParams& params, std::int32_t* result) {
  if (!BoxAnswer()) return false;
  *result = BoxAnswer()(params);
  return true;
}

void SetProgressAnswer(std::function<ProgressPress(std::u16string_view)> answer) {
  ProgressAnswer() = std::move(answer);
}

bool ProgressAnswered() {
  return static_cast<bool>(ProgressAnswer());
}

bool AnswerProgress(std::u16string_view text, ProgressPress* press) {
  if (!ProgressAnswer()) return false;
  *press = ProgressAnswer()(text);
  return true;
}

}  // namespace os::fault
