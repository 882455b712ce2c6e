// Reading speed of the XML scanner against pugixml, tinyxml2 and libxml2 on the same documents
// in the same run, plus the doubling series that shows the scanner's cost per byte stays flat.
//
//   cmake --preset bench && cmake --build --preset bench -j2
//   build/bench/bin/tveject_bench                  # everything, then the summary tables
//   build/bench/bin/tveject_bench --benchmark_filter=lang_10m
//
// Every throughput is in MB/s of the document's UTF-8 size (the file as it lies on disk), so
// the figures compare directly; "write" is in MB/s of the text written.
#include <benchmark/benchmark.h>
#include <libxml/parser.h>
#include <tinyxml2.h>
#include <pugixml.hpp>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/text.h"
#include "documents.h"
#include "xml/element_scan.h"
#include "xml/scan.h"

namespace {

struct Document {
  std::string name;
  std::string utf8;
  std::u16string text;  // decoded once, for the measures that start from decoded text
};

// Reads every element the way a full wake-up does: each element's own tag, its attributes and
// its children, level after level, with an explicit stack (only elements with children wait on
// it; leaves are read as their parent lists them). Returns the number of elements.
void ReadAttributes(const xml::ScannedText& doc, const xml::ElementScan& r) {
  if (!r.has_attributes) return;
  xml::ForEachTagAttrib(
      doc.Text().substr(r.attributes_begin, r.attributes_end - r.attributes_begin),
      [&](std::u16string_view name, std::u16string_view value) {
        benchmark::DoNotOptimize(name.data());
        benchmark::DoNotOptimize(value.data());
      });
}

std::size_t WalkAll(const xml::ScannedText& doc) {
  const xml::ElementScan top = xml::ScanElement(doc, doc.Top(), xml::DeclarationRule::kNone);
  if (!top.found) return 0;
  ReadAttributes(doc, top);
  std::size_t elements = 1;
  std::vector<xml::ElementScan> stack;
  if (top.element_content) stack.push_back(top);
  while (!stack.empty()) {
    const xml::ElementScan r = stack.back();
    stack.pop_back();
    xml::ChildCursor children(doc, r);
    xml::ElementSpan child;
    xml::ElementScan scan;
    while (children.Next(child, scan, xml::DeclarationRule::kAll)) {
      if (!scan.found) continue;
      ++elements;
      ReadAttributes(doc, scan);
      if (scan.element_content) stack.push_back(scan);
    }
  }
  return elements;
}

// The program's own use: load, then read one value near the top (first child after first child
// down to the first element holding text).
std::u16string_view FirstValue(const xml::ScannedText& doc) {
  xml::ElementScan r = xml::ScanElement(doc, doc.Top(), xml::DeclarationRule::kNone);
  while (r.found && r.element_content) {
    xml::ChildCursor children(doc, r);
    xml::ElementSpan child;
    if (!children.Next(child, r, xml::DeclarationRule::kAll)) break;
  }
  return doc.Text().substr(r.content_begin, r.content_end - r.content_begin);
}

void SetBytes(benchmark::State& state, std::size_t bytes) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
  state.counters["bytes"] = static_cast<double>(bytes);
}

void ParsePugixml(benchmark::State& state, const Document* d) {
  for (auto _ : state) {
    pugi::xml_document doc;
    const pugi::xml_parse_result result =
        doc.load_buffer(d->utf8.data(), d->utf8.size(), pugi::parse_default, pugi::encoding_utf8);
    if (!result) {
      state.SkipWithError(result.description());
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

// The deep chain is written without indentation: indented, its 100,000 levels are 10 GB of tabs.
void WritePugixml(benchmark::State& state, const Document* d) {
  const unsigned format = d->name.rfind("deep", 0) == 0 ? pugi::format_raw : pugi::format_default;
  pugi::xml_document doc;
  if (!doc.load_buffer(d->utf8.data(), d->utf8.size(), pugi::parse_default, pugi::encoding_utf8)) {
    state.SkipWithError("pugixml could not parse the document");
    return;
  }
  std::size_t written = 0;
  for (auto _ : state) {
    StringWriter writer;
    writer.out.reserve(d->utf8.size() + d->utf8.size() / 4);
    doc.save(writer, "\t", format, pugi::encoding_utf8);
    written = writer.out.size();
    benchmark::DoNotOptimize(writer.out.data());
  }
  SetBytes(state, written);
}

void ParseTinyxml2(benchmark::State& state, const Document* d) {
  for (auto _ : state) {
    tinyxml2::XMLDocument doc;
    if (doc.Parse(d->utf8.data(), d->utf8.size()) != tinyxml2::XML_SUCCESS) {
      state.SkipWithError(doc.ErrorStr());
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
    if (doc == nullptr) {
      state.SkipWithError("libxml2 refused the document (default limits)");
      return;
    }
    benchmark::DoNotOptimize(doc->children);
    xmlFreeDoc(doc);
  }
  SetBytes(state, d->utf8.size());
}

void Decode(benchmark::State& state, const Document* d) {
  for (auto _ : state) {
    std::u16string text = base::Widen(d->utf8);
    benchmark::DoNotOptimize(text.data());
  }
  SetBytes(state, d->utf8.size());
}

// Fresh copies of a decoded text, as a decoder would hand them over, made outside the timing:
// in batches, so that pausing the clock (a system call) is not paid per small document.
class Copies {
 public:
  explicit Copies(const std::u16string& text)
      : text_(text), batch_(std::max<std::size_t>(1, (1u << 20) / (text.size() + 1))) {}
  std::u16string Take(benchmark::State& state) {
    if (ready_.empty()) {
      state.PauseTiming();
      ready_.assign(batch_, text_);
      state.ResumeTiming();
    }
    std::u16string out = std::move(ready_.back());
    ready_.pop_back();
    return out;
  }

 private:
  const std::u16string& text_;
  std::size_t batch_;
  std::vector<std::u16string> ready_;
};

// The prepared text and its index, from the decoded text (the copy handed over is made outside
// the timing, as a decoder's fresh string would be).
void ScanIndex(benchmark::State& state, const Document* d) {
  Copies texts(d->text);
  std::size_t memory = 0;
  for (auto _ : state) {
    auto doc = xml::ScannedText::ForElementParse(texts.Take(state));
    memory = doc->MemoryBytes();
    benchmark::DoNotOptimize(doc.get());
  }
  SetBytes(state, d->utf8.size());
  state.counters["memory_x"] = static_cast<double>(memory) / static_cast<double>(d->utf8.size());
}

void ScanWalk(benchmark::State& state, const Document* d) {
  Copies texts(d->text);
  std::size_t elements = 0;
  for (auto _ : state) {
    auto doc = xml::ScannedText::ForElementParse(texts.Take(state));
    elements = WalkAll(*doc);
    benchmark::DoNotOptimize(elements);
  }
  SetBytes(state, d->utf8.size());
  state.counters["elements"] = static_cast<double>(elements);
}

void ScanTopValue(benchmark::State& state, const Document* d) {
  Copies texts(d->text);
  for (auto _ : state) {
    auto doc = xml::ScannedText::ForElementParse(texts.Take(state));
    benchmark::DoNotOptimize(FirstValue(*doc).data());
  }
  SetBytes(state, d->utf8.size());
}

// Keeps every run for the summary printed after the console output.
class Collector : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      // The summary uses the fastest of the repetitions: on a shared machine the slower ones
      // mostly measure the neighbours.
      const std::string name = run.run_name.function_name;
      if (!run.error_occurred && (run.run_type != Run::RT_Aggregate || run.aggregate_name != "min"))
        continue;
      if (run.error_occurred) {
        errors_[name] = run.error_message;
        continue;
      }
      const double seconds =
          run.GetAdjustedCPUTime() / benchmark::GetTimeUnitMultiplier(run.time_unit);
      auto it = run.counters.find("bytes");
      const double bytes = it == run.counters.end() ? 0 : static_cast<double>(it->second);
      auto memory = run.counters.find("memory_x");
      if (memory != run.counters.end()) memory_[name] = static_cast<double>(memory->second);
      seconds_[name] = seconds;
      bytes_[name] = bytes;
    }
    ConsoleReporter::ReportRuns(runs);
  }
  bool Has(const std::string& name) const { return seconds_.count(name) != 0; }
  double MBps(const std::string& name) const { return bytes_.at(name) / seconds_.at(name) / 1e6; }
  double NsPerByte(const std::string& name) const {
    return seconds_.at(name) * 1e9 / bytes_.at(name);
  }
  const std::map<std::string, std::string>& Errors() const { return errors_; }
  double Memory(const std::string& name) const {
    auto it = memory_.find(name);
    return it == memory_.end() ? 0 : it->second;
  }

 private:
  std::map<std::string, double> seconds_, bytes_;
  std::map<std::string, std::string> errors_;
  std::map<std::string, double> memory_;
};

std::vector<std::unique_ptr<Document>>& Documents() {
  static std::vector<std::unique_ptr<Document>> docs;
  return docs;
}

Document* Add(std::string name, std::string utf8) {
  auto d = std::make_unique<Document>();
  d->name = std::move(name);
  d->utf8 = std::move(utf8);
  d->text = base::Widen(d->utf8);
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

const char* const kMeasures[] = {"pugixml", "tinyxml2", "libxml2", "pugixml_write",
                                 "decode",  "index",    "walk",    "top_value"};

void RegisterComparison(Document* d) {
  const std::string base = "parse/" + d->name + "/";
  const std::function<void(benchmark::State&, const Document*)> fns[] = {
      ParsePugixml, ParseTinyxml2, ParseLibxml2, WritePugixml,
      Decode,       ScanIndex,     ScanWalk,     ScanTopValue};
  for (std::size_t i = 0; i < std::size(kMeasures); ++i) {
    auto fn = fns[i];
    Repeated(benchmark::RegisterBenchmark((base + kMeasures[i]).c_str(),
                                          [fn, d](benchmark::State& s) { fn(s, d); }));
  }
}

struct Shape {
  const char* name;
  std::function<std::string(std::size_t)> make;
  std::size_t base;  // the first step; each next step doubles it
};

void Summary(const Collector& c) {
  std::printf("\n== Throughput, MB/s of UTF-8 input (ratio to pugixml / to tinyxml2)\n");
  std::printf("%-14s %9s %9s %9s %9s %9s %9s %9s %9s  %s\n", "document", "pugixml", "tinyxml2",
              "libxml2", "pugi-wr", "decode", "index", "walk", "top",
              "walk/pugi walk/tiny top/pugi index-memory");
  for (const auto& d : Documents()) {
    if (d->name.rfind("scale_", 0) == 0) continue;
    const std::string base = "parse/" + d->name + "/";
    std::printf("%-14s", d->name.c_str());
    for (const char* m : kMeasures) {
      if (c.Has(base + m))
        std::printf(" %9.0f", c.MBps(base + m));
      else
        std::printf(" %9s", c.Errors().count(base + m) ? "refused" : "-");
    }
    auto ratio = [&](const char* a, const char* b) {
      if (!c.Has(base + a) || !c.Has(base + b)) return std::string("   -   ");
      char buf[32];
      std::snprintf(buf, sizeof buf, "%7.2f", c.MBps(base + a) / c.MBps(base + b));
      return std::string(buf);
    };
    std::printf("  %s   %s   %s   %5.2fx\n", ratio("walk", "pugixml").c_str(),
                ratio("walk", "tinyxml2").c_str(), ratio("top_value", "pugixml").c_str(),
                c.Memory(base + "index"));
  }
  for (const auto& [name, error] : c.Errors())
    std::printf("  %s: %s\n", name.c_str(), error.c_str());
  std::printf(
      "  decode: base::Widen, UTF-8 to UTF-16; index: comments cut and tags indexed, from the\n"
      "  decoded text; walk: index plus every element read (tag, attributes, children); top:\n"
      "  index plus the first value near the top; index-memory: prepared text and index over\n"
      "  the UTF-8 size; pugi-wr: pugixml writing (the deep chain without indentation).\n");
}

}  // namespace

int main(int argc, char** argv) {
  xmlInitParser();
  xmlSetGenericErrorFunc(nullptr, Silent);
  RegisterComparison(Add("config_2k", bench_docs::Configuration()));
  RegisterComparison(Add("lang_10m", bench_docs::LanguageFile(10 << 20)));
  RegisterComparison(Add("comments_10m", bench_docs::CommentHeavy(10 << 20)));
  RegisterComparison(Add("wide_1m", bench_docs::Wide(1000000)));
  RegisterComparison(Add("deep_100k", bench_docs::Deep(100000)));
  RegisterComparison(Add("attrs_10m", bench_docs::AttributeHeavy(10 << 20)));
  RegisterComparison(Add("text_10m", bench_docs::LongText(10 << 20)));

  // The doubling series: each shape at 1x, 2x, 4x and 8x; index plus full walk.
  const Shape shapes[] = {
      {"wide", bench_docs::Wide, 125000},
      {"deep", bench_docs::Deep, 12500},
      {"comments", bench_docs::CommentHeavy, 5 << 17},
      {"attrs", bench_docs::AttributeHeavy, 5 << 17},
      {"text", bench_docs::LongText, 5 << 17},
  };
  std::vector<std::vector<std::string>> series;
  for (const Shape& shape : shapes) {
    series.emplace_back();
    for (int step = 0; step < 4; ++step) {
      Document* d = Add(std::string("scale_") + shape.name + "_" + std::to_string(step),
                        shape.make(shape.base << step));
      const std::string name = "scale/" + std::string(shape.name) + "/" + std::to_string(step);
      series.back().push_back(name);
      Repeated(
          benchmark::RegisterBenchmark(name.c_str(), [d](benchmark::State& s) { ScanWalk(s, d); }));
    }
  }

  benchmark::Initialize(&argc, argv);
  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  Summary(collector);
  std::printf(
      "\n== Doubling series: index + full walk, ns per input byte (ratio to the step before)\n");
  for (const auto& names : series) {
    std::printf("%-10s", names[0].substr(6, names[0].find('/', 6) - 6).c_str());
    double previous = 0;
    for (const std::string& name : names) {
      if (!collector.Has(name)) {
        std::printf("  %14s", "-");
        continue;
      }
      const double ns = collector.NsPerByte(name);
      if (previous > 0)
        std::printf("  %6.3f (%4.2fx)", ns, ns / previous);
      else
        std::printf("  %6.3f        ", ns);
      previous = ns;
    }
    std::printf("\n");
  }
  benchmark::Shutdown();
  xmlCleanupParser();
  return 0;
}
