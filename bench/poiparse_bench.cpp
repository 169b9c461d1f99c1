// Benchmarks: answers turned into bundles, against the cost of parsing their
// text. For every generated input, in one process:
//   (a) parse: cJSON_ParseWithOpts of the text and cJSON_Delete of the tree;
//   (b) build: the entry operation on the parsed tree (bundle built and
//       destroyed);
//   (c) walk:  a plain walk touching every node and string of the tree, the
//       floor of any conversion;
//   (d) simdjson: simdjson's DOM parse of the same text, the reference cost
//       of reading JSON at all;
//   (e) heap allocations made by (b) and bytes still held by the bundle, per
//       POI, counted through CVMem's hooks and a counting operator new, with
//       the block cache off (every text and entry block is then one
//       allocation of its usable size).
// And from text to bundle, in a second table:
//   (f) through the document: CJsonDocument::Parse of the text (warm), the
//       entry operation, the bundle destroyed;
//   (g) through cJSON: cJSON_ParseWithOpts, the operation, the bundle
//       destroyed, cJSON_Delete;
//   (h) the document's Parse alone (copy, simdjson, conversion); h - d is
//       about the conversion of simdjson's tape into nodes.
// Then long lists: a POI list answer whose psrs "SEResult" holds 200,000 and
// then 2,000,000 strings, built and destroyed once each (before the heap
// settings below, as a client's process runs): linear growth gives a ratio
// of 10.
// Each benchmark runs kRepetitions times and the table takes the fastest
// repetition of each: on a shared machine the noise only ever adds time, so
// the minimum is the stablest estimate of a cost, and the ratios compare like
// with like. After the Google Benchmark runs, one summary table is printed.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <simdjson.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>
#include <string>
#include <vector>

#include "bench/AnswerGenerator.h"
#include "json_readers/JsonDocument.h"
#include "poi_parser/PoiJsonObjParser.h"

// ---- Allocation counting --------------------------------------------------------
// Counted only while g_counting is set, so that the timed runs pay nothing
// but one test; live bytes are the heap's usable sizes.

namespace {

struct Counters {
  long long allocations = 0;
  long long live_bytes = 0;
};
Counters g_counters;
bool g_counting = false;

void* CountedAlloc(size_t size) {
  void* p = std::malloc(size);
  if (p != nullptr && g_counting) {
    ++g_counters.allocations;
    g_counters.live_bytes += static_cast<long long>(malloc_usable_size(p));
  }
  return p;
}

void CountedFree(void* p) {
  if (p != nullptr && g_counting) g_counters.live_bytes -= static_cast<long long>(malloc_usable_size(p));
  std::free(p);
}

void* MemAllocate(unsigned int size, const char*, int, void*) { return CountedAlloc(size); }
void MemDeallocate(void* block, void*) { CountedFree(block); }

}  // namespace

void* operator new(size_t size) {
  void* p = CountedAlloc(size == 0 ? 1 : size);
  if (p == nullptr) throw std::bad_alloc();
  return p;
}
void* operator new[](size_t size) { return operator new(size); }
void operator delete(void* p) noexcept { CountedFree(p); }
void operator delete[](void* p) noexcept { CountedFree(p); }
void operator delete(void* p, size_t) noexcept { CountedFree(p); }
void operator delete[](void* p, size_t) noexcept { CountedFree(p); }

namespace {

using _quarn_framework::CPoiJsonObjParser;
using _quarn_vi::CVBundle;

struct Input {
  std::string name;
  std::string text;
  int pois;  // POIs in the answer, for the per-POI figures
  int (*op)(cJSON*, CVBundle&);
  bool utf8;
  cJSON* tree = nullptr;  // parsed once, for the runs that read a tree
};

std::vector<Input>& Inputs() {
  static std::vector<Input> inputs = [] {
    std::vector<Input> v;
    v.push_back({"poi_list_20", bench::PoiListAnswer(20, 1), 20, CPoiJsonObjParser::ParsePoiListRst, false});
    v.push_back({"poi_list_1000", bench::PoiListAnswer(1000, 2), 1000, CPoiJsonObjParser::ParsePoiListRst, false});
    v.push_back({"poi_list_10000", bench::PoiListAnswer(10000, 3), 10000, CPoiJsonObjParser::ParsePoiListRst, false});
    v.push_back({"area_multi_5x10", bench::AreaMultiAnswer(5, 10, 4), 50, CPoiJsonObjParser::ParseAreaMultiSearchRst,
                 false});
    // Route answers: "POIs" are the candidate cities and places (6 + 10 + 8 + 4).
    v.push_back({"route_addr_1", bench::RouteAddrFirstForm(2, 5), 28, CPoiJsonObjParser::ParseRouteAddrPHPUIRst, false});
    v.push_back({"route_addr_2", bench::RouteAddrSecondForm(2, 6), 28, CPoiJsonObjParser::ParseRouteAddrPHPUI2Rst, true});
    v.push_back({"indoor_200", bench::IndoorAnswer(200, 7), 200, CPoiJsonObjParser::ParsePoiIndoorRst, false});
    for (Input& input : v) input.tree = cJSON_ParseWithOpts(input.text.c_str(), nullptr, 1);
    return v;
  }();
  return inputs;
}

cJSON* Parse(const std::string& text) { return cJSON_ParseWithOpts(text.c_str(), nullptr, 1); }

void BM_Parse(benchmark::State& state, const Input* input) {
  for (auto _ : state) {
    cJSON* root = Parse(input->text);
    benchmark::DoNotOptimize(root);
    cJSON_Delete(root);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * input->text.size()));
}

void BM_Build(benchmark::State& state, const Input* input) {
  _quarn_framework::CJsonObjParser::isParsePHPUI2Res = input->utf8;
  for (auto _ : state) {
    CVBundle bundle;
    int result = input->op(input->tree, bundle);
    benchmark::DoNotOptimize(result);
  }
  _quarn_framework::CJsonObjParser::isParsePHPUI2Res = 0;
}

size_t Walk(const cJSON* node) {
  size_t sum = 0;
  for (; node != nullptr; node = node->next) {
    sum += static_cast<size_t>(node->type);
    if (node->string != nullptr) sum += std::strlen(node->string);
    if (node->valuestring != nullptr) sum += std::strlen(node->valuestring);
    sum += static_cast<size_t>(node->valuedouble);
    if (node->child != nullptr) sum += Walk(node->child);
  }
  return sum;
}

void BM_Walk(benchmark::State& state, const Input* input) {
  for (auto _ : state) benchmark::DoNotOptimize(Walk(input->tree));
}

void BM_Simdjson(benchmark::State& state, const Input* input) {
  simdjson::dom::parser parser;
  simdjson::padded_string padded(input->text);
  for (auto _ : state) {
    auto doc = parser.parse(padded);
    benchmark::DoNotOptimize(doc.error());
  }
}

// ---- Text to bundle: (f), (g), (h) -------------------------------------------------

void BM_TextDocument(benchmark::State& state, const Input* input) {
  _quarn_framework::CJsonDocument document;
  document.Parse(input->text.data(), input->text.size());  // warm
  _quarn_framework::CJsonObjParser::isParsePHPUI2Res = input->utf8;
  for (auto _ : state) {
    CVBundle bundle;
    int result = input->op(document.Parse(input->text.data(), input->text.size()), bundle);
    benchmark::DoNotOptimize(result);
  }
  _quarn_framework::CJsonObjParser::isParsePHPUI2Res = 0;
}

void BM_TextCjson(benchmark::State& state, const Input* input) {
  _quarn_framework::CJsonObjParser::isParsePHPUI2Res = input->utf8;
  for (auto _ : state) {
    cJSON* root = Parse(input->text);
    {
      CVBundle bundle;
      int result = input->op(root, bundle);
      benchmark::DoNotOptimize(result);
    }
    cJSON_Delete(root);
  }
  _quarn_framework::CJsonObjParser::isParsePHPUI2Res = 0;
}

void BM_DocumentParse(benchmark::State& state, const Input* input) {
  _quarn_framework::CJsonDocument document;
  document.Parse(input->text.data(), input->text.size());  // warm
  for (auto _ : state) benchmark::DoNotOptimize(document.Parse(input->text.data(), input->text.size()));
}

// The document's tree bytes per POI (nodes and simdjson's strings).
double TreeBytesPerPoi(const Input& input) {
  _quarn_framework::CJsonDocument document;
  document.Parse(input.text.data(), input.text.size());
  return static_cast<double>(document.TreeBytes()) / input.pois;
}

void PrintTextToBundleTable(std::map<std::string, double>& micros) {
  std::printf("\n| input | f: text to bundle, document (us) | g: through cJSON (us) | g/f | h: document parse (us) |"
              " h - d (us) | f - h (us) | tree bytes/POI |\n");
  std::printf("|---|---:|---:|---:|---:|---:|---:|---:|\n");
  for (const Input& input : Inputs()) {
    double d = micros["simdjson/" + input.name];
    double f = micros["text_document/" + input.name];
    double g = micros["text_cjson/" + input.name];
    double h = micros["document_parse/" + input.name];
    if (d <= 0 || f <= 0 || g <= 0 || h <= 0) continue;  // filtered out
    std::printf("| %s | %.1f | %.1f | %.2f | %.1f | %.1f | %.1f | %.0f |\n", input.name.c_str(), f, g, g / f, h, h - d,
                f - h, TreeBytesPerPoi(input));
  }
  if (micros["text_document/poi_list_20"] > 0 && micros["text_document/poi_list_10000"] > 0) {
    std::printf("\nf per POI at 10,000 POIs / at 20: %.2f\n",
                (micros["text_document/poi_list_10000"] / 10000) / (micros["text_document/poi_list_20"] / 20));
  }
}

constexpr int kRepetitions = 5;

double Fastest(const std::vector<double>& times) { return *std::min_element(times.begin(), times.end()); }

// The fastest repetition's time per iteration, in microseconds, by the
// benchmark's own name.
class Collector : public benchmark::ConsoleReporter {
 public:
  std::map<std::string, double> micros;
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "min" && !run.error_occurred) {
        micros[run.run_name.function_name] = run.GetAdjustedRealTime();
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }
};

struct AllocationFigures {
  double allocations_per_poi;
  double bytes_per_poi;
};

AllocationFigures CountAllocations(const Input& input) {
  cJSON* root = input.tree;
  _quarn_vi::CVMemHooks hooks{MemAllocate, MemDeallocate, nullptr};
  _quarn_vi::CVMem::SetHooks(&hooks);
  // With the block cache off and empty, every block is one request.
  _quarn_vi::CVMem::SetBlockCacheLimit(0);
  _quarn_vi::CVMem::ReleaseCachedBlocks();
  _quarn_framework::CJsonObjParser::isParsePHPUI2Res = input.utf8;
  // Build once first, so that the tables and keys made on first use are
  // not counted.
  { CVBundle warm; input.op(root, warm); }
  // Several bundles are built and kept, as a client keeps its pages.
  std::vector<CVBundle> kept(static_cast<size_t>(std::max(1, 2000 / input.pois)));
  const double pois = static_cast<double>(kept.size()) * input.pois;
  g_counters = Counters();
  g_counting = true;
  AllocationFigures figures{0, 0};
  for (CVBundle& bundle : kept) input.op(root, bundle);
  figures.allocations_per_poi = static_cast<double>(g_counters.allocations) / pois;
  figures.bytes_per_poi = static_cast<double>(g_counters.live_bytes) / pois;
  kept.clear();
  g_counting = false;
  _quarn_framework::CJsonObjParser::isParsePHPUI2Res = 0;
  _quarn_vi::CVMem::SetHooks(nullptr);
  _quarn_vi::CVMem::SetBlockCacheLimit(_quarn_vi::CVMem::kDefaultBlockCacheLimit);
  return figures;
}

// ---- Long lists -----------------------------------------------------------------

// A POI list answer with no POIs and `count` suggestion strings in its psrs.
std::string LongListAnswer(int count) {
  std::string text = R"({"result": {"error": 0}, "poi_result": {"option": {}, "place_info": {}, "contents": [],)"
                     R"( "psrs": {"SENum": )";
  text += std::to_string(count) + R"(, "SEResult": [)";
  for (int i = 0; i < count; ++i) {
    if (i != 0) text += ',';
    text += "\"coffee near station " + std::to_string(i) + '"';
  }
  return text + "]}}}";
}

// Seconds to build and destroy the bundle of `answer`, the fastest of `runs`.
double LongListSeconds(const std::string& answer, int runs) {
  cJSON* root = Parse(answer);
  double best = 0;
  for (int run = 0; run < runs; ++run) {
    auto start = std::chrono::steady_clock::now();
    {
      CVBundle bundle;
      if (CPoiJsonObjParser::ParsePoiListRst(root, bundle) != 1) std::abort();
    }
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (run == 0 || seconds < best) best = seconds;
  }
  cJSON_Delete(root);
  return best;
}

struct LongListFigures {
  double short_seconds = 0;  // 200,000 strings
  double long_seconds = 0;   // 2,000,000 strings
};

LongListFigures MeasureLongLists() {
  LongListFigures figures;
  figures.short_seconds = LongListSeconds(LongListAnswer(200000), 5);
  figures.long_seconds = LongListSeconds(LongListAnswer(2000000), 3);
  return figures;
}

}  // namespace

int main(int argc, char** argv) {
  // --dump=NAME prints the generated input NAME (to look at, or to feed poiparse).
  for (int i = 1; i < argc; ++i) {
    if (std::strncmp(argv[i], "--dump=", 7) != 0) continue;
    for (const Input& input : Inputs()) {
      if (input.name == argv[i] + 7) {
        std::fwrite(input.text.data(), 1, input.text.size(), stdout);
        return 0;
      }
    }
    std::fprintf(stderr, "no input named %s\n", argv[i] + 7);
    return 2;
  }
  // Freed memory stays in the process: otherwise glibc gives the top of the
  // heap back after every large answer and both (a) and (b) pay the kernel's
  // page faults again on the next iteration, by an amount that depends on
  // where earlier runs left the heap. Both are then measured warm.
  // Long lists run first, under the default heap settings; not when the
  // benchmarks are filtered.
  bool long_lists = true;
  for (int i = 1; i < argc; ++i) {
    if (std::strncmp(argv[i], "--benchmark_filter", 18) == 0) long_lists = false;
  }
  const LongListFigures lists = long_lists ? MeasureLongLists() : LongListFigures();
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  mallopt(M_MMAP_THRESHOLD, 32 << 20);
  for (const Input& input : Inputs()) {
    auto add = [&input](const char* what, void (*run)(benchmark::State&, const Input*)) {
      benchmark::RegisterBenchmark((std::string(what) + "/" + input.name).c_str(), run, &input)
          ->Unit(benchmark::kMicrosecond)
          ->Repetitions(kRepetitions)
          ->ComputeStatistics("min", Fastest)
          ->ReportAggregatesOnly(true);
    };
    add("parse", BM_Parse);
    add("build", BM_Build);
    add("walk", BM_Walk);
    add("simdjson", BM_Simdjson);
    add("text_document", BM_TextDocument);
    add("text_cjson", BM_TextCjson);
    add("document_parse", BM_DocumentParse);
  }
  benchmark::Initialize(&argc, argv);
  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  benchmark::Shutdown();

  std::printf("\n| input | KB | parse MB/s (a) | b/a | b/c | (a+b)/d | allocs/POI | bytes/POI |\n");
  std::printf("|---|---:|---:|---:|---:|---:|---:|---:|\n");
  std::map<std::string, double> build_per_poi;
  for (const Input& input : Inputs()) {
    double a = collector.micros["parse/" + input.name];
    double b = collector.micros["build/" + input.name];
    double c = collector.micros["walk/" + input.name];
    double d = collector.micros["simdjson/" + input.name];
    if (a <= 0 || b <= 0 || c <= 0 || d <= 0) continue;  // filtered out
    AllocationFigures alloc = CountAllocations(input);
    build_per_poi[input.name] = b / input.pois;
    std::printf("| %s | %.1f | %.1f | %.2f | %.1f | %.1f | %.1f | %.0f |\n", input.name.c_str(),
                static_cast<double>(input.text.size()) / 1024.0, static_cast<double>(input.text.size()) / a, b / a,
                b / c, (a + b) / d, alloc.allocations_per_poi, alloc.bytes_per_poi);
  }
  if (build_per_poi.count("poi_list_20") && build_per_poi.count("poi_list_10000")) {
    double ratio_20 = collector.micros["build/poi_list_20"] / collector.micros["parse/poi_list_20"];
    double ratio_10000 = collector.micros["build/poi_list_10000"] / collector.micros["parse/poi_list_10000"];
    std::printf("\nbuild per POI at 10,000 POIs / at 20: %.2f; b/a at 10,000 / b/a at 20: %.2f\n",
                build_per_poi["poi_list_10000"] / build_per_poi["poi_list_20"], ratio_10000 / ratio_20);
  }
  PrintTextToBundleTable(collector.micros);
  if (long_lists) {
    std::printf("\nlong lists: 200,000 strings under \"SEResult\" in %.3f s, 2,000,000 in %.3f s: %.1f times (linear: 10)\n",
                lists.short_seconds, lists.long_seconds, lists.long_seconds / lists.short_seconds);
  }
  return 0;
}
