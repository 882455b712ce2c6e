// The program's diagnostic log: one function taking one line.
//
// By default nothing is recorded. Tests (and an opt-in log file) install a sink that receives
// every line; the sink is process-wide and replaced, not stacked.
//
//   base::ScopedLogSink capture([&](std::u16string_view line) { lines.emplace_back(line); });
//   DebugLog(u"Loading language file : TvEject_lng.xml");
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace base {

using LogSink = std::function<void(std::u16string_view)>;

// Installs the sink that receives every line; an empty function restores "record nothing".
// Returns the sink that was installed before.
LogSink SetLogSink(LogSink sink);

// Installs a sink for the lifetime of the object and puts the previous one back afterwards.
class ScopedLogSink {
 public:
  explicit ScopedLogSink(LogSink sink) : previous_(SetLogSink(std::move(sink))) {}
  ~ScopedLogSink() { SetLogSink(std::move(previous_)); }
  ScopedLogSink(const ScopedLogSink&) = delete;
  ScopedLogSink& operator=(const ScopedLogSink&) = delete;

 private:
  LogSink previous_;
};

}  // namespace base

// Sends one line to the log. Never throws, even when the sink does.
void DebugLog(std::u16string_view line);
