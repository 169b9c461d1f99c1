// poiparse: parses search service answers as the map client does and prints
// the bundle of each one as JSON.
//
// Exit status: 0 when every answer was accepted (result 1), 1 when some
// answer was refused (result 0; its bundle is printed all the same), 2 for
// usage errors, unreadable input, invalid JSON and answers of unknown kind.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "foundation/BundleJsonWriter.h"
#include "json_readers/Diagnostics.h"
#include "json_readers/JsonDocument.h"
#include "poi_parser/AnswerKinds.h"
#include "poi_parser/PoiJsonObjParser.h"

namespace {

using _quarn_framework::AnswerKind;

constexpr const char kVersion[] = "poiparse 0.1.0";
constexpr int kExitAccepted = 0;
constexpr int kExitRefused = 1;
constexpr int kExitError = 2;

const char kUsage[] =
    "usage: poiparse [options] [FILE ...]\n"
    "Parses map search service answers (JSON) as the map client does and prints\n"
    "each resulting bundle as JSON: {\"kind\": ..., \"result\": 0|1, \"bundle\": {...}}.\n"
    "No FILE, or '-', reads standard input.\n"
    "\n"
    "options:\n"
    "  --kind KIND          the answer kind (see --list-kinds); told from the\n"
    "                       answer's shape when omitted\n"
    "  --list-kinds         list the answer kinds and exit\n"
    "  --utf8               the answers' texts are UTF-8 (sets the text mode flag)\n"
    "  --parser P           document (default: simdjson, cJSON for what it refuses)\n"
    "                       or cjson (cJSON alone); both give the same trees\n"
    "  --explain            add to each answer a \"diagnostics\" array: where it was\n"
    "                       refused and which members or elements were skipped,\n"
    "                       as {\"path\", \"severity\": \"refused\"|\"skipped\", \"message\"};\n"
    "                       a text that is not strict JSON gets a \"warning\" at \"$\"\n"
    "  --compact            one line per answer\n"
    "  --color WHEN         auto (default: on a terminal), always or never\n"
    "  --jsonl              one answer per input line; one compact line each\n"
    "  -j N, --jobs N       parse on N threads (default: the number of cores)\n"
    "  --help               show this help and exit\n"
    "  --version            show the version and exit\n"
    "\n"
    "exit status: 0 all answers accepted, 1 an answer refused, 2 an error\n"
    "(usage, unreadable input, invalid JSON, unknown answer kind)\n";

struct Options {
  const AnswerKind* kind = nullptr;
  bool utf8 = false;
  bool use_cjson = false;  // --parser cjson
  bool explain = false;
  bool compact = false;
  bool color = false;
  bool jsonl = false;
  int jobs = 0;  // 0: the number of cores
  std::vector<std::string> files;
};

// One answer to parse: a whole file, or one line of a JSONL file.
struct Job {
  std::string name;   // the file name as the user gave it
  size_t line = 0;    // the line in the file where the answer starts (from 1)
  const char* text;   // not NUL-terminated
  size_t size;
};

struct Outcome {
  std::string out;   // for standard output
  std::string err;   // for standard error
  int status = kExitAccepted;
  bool invalid_json = false;
};

bool ReadAll(const std::string& path, std::string* text, std::string* error) {
  FILE* f = path == "-" ? stdin : std::fopen(path.c_str(), "rb");
  if (f == nullptr) {
    *error = std::strerror(errno);
    return false;
  }
  char buf[65536];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof(buf), f)) > 0) text->append(buf, n);
  bool ok = !std::ferror(f);
  if (!ok) *error = std::strerror(errno);
  if (f != stdin) std::fclose(f);
  return ok;
}

// Line (from `first_line`) and column (from 1, in characters) of byte
// `offset` of `text`.
void LineColumn(const char* text, size_t size, size_t offset, size_t first_line, size_t* line,
                size_t* column) {
  *line = first_line;
  *column = 1;
  for (size_t i = 0; i < offset && i < size; ++i) {
    unsigned char c = static_cast<unsigned char>(text[i]);
    if (c == '\n') {
      ++*line;
      *column = 1;
    } else if ((c & 0xC0) != 0x80) {
      ++*column;
    }
  }
}

// A parsed answer text: the root (null when the text is not JSON) and, when
// the text was accepted but is not strict JSON, where and why.
struct ParsedText {
  cJSON* root = nullptr;
  size_t error_offset = 0;        // refused: where the text stops being JSON
  const char* error = "";         // refused: why
  const char* leniency = nullptr;  // accepted but not strict: why
  size_t leniency_offset = 0;
};

// Parses one JSON text with this thread's document, or with cJSON alone
// (--parser cjson; the tree is then kept in *cjson_tree). Both give the same
// tree by the document's contract; leniencies are looked for only when
// `explain` asks for them.
ParsedText ParseJson(const char* text, size_t size, bool use_cjson, bool explain,
                     std::unique_ptr<cJSON, void (*)(cJSON*)>* cjson_tree) {
  ParsedText parsed;
  if (!use_cjson) {
    // One document per thread, reused from answer to answer: the tree lives
    // until this thread parses the next answer.
    static thread_local _quarn_framework::CJsonDocument document;
    parsed.root = document.Parse(text, size);
    if (parsed.root == nullptr) {
      parsed.error_offset = document.ErrorOffset();
      parsed.error = document.ErrorMessage();
    } else if (explain && !document.IsStrict()) {
      parsed.leniency = document.LeniencyMessage();
      parsed.leniency_offset = document.LeniencyOffset();
    }
    return parsed;
  }
  // cJSON wants a NUL right after the text to reject trailing garbage.
  std::string copy(text, size);
  const char* end = nullptr;
  cjson_tree->reset(cJSON_ParseWithLengthOpts(copy.c_str(), size + 1, &end, 1));
  size_t stop = end != nullptr ? static_cast<size_t>(end - copy.c_str()) : 0;
  if (*cjson_tree != nullptr && stop < size) cjson_tree->reset();  // cJSON stopped at a NUL byte
  parsed.root = cjson_tree->get();
  if (parsed.root == nullptr) {
    parsed.error_offset = stop;
    parsed.error = _quarn_framework::CJsonDocument::DescribeRefusal(text, size, &parsed.error_offset);
  } else if (explain) {
    parsed.leniency = _quarn_framework::CJsonDocument::FindLeniency(text, size, &parsed.leniency_offset);
  }
  return parsed;
}

using Diagnostics = std::vector<_quarn_framework::CVDiagnostics::Resolved>;

// Parses `root` with `parse`, collecting what the operation reports when
// `diagnostics` is given. The collector is installed on this thread around
// the operation only.
int ParseExplained(const AnswerKind& kind, int (*parse)(cJSON*, _quarn_vi::CVBundle&), cJSON* root,
                   _quarn_vi::CVBundle& bundle, Diagnostics* diagnostics) {
  if (diagnostics == nullptr) return parse(root, bundle);
  _quarn_framework::CVDiagnostics collector;
  int result;
  {
    _quarn_framework::CVDiagnosticsScope scope(collector);
    result = parse(root, bundle);
  }
  *diagnostics = collector.Resolve(root);
  if (result != 1 && std::none_of(diagnostics->begin(), diagnostics->end(), [](const auto& d) {
        return d.severity == _quarn_framework::CVDiagnostics::kRefused;
      })) {
    // A record operation does not report its own node's type test: say it
    // here, for the whole input.
    diagnostics->push_back({"$", _quarn_framework::CVDiagnostics::kRefused,
                            std::string(_quarn_framework::JsonTypeName(root)) + " not accepted as a " + kind.name +
                                " record"});
  }
  return result;
}

void WriteResult(const AnswerKind& kind, int result, const _quarn_vi::CVBundle& bundle,
                 const Diagnostics* diagnostics, const Options& options, std::string& out) {
  _quarn_vi::CVJsonWriter::Options format;
  format.pretty = !options.compact && !options.jsonl;
  format.color = options.color;
  _quarn_vi::CVJsonWriter writer(out, format);
  writer.BeginObject();
  writer.Key("kind");
  writer.StringUtf8(kind.name);
  writer.Key("result");
  writer.Int(result);
  writer.Key("bundle");
  writer.Bundle(bundle);
  if (diagnostics != nullptr) {
    writer.Key("diagnostics");
    writer.BeginArray();
    for (const auto& d : *diagnostics) {
      writer.BeginObject();
      writer.Key("path");
      writer.StringUtf8(d.path);
      writer.Key("severity");
      writer.StringUtf8(_quarn_framework::CVDiagnostics::SeverityName(d.severity));
      writer.Key("message");
      writer.StringUtf8(d.message);
      writer.EndObject();
    }
    writer.EndArray();
  }
  writer.EndObject();
  out.push_back('\n');
}

// Parses one answer. The text mode flag was set for the whole run (--utf8),
// so the kind's flag-free operation is used: the route-address dispatcher
// would clear the flag under the other threads' feet.
Outcome Process(const Job& job, const Options& options) {
  Outcome outcome;
  std::unique_ptr<cJSON, void (*)(cJSON*)> cjson_tree(nullptr, cJSON_Delete);
  const ParsedText parsed = ParseJson(job.text, job.size, options.use_cjson, options.explain, &cjson_tree);
  cJSON* root = parsed.root;
  if (root == nullptr) {
    size_t line, column;
    LineColumn(job.text, job.size, parsed.error_offset, job.line, &line, &column);
    outcome.err = job.name + ":" + std::to_string(line) + ":" + std::to_string(column) +
                  ": invalid JSON: " + parsed.error + "\n";
    outcome.status = kExitError;
    outcome.invalid_json = true;
    return outcome;
  }
  const AnswerKind* kind = options.kind;
  if (kind == nullptr) kind = _quarn_framework::DetectAnswerKind(root);
  if (kind == nullptr) {
    std::string where = options.jsonl ? job.name + ":" + std::to_string(job.line) : job.name;
    outcome.err = "poiparse: " + where +
                  ": cannot tell the answer kind from its shape; name it with --kind (see --list-kinds)\n";
    outcome.status = kExitError;
    return outcome;
  }
  const _quarn_framework::BundleOperation parse = kind->OperationFor(options.utf8).run;
  _quarn_vi::CVBundle bundle;
  Diagnostics diagnostics;
  int result = ParseExplained(*kind, parse, root, bundle, options.explain ? &diagnostics : nullptr);
  if (parsed.leniency != nullptr) {
    size_t line, column;
    LineColumn(job.text, job.size, parsed.leniency_offset, job.line, &line, &column);
    diagnostics.insert(diagnostics.begin(),
                       {"$", _quarn_framework::CVDiagnostics::kWarning,
                        std::string("not strict JSON, accepted through cJSON's leniencies: ") + parsed.leniency +
                            " at line " + std::to_string(line) + ", column " + std::to_string(column)});
  }
  WriteResult(*kind, result, bundle, options.explain ? &diagnostics : nullptr, options, outcome.out);
  outcome.status = result == 1 ? kExitAccepted : kExitRefused;
  return outcome;
}

// Splits a JSONL text into jobs, one per non-blank line.
void SplitLines(const std::string& name, const std::string& text, std::vector<Job>* jobs) {
  size_t line = 1;
  for (size_t start = 0; start < text.size();) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    bool blank = std::all_of(text.begin() + static_cast<long>(start), text.begin() + static_cast<long>(end),
                             [](char c) { return c == ' ' || c == '\t' || c == '\r'; });
    if (!blank) jobs->push_back(Job{name, line, text.data() + start, end - start});
    start = end + 1;
    ++line;
  }
}

// Counts for the closing summary of a batch.
struct Summary {
  size_t answers = 0, accepted = 0, refused = 0, invalid = 0, other_errors = 0, bytes = 0;
};

class ProgressBar {
 public:
  explicit ProgressBar(size_t total) : m_total(total), m_enabled(isatty(STDERR_FILENO) && total > 1) {}
  void Update(size_t done) {
    if (!m_enabled) return;
    auto now = std::chrono::steady_clock::now();
    if (done < m_total && now - m_last < std::chrono::milliseconds(100)) return;
    m_last = now;
    const int width = 30;
    int filled = static_cast<int>(width * done / m_total);
    std::fprintf(stderr, "\r[%s%s] %zu/%zu", std::string(static_cast<size_t>(filled), '#').c_str(),
                 std::string(static_cast<size_t>(width - filled), ' ').c_str(), done, m_total);
    if (done == m_total) std::fputs("\r\x1b[K", stderr);
    std::fflush(stderr);
  }

 private:
  size_t m_total;
  bool m_enabled;
  std::chrono::steady_clock::time_point m_last{};
};

// Parses every job on `threads` threads and prints the outcomes in job order.
int RunJobs(const std::vector<Job>& jobs, const Options& options, int threads, Summary* summary) {
  std::vector<Outcome> outcomes(jobs.size());
  std::vector<char> done(jobs.size(), 0);
  std::mutex mutex;
  std::condition_variable ready;
  std::atomic<size_t> next{0};
  auto work = [&]() {
    for (size_t i; (i = next.fetch_add(1)) < jobs.size();) {
      Outcome outcome = Process(jobs[i], options);
      std::lock_guard<std::mutex> lock(mutex);
      outcomes[i] = std::move(outcome);
      done[i] = 1;
      ready.notify_one();
    }
  };
  std::vector<std::thread> pool;
  if (threads > 1) {
    for (int t = 0; t < threads; ++t) pool.emplace_back(work);
  }
  ProgressBar progress(jobs.size());
  int status = kExitAccepted;
  for (size_t i = 0; i < jobs.size(); ++i) {
    Outcome outcome;
    if (threads > 1) {
      std::unique_lock<std::mutex> lock(mutex);
      ready.wait(lock, [&] { return done[i] != 0; });
      outcome = std::move(outcomes[i]);
    } else {
      outcome = Process(jobs[i], options);
    }
    std::fwrite(outcome.out.data(), 1, outcome.out.size(), stdout);
    if (!outcome.err.empty()) std::fputs(outcome.err.c_str(), stderr);
    status = std::max(status, outcome.status);
    ++summary->answers;
    summary->bytes += jobs[i].size;
    if (outcome.invalid_json) {
      ++summary->invalid;
    } else if (outcome.status == kExitAccepted) {
      ++summary->accepted;
    } else if (outcome.status == kExitRefused) {
      ++summary->refused;
    } else {
      ++summary->other_errors;
    }
    progress.Update(i + 1);
  }
  for (std::thread& t : pool) t.join();
  std::fflush(stdout);
  return status;
}

void ListKinds() {
  for (const AnswerKind& kind : _quarn_framework::AnswerKinds()) {
    std::printf("%-14s %s", kind.name, kind.description);
    if (kind.alias != nullptr) std::printf("; also --kind %s", kind.alias);
    std::printf("\n");
  }
}

bool ParseCount(const std::string& text, int* value) {
  char* end = nullptr;
  long n = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != 0 || n < 1 || n > 1024) return false;
  *value = static_cast<int>(n);
  return true;
}

// Parses the command line; returns -1 to go on, else an exit status.
int ParseArgs(int argc, char** argv, Options* options) {
  bool only_files = false;
  std::string color = "auto";
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    // --opt=value and --opt value are the same.
    std::string value;
    bool has_inline_value = false;
    if (arg.rfind("--", 0) == 0 && arg.find('=') != std::string::npos) {
      value = arg.substr(arg.find('=') + 1);
      arg = arg.substr(0, arg.find('='));
      has_inline_value = true;
    }
    auto take_value = [&](std::string* out) {
      if (has_inline_value) {
        *out = value;
        return true;
      }
      if (i + 1 >= argc) {
        std::cerr << "poiparse: " << arg << " needs a value\n";
        return false;
      }
      *out = argv[++i];
      return true;
    };
    if (only_files || arg == "-" || arg.empty() || arg[0] != '-') {
      options->files.push_back(argv[i]);
    } else if (arg == "--") {
      only_files = true;
    } else if (arg == "--help" || arg == "-h") {
      std::fputs(kUsage, stdout);
      return kExitAccepted;
    } else if (arg == "--version") {
      std::puts(kVersion);
      return kExitAccepted;
    } else if (arg == "--list-kinds") {
      ListKinds();
      return kExitAccepted;
    } else if (arg == "--utf8") {
      options->utf8 = true;
    } else if (arg == "--parser") {
      std::string parser;
      if (!take_value(&parser)) return kExitError;
      if (parser != "document" && parser != "cjson") {
        std::cerr << "poiparse: --parser takes document or cjson\n";
        return kExitError;
      }
      options->use_cjson = parser == "cjson";
    } else if (arg == "--explain") {
      options->explain = true;
    } else if (arg == "--compact") {
      options->compact = true;
    } else if (arg == "--jsonl") {
      options->jsonl = true;
    } else if (arg == "--kind") {
      std::string name;
      if (!take_value(&name)) return kExitError;
      options->kind = _quarn_framework::FindAnswerKind(name.c_str());
      if (options->kind == nullptr) {
        std::cerr << "poiparse: unknown kind '" << name << "' (see --list-kinds)\n";
        return kExitError;
      }
    } else if (arg == "--color") {
      if (!take_value(&color)) return kExitError;
      if (color != "auto" && color != "always" && color != "never") {
        std::cerr << "poiparse: --color takes auto, always or never\n";
        return kExitError;
      }
    } else if (arg == "-j" || arg == "--jobs" || (arg.rfind("-j", 0) == 0 && arg.size() > 2)) {
      std::string count = arg.size() > 2 && arg[1] == 'j' ? arg.substr(2) : "";
      if (count.empty() && !take_value(&count)) return kExitError;
      if (!ParseCount(count, &options->jobs)) {
        std::cerr << "poiparse: " << arg << " takes a thread count from 1 to 1024\n";
        return kExitError;
      }
    } else {
      std::cerr << "poiparse: unknown option '" << arg << "'\n" << kUsage;
      return kExitError;
    }
  }
  if (options->files.empty()) options->files.push_back("-");
  options->color = color == "always" || (color == "auto" && isatty(STDOUT_FILENO));
  return -1;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  int status = ParseArgs(argc, argv, &options);
  if (status >= 0) return status;
  status = kExitAccepted;

  // Read every input first; the jobs point into these texts.
  std::vector<std::string> texts(options.files.size());
  std::vector<Job> jobs;
  for (size_t f = 0; f < options.files.size(); ++f) {
    const std::string& path = options.files[f];
    const std::string name = path == "-" ? "<stdin>" : path;
    std::string error;
    if (!ReadAll(path, &texts[f], &error)) {
      std::cerr << "poiparse: " << name << ": " << error << "\n";
      status = kExitError;
      continue;
    }
    if (options.jsonl) {
      SplitLines(name, texts[f], &jobs);
    } else {
      jobs.push_back(Job{name, 1, texts[f].data(), texts[f].size()});
    }
  }

  int threads = options.jobs > 0 ? options.jobs : static_cast<int>(std::thread::hardware_concurrency());
  threads = std::max(1, std::min<int>(threads, static_cast<int>(jobs.size())));
  // The flag is process-wide: set once for the whole run, never per answer.
  _quarn_framework::CJsonObjParser::isParsePHPUI2Res = options.utf8 ? 1 : 0;
  Summary summary;
  auto start = std::chrono::steady_clock::now();
  status = std::max(status, RunJobs(jobs, options, threads, &summary));
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  _quarn_framework::CJsonObjParser::isParsePHPUI2Res = 0;

  if (options.jsonl || options.files.size() > 1) {
    double mb = static_cast<double>(summary.bytes) / 1e6;
    std::fprintf(stderr,
                 "poiparse: %zu answers: %zu accepted, %zu refused, %zu invalid JSON, %zu other errors; "
                 "%.2f MB in %.3f s (%.1f MB/s, %.0f answers/s)\n",
                 summary.answers, summary.accepted, summary.refused, summary.invalid, summary.other_errors, mb,
                 seconds, seconds > 0 ? mb / seconds : 0.0,
                 seconds > 0 ? static_cast<double>(summary.answers) / seconds : 0.0);
  }
  return status;
}
