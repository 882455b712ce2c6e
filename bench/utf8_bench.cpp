// UTF-8 detection and decoding of a 10 MB text, against glibc's iconv doing the same
// conversion (UTF-8 to UTF-16LE into a fresh string), measured side by side in one run.
//
//   cmake --preset bench && cmake --build --preset bench -j2 && build/bench/bin/utf8_bench
//
// Two texts: mostly ASCII (2 % of the characters beyond it) and 30 % non-ASCII. The program
// ends with the throughput ratio of ours to iconv's for each text.
#include <benchmark/benchmark.h>
#include <iconv.h>

#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "text/encoding.h"
#include "text/utf8.h"

namespace {

constexpr std::size_t kSize = 10 * 1024 * 1024;

// Words of 2 to 9 letters separated by blanks and an occasional line end; `percent` of the
// letters are beyond ASCII: accented Latin (2 bytes), Cyrillic (2 bytes), and a few euro signs
// and CJK characters (3 bytes).
std::string MakeText(int percent) {
  static const char* const kWide[] = {"\xC3\xA9", "\xC3\xA8",     "\xC3\xBC",    "\xC3\xB6",
                                      "\xC3\xA7", "\xD0\xB6",     "\xD0\xBF",    "\xD1\x8F",
                                      "\xD0\xB8", "\xE2\x82\xAC", "\xE4\xB8\x80"};
  std::mt19937 random(12345);
  std::string text;
  text.reserve(kSize + 16);
  while (text.size() < kSize) {
    int letters = 2 + static_cast<int>(random() % 8);
    for (int i = 0; i < letters; ++i) {
      if (static_cast<int>(random() % 100) < percent) {
        text += kWide[random() % (sizeof kWide / sizeof kWide[0])];
      } else {
        text += static_cast<char>('a' + random() % 26);
      }
    }
    text += random() % 12 == 0 ? '\n' : ' ';
  }
  text.resize(kSize);
  // Do not end inside a sequence.
  while (!text.empty() && (static_cast<unsigned char>(text.back()) & 0x80)) text.pop_back();
  return text;
}

const std::string& Text(int percent) {
  static std::map<int, std::string> texts;
  auto it = texts.find(percent);
  if (it == texts.end()) it = texts.emplace(percent, MakeText(percent)).first;
  return it->second;
}

void Ours(benchmark::State& state) {
  const std::string& text = Text(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    bool utf8 = mUTF8::IsUTF8(text);
    std::u16string decoded = mStringTools::StrCodePageToUnicode(text, 65001);
    benchmark::DoNotOptimize(utf8);
    benchmark::DoNotOptimize(decoded.data());
    if (!utf8 || decoded.empty()) state.SkipWithError("not decoded");
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void Iconv(benchmark::State& state) {
  const std::string& text = Text(static_cast<int>(state.range(0)));
  iconv_t cd = iconv_open("UTF-16LE", "UTF-8");
  for (auto _ : state) {
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    std::u16string decoded(text.size() + 1, u'\0');
    char* in = const_cast<char*>(text.data());
    std::size_t in_left = text.size();
    char* out = reinterpret_cast<char*>(decoded.data());
    std::size_t out_left = decoded.size() * 2;
    if (iconv(cd, &in, &in_left, &out, &out_left) == static_cast<std::size_t>(-1)) {
      state.SkipWithError("iconv failed");
    }
    decoded.resize(decoded.size() - out_left / 2);
    benchmark::DoNotOptimize(decoded.data());
  }
  iconv_close(cd);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

// The two halves of ours on their own.
void IsUtf8Only(benchmark::State& state) {
  const std::string& text = Text(static_cast<int>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(mUTF8::IsUTF8(text));
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void DecodeOnly(benchmark::State& state) {
  const std::string& text = Text(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    std::u16string decoded = mStringTools::StrCodePageToUnicode(text, 65001);
    benchmark::DoNotOptimize(decoded.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

BENCHMARK(IsUtf8Only)->Arg(2)->Arg(30)->Unit(benchmark::kMillisecond);
BENCHMARK(DecodeOnly)->Arg(2)->Arg(30)->Unit(benchmark::kMillisecond);
BENCHMARK(Ours)->Arg(2)->Arg(30)->Unit(benchmark::kMillisecond);
BENCHMARK(Iconv)->Arg(2)->Arg(30)->Unit(benchmark::kMillisecond);

// The console report, then each text's ratio of our throughput to iconv's (from the means when
// the runs are repeated).
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.error_occurred) continue;
      const bool mean = run.run_type == Run::RT_Aggregate && run.aggregate_name == "mean";
      if (run.run_type == Run::RT_Aggregate && !mean) continue;
      auto it = run.counters.find("bytes_per_second");
      if (it == run.counters.end()) continue;
      const std::string key = run.run_name.function_name + "/" + run.run_name.args;
      if (mean || !means_.count(key)) rates_[key] = it->second.value;
      if (mean) means_[key] = true;
    }
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    for (const char* arg : {"2", "30"}) {
      const double ours = rates_[std::string("Ours/") + arg];
      const double iconv = rates_[std::string("Iconv/") + arg];
      if (ours > 0 && iconv > 0) {
        std::printf("%s%% non-ASCII: ours %.0f MB/s, iconv %.0f MB/s, ratio %.2f\n", arg,
                    ours / 1e6, iconv / 1e6, ours / iconv);
      }
    }
  }

 private:
  std::map<std::string, double> rates_;
  std::map<std::string, bool> means_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
