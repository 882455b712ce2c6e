#include "base/debug_log.h"

namespace {
base::LogSink& Sink() {
  static base::LogSink sink;
  return sink;
}
}  // namespace

namespace base {
LogSink SetLogSink(LogSink sink) {
  LogSink previous = std::move(Sink());
  Sink() = std::move(sink);
  return previous;
}
}  // namespace base

void DebugLog(std::u16string_view line) {
  auto& sink = Sink();
  if (!sink) return;
  try {
    sink(line);
  } catch (...) {
    // A failing sink must not turn a diagnostic into a failure of the caller.
  }
}
