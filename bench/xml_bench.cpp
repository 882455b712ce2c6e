// Speed and memory of cXmlNode reading and writing whole documents, against pugixml, tinyxml2
// and libxml2 on the same documents in the same run, plus the doubling series that shows the
// cost per byte stays flat as documents grow.
//
//   cmake --preset bench && cmake --build --preset bench -j2
//   build/bench/bin/xml_bench                       # everything, then the summary tables
//   build/bench/bin/xml_bench --benchmark_filter=lang_10m
//
// Reading throughputs are in MB/s of the document's UTF-8 size (the file as it lies on disk);
// writing throughputs in MB/s of the text written. Measures:
//   load_full  UTF-8 bytes -> text (the program's decoder), XmlData assignment, full wake-up
//   load_lazy  the same, waking every node one level at a time (ChildCount) instead
//   top_value  from the decoded text (handed over, as the program hands over a file it read):
//              XmlData assignment, then the value two levels down the first children
//   write      a fully built tree -> XmlData text; write_utf8 also -> UTF-8 bytes
// Memory: peak bytes allocated while loading and fully waking, over the UTF-8 size.
#include <benchmark/benchmark.h>
#include <libxml/parser.h>
#include <malloc.h>
#include <tinyxml2.h>
#include <pugixml.hpp>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "documents.h"
#include "text/utf8.h"
#include "xml/node.h"

// operator new and delete below are malloc and free underneath, on purpose.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

// ---- Counting every allocation (operator new, and the C allocators the references use) --------

namespace {

// Counting is on only while a peak is measured, so that it costs the timed runs nothing.
bool g_counting = false;
std::atomic<std::int64_t> g_current{0};
std::atomic<std::int64_t> g_peak{0};

void Count(void* p) {
  if (!p || !g_counting) return;
  const auto now = g_current.fetch_add(static_cast<std::int64_t>(malloc_usable_size(p))) +
                   static_cast<std::int64_t>(malloc_usable_size(p));
  std::int64_t peak = g_peak.load();
  while (now > peak && !g_peak.compare_exchange_weak(peak, now)) {
  }
}
void Uncount(void* p) {
  if (p && g_counting) g_current.fetch_sub(static_cast<std::int64_t>(malloc_usable_size(p)));
}

void* CountedMalloc(size_t n) {
  void* p = std::malloc(n);
  Count(p);
  return p;
}
void CountedFree(void* p) {
  Uncount(p);
  std::free(p);
}
void* CountedRealloc(void* p, size_t n) {
  Uncount(p);
  void* q = std::realloc(p, n);
  Count(q ? q : p);
  return q;
}
char* CountedStrdup(const char* s) {
  const size_t n = std::strlen(s) + 1;
  char* p = static_cast<char*>(CountedMalloc(n));
  if (p) std::memcpy(p, s, n);
  return p;
}

}  // namespace

void* operator new(std::size_t n) {
  void* p = std::malloc(n ? n : 1);
  if (!p) throw std::bad_alloc();
  Count(p);
  return p;
}
void operator delete(void* p) noexcept {
  Uncount(p);
  std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
  Uncount(p);
  std::free(p);
}

namespace {

struct Document {
  std::string name;
  std::string utf8;
  std::u16string text;
};

std::u16string Decode(const std::string& utf8) {
  return mUTF8::UTF8_Decode(utf8, 1);
}

XmlNodePtr LoadFull(const std::string& utf8) {
  XmlNodePtr root = cXmlNode::Create();
  root->XmlData(Decode(utf8));
  root->WakeUp(true);
  return root;
}

// Wakes every node one level at a time, as members reading the tree do. Returns the count.
std::size_t WakeAllLazily(const XmlNodePtr& root) {
  std::size_t nodes = 0;
  std::vector<XmlNodePtr> stack{root};
  while (!stack.empty()) {
    XmlNodePtr n = std::move(stack.back());
    stack.pop_back();
    ++nodes;
    const std::int32_t count = n->ChildCount();
    for (std::int32_t i = count; i >= 1; --i) stack.push_back(n->Child(i));
  }
  return nodes;
}

void SetBytes(benchmark::State& state, std::size_t bytes) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
  state.counters["bytes"] = static_cast<double>(bytes);
}

void ParsePugixml(benchmark::State& state, const Document* d) {
  for (auto _ : state) {
    pugi::xml_document doc;
    if (!doc.load_buffer(d->utf8.data(), d->utf8.size(), pugi::parse_default,
                         pugi::encoding_utf8)) {
      state.SkipWithError("pugixml refused the document");
      return;
    }
    benchmark::DoNotOptimize(doc.first_child().name());
  }
  SetBytes(state, d->utf8.size());
}

struct StringWriter : pugi::xml_writer {
  std::string out;
  void write(const void* data, size_t size) override {
    out.append(static_cast<const char*>(data), size);
  }
};

void WritePugixml(benchmark::State& state, const Document* d) {
  pugi::xml_document doc;
  if (!doc.load_buffer(d->utf8.data(), d->utf8.size(), pugi::parse_default, pugi::encoding_utf8)) {
    state.SkipWithError("pugixml could not parse the document");
    return;
  }
  std::size_t written = 0;
  for (auto _ : state) {
    StringWriter writer;
    doc.save(writer, "\t", pugi::format_default, pugi::encoding_utf8);
    written = writer.out.size();
    benchmark::DoNotOptimize(writer.out.data());
  }
  SetBytes(state, written);
}

void ParseTinyxml2(benchmark::State& state, const Document* d) {
  for (auto _ : state) {
    tinyxml2::XMLDocument doc;
    if (doc.Parse(d->utf8.data(), d->utf8.size()) != tinyxml2::XML_SUCCESS) {
      state.SkipWithError("tinyxml2 refused the document");
      return;
    }
    benchmark::DoNotOptimize(doc.FirstChild());
  }
  SetBytes(state, d->utf8.size());
}

void Silent(void*, const char*, ...) {}

void ParseLibxml2(benchmark::State& state, const Document* d) {
  for (auto _ : state) {
    xmlDocPtr doc = xmlReadMemory(d->utf8.data(), static_cast<int>(d->utf8.size()), "doc.xml",
                                  nullptr, XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    if (!doc) {
      state.SkipWithError("libxml2 refused the document (default limits)");
      return;
    }
    benchmark::DoNotOptimize(doc->children);
    xmlFreeDoc(doc);
  }
  SetBytes(state, d->utf8.size());
}

void NodeLoadFull(benchmark::State& state, const Document* d) {
  std::int32_t nodes = 0;
  for (auto _ : state) {
    XmlNodePtr root = LoadFull(d->utf8);
    nodes = root->NodeCount();
    state.PauseTiming();
    root.reset();  // destroying is not part of loading
    state.ResumeTiming();
  }
  SetBytes(state, d->utf8.size());
  state.counters["nodes"] = nodes;
}

void NodeLoadLazy(benchmark::State& state, const Document* d) {
  std::size_t nodes = 0;
  for (auto _ : state) {
    XmlNodePtr root = cXmlNode::Create();
    root->XmlData(Decode(d->utf8));
    nodes = WakeAllLazily(root);
    state.PauseTiming();
    root.reset();
    state.ResumeTiming();
  }
  SetBytes(state, d->utf8.size());
  state.counters["nodes"] = static_cast<double>(nodes);
}

// How far down the value read "near the top" lies: the first child's first child, as the
// program reads a setting (root > section > value).
constexpr int kTopDepth = 2;

void NodeTopValue(benchmark::State& state, const Document* d) {
  for (auto _ : state) {
    state.PauseTiming();
    std::u16string text = d->text;
    state.ResumeTiming();
    XmlNodePtr root = cXmlNode::Create();
    root->XmlData(std::move(text));
    XmlNodePtr n = root;
    for (int depth = 0; depth < kTopDepth && n->ChildCount() > 0; ++depth) n = n->Child(1);
    benchmark::DoNotOptimize(n->Value());
    state.PauseTiming();
    n.reset();
    root.reset();
    state.ResumeTiming();
  }
  SetBytes(state, d->utf8.size());
}

void NodeWrite(benchmark::State& state, const Document* d, bool utf8) {
  XmlNodePtr root = LoadFull(d->utf8);
  std::size_t written = 0;
  for (auto _ : state) {
    std::u16string text = root->XmlData();
    if (utf8) {
      std::string bytes = mUTF8::UTF8_Encode(text, true);
      written = bytes.size();
      benchmark::DoNotOptimize(bytes.data());
    } else {
      written = text.size();
      benchmark::DoNotOptimize(text.data());
    }
  }
  SetBytes(state, written);
}

// The memory system's share of writing a chain: the same number of characters appended line by
// line (tabs, then the tag) to a growing text, with no tree behind them.
void ChainFill(benchmark::State& state, std::size_t levels) {
  std::size_t written = 0;
  for (auto _ : state) {
    std::u16string out;
    for (std::size_t k = 0; k < levels; ++k) {
      out.append(k, u'\t');
      out.append(u"<d>\r\n");
    }
    for (std::size_t k = levels; k-- > 0;) {
      out.append(k, u'\t');
      out.append(u"</d>\r\n");
    }
    written = out.size();
    benchmark::DoNotOptimize(out.data());
  }
  SetBytes(state, written);
}

// Peak allocation of loading and fully waking, over the UTF-8 size; pugixml and tinyxml2 for
// comparison (libxml2 through its own allocator hooks).
double PeakOf(const std::function<void()>& load) {
  g_counting = true;
  const std::int64_t base = g_current.load();
  g_peak.store(base);
  load();
  g_counting = false;
  return static_cast<double>(g_peak.load() - base);
}

class Collector : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      const std::string name = run.run_name.function_name;
      if (run.error_occurred) {
        errors_[name] = run.error_message;
        continue;
      }
      if (run.run_type != Run::RT_Aggregate || run.aggregate_name != "min") continue;
      const double seconds =
          run.GetAdjustedCPUTime() / benchmark::GetTimeUnitMultiplier(run.time_unit);
      auto it = run.counters.find("bytes");
      seconds_[name] = seconds;
      bytes_[name] = it == run.counters.end() ? 0 : static_cast<double>(it->second);
    }
    ConsoleReporter::ReportRuns(runs);
  }
  bool Has(const std::string& name) const { return seconds_.count(name) != 0; }
  double MBps(const std::string& name) const { return bytes_.at(name) / seconds_.at(name) / 1e6; }
  double NsPerByte(const std::string& name) const {
    return seconds_.at(name) * 1e9 / bytes_.at(name);
  }
  const std::map<std::string, std::string>& Errors() const { return errors_; }

 private:
  std::map<std::string, double> seconds_, bytes_;
  std::map<std::string, std::string> errors_;
};

std::vector<std::unique_ptr<Document>>& Documents() {
  static std::vector<std::unique_ptr<Document>> docs;
  return docs;
}

Document* Add(std::string name, std::string utf8) {
  auto d = std::make_unique<Document>();
  d->name = std::move(name);
  d->utf8 = std::move(utf8);
  d->text = Decode(d->utf8);
  Documents().push_back(std::move(d));
  return Documents().back().get();
}

void Repeated(benchmark::internal::Benchmark* b) {
  b->Unit(benchmark::kMillisecond)
      ->Repetitions(3)
      ->DisplayAggregatesOnly(true)
      ->ComputeStatistics("min", [](const std::vector<double>& v) {
        return *std::min_element(v.begin(), v.end());
      });
}

using Measure = std::function<void(benchmark::State&, const Document*)>;

const std::vector<std::pair<std::string, Measure>>& Measures() {
  static const std::vector<std::pair<std::string, Measure>> m = {
      {"pugixml", ParsePugixml},
      {"tinyxml2", ParseTinyxml2},
      {"libxml2", ParseLibxml2},
      {"pugixml_write", WritePugixml},
      {"load_full", NodeLoadFull},
      {"load_lazy", NodeLoadLazy},
      {"top_value", NodeTopValue},
      {"write", [](benchmark::State& s, const Document* d) { NodeWrite(s, d, false); }},
      {"write_utf8", [](benchmark::State& s, const Document* d) { NodeWrite(s, d, true); }},
  };
  return m;
}

void Register(Document* d, bool writes) {
  for (const auto& [measure, fn] : Measures()) {
    if (!writes && (measure == "write" || measure == "write_utf8" || measure == "pugixml_write"))
      continue;
    Repeated(benchmark::RegisterBenchmark(("xml/" + d->name + "/" + measure).c_str(),
                                          [fn = fn, d](benchmark::State& s) { fn(s, d); }));
  }
}

std::string Chain(std::size_t levels) {
  return bench_docs::Deep(levels);
}

}  // namespace

int main(int argc, char** argv) {
  xmlInitParser();
  xmlSetGenericErrorFunc(nullptr, Silent);
  // The deep chains are not written: indented, 100,000 levels make about 10 GB of tabs; the
  // writing series below uses chains of up to 10,000 levels.
  Register(Add("config_2k", bench_docs::Configuration()), true);
  Document* lang = Add("lang_10m", bench_docs::LanguageFile(10 << 20));
  Register(lang, true);
  Register(Add("comments_10m", bench_docs::CommentHeavy(10 << 20)), true);
  Register(Add("wide_1m", bench_docs::Wide(1000000)), true);
  Register(Add("deep_100k", bench_docs::Deep(100000)), false);
  Register(Add("deep_1m", bench_docs::Deep(1000000)), false);
  Register(Add("attrs_10m", bench_docs::AttributeHeavy(10 << 20)), true);
  Register(Add("text_10m", bench_docs::LongText(10 << 20)), true);

  struct Shape {
    const char* name;
    std::function<std::string(std::size_t)> make;
    std::size_t base;
  };
  const Shape shapes[] = {
      {"wide", bench_docs::Wide, 125000},
      {"deep", bench_docs::Deep, 12500},
      {"comments", bench_docs::CommentHeavy, 5 << 17},
      {"attrs", bench_docs::AttributeHeavy, 5 << 17},
      {"text", bench_docs::LongText, 5 << 17},
  };
  struct Series {
    std::string label;
    std::vector<std::string> names;
  };
  std::vector<Series> series;
  for (const Shape& shape : shapes) {
    Series full{std::string(shape.name) + " full", {}};
    Series lazy{std::string(shape.name) + " lazy", {}};
    for (int step = 0; step < 4; ++step) {
      Document* d = Add(std::string("scale_") + shape.name + "_" + std::to_string(step),
                        shape.make(shape.base << step));
      const std::string base = "scale/" + std::string(shape.name) + "/" + std::to_string(step);
      full.names.push_back(base + "/full");
      lazy.names.push_back(base + "/lazy");
      Repeated(benchmark::RegisterBenchmark((base + "/full").c_str(),
                                            [d](benchmark::State& s) { NodeLoadFull(s, d); }));
      Repeated(benchmark::RegisterBenchmark((base + "/lazy").c_str(),
                                            [d](benchmark::State& s) { NodeLoadLazy(s, d); }));
    }
    series.push_back(std::move(full));
    series.push_back(std::move(lazy));
  }
  Series writes{"chain write", {}};
  for (int step = 0; step < 4; ++step) {
    Document* d = Add("chain_" + std::to_string(step), Chain(std::size_t{1250} << step));
    const std::string name = "scale/chain_write/" + std::to_string(step);
    writes.names.push_back(name);
    Repeated(benchmark::RegisterBenchmark(name.c_str(),
                                          [d](benchmark::State& s) { NodeWrite(s, d, false); }));
  }
  series.push_back(std::move(writes));
  Series fills{"chain fill", {}};
  for (int step = 0; step < 4; ++step) {
    const std::string name = "scale/chain_fill/" + std::to_string(step);
    fills.names.push_back(name);
    const std::size_t levels = std::size_t{1250} << step;
    Repeated(benchmark::RegisterBenchmark(name.c_str(),
                                          [levels](benchmark::State& s) { ChainFill(s, levels); }));
  }
  series.push_back(std::move(fills));

  benchmark::Initialize(&argc, argv);
  Collector c;
  benchmark::RunSpecifiedBenchmarks(&c);

  std::printf("\n== Throughput, MB/s (reading: of UTF-8 input; writing: of text written)\n");
  std::printf("%-13s", "document");
  for (const auto& [m, fn] : Measures()) std::printf(" %10s", m.c_str());
  std::printf("\n");
  for (const auto& d : Documents()) {
    if (d->name.rfind("scale_", 0) == 0 || d->name.rfind("chain_", 0) == 0) continue;
    const std::string base = "xml/" + d->name + "/";
    std::printf("%-13s", d->name.c_str());
    for (const auto& [m, fn] : Measures()) {
      if (c.Has(base + m))
        std::printf(" %10.0f", c.MBps(base + m));
      else
        std::printf(" %10s", c.Errors().count(base + m) ? "refused" : "-");
    }
    std::printf("\n");
  }
  std::printf(
      "\n== Ratios: load_full/pugixml load_full/tinyxml2 top_value/pugixml "
      "write/pugixml_write write_utf8/pugixml_write\n");
  for (const auto& d : Documents()) {
    if (d->name.rfind("scale_", 0) == 0 || d->name.rfind("chain_", 0) == 0) continue;
    const std::string base = "xml/" + d->name + "/";
    auto ratio = [&](const char* a, const char* b) {
      if (!c.Has(base + a) || !c.Has(base + b)) return std::string("      -");
      char buf[32];
      std::snprintf(buf, sizeof buf, "%7.2f", c.MBps(base + a) / c.MBps(base + b));
      return std::string(buf);
    };
    std::printf("%-13s %s %s %s %s %s\n", d->name.c_str(), ratio("load_full", "pugixml").c_str(),
                ratio("load_full", "tinyxml2").c_str(), ratio("top_value", "pugixml").c_str(),
                ratio("write", "pugixml_write").c_str(),
                ratio("write_utf8", "pugixml_write").c_str());
  }
  for (const auto& [name, error] : c.Errors())
    std::printf("  %s: %s\n", name.c_str(), error.c_str());

  std::printf("\n== Doubling series: ns per byte (input for loads, output for writes)\n");
  for (const Series& s : series) {
    std::printf("%-14s", s.label.c_str());
    double previous = 0;
    for (const std::string& name : s.names) {
      if (!c.Has(name)) {
        std::printf("  %14s", "-");
        continue;
      }
      const double ns = c.NsPerByte(name);
      if (previous > 0)
        std::printf("  %6.3f (%4.2fx)", ns, ns / previous);
      else
        std::printf("  %6.3f        ", ns);
      previous = ns;
    }
    std::printf("\n");
  }

  // Peak memory of a fully woken 10 MB language file.
  const double size = static_cast<double>(lang->utf8.size());
  XmlNodePtr kept;
  const double before = static_cast<double>(g_current.load());
  const double ours = PeakOf([&] { kept = LoadFull(lang->utf8); });
  const double ours_after = static_cast<double>(g_current.load());
  const double after_base = before;
  kept.reset();
  pugi::set_memory_management_functions(CountedMalloc, CountedFree);
  const double pugi_peak = PeakOf([&] {
    pugi::xml_document doc;
    doc.load_buffer(lang->utf8.data(), lang->utf8.size(), pugi::parse_default, pugi::encoding_utf8);
  });
  const double tiny_peak = PeakOf([&] {
    tinyxml2::XMLDocument doc;
    doc.Parse(lang->utf8.data(), lang->utf8.size());
  });
  xmlMemSetup(CountedFree, CountedMalloc, CountedRealloc, CountedStrdup);
  const double libxml_peak = PeakOf([&] {
    xmlDocPtr doc = xmlReadMemory(lang->utf8.data(), static_cast<int>(lang->utf8.size()), "doc.xml",
                                  nullptr, XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    if (doc) xmlFreeDoc(doc);
  });
  std::printf("\n== Peak memory loading and fully waking lang_10m (%.1f MB of UTF-8)\n",
              size / 1e6);
  std::printf("cXmlNode %.2fx (%.1f MB; %.1f MB held by the woken tree)\n", ours / size, ours / 1e6,
              (ours_after - after_base) / 1e6);
  std::printf("pugixml  %.2fx\ntinyxml2 %.2fx\nlibxml2  %.2fx\n", pugi_peak / size,
              tiny_peak / size, libxml_peak / size);
  benchmark::Shutdown();
  return 0;
}
