// poiparse: parses search service answers as the map client does and prints
// the bundle of each one as JSON.
//
// Exit status: 0 when every answer was accepted (result 1), 1 when some
// answer was refused (result 0; its bundle is printed all the same), 2 for
// usage errors, unreadable input, invalid JSON and answers of unknown kind.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iostream>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "PoiparserVersion.h"
#include "foundation/BundleJsonWriter.h"
#include "json_readers/Diagnostics.h"
#include "json_readers/JsonDocument.h"
#include "poi_parser/AnswerKinds.h"
#include "poi_parser/AnswerSchema.h"
#include "poi_parser/PoiJsonObjParser.h"
#include "tools/AnswerRun.h"
#include "tools/ReplaySummary.h"

namespace {

using _quarn_framework::AnswerKind;

constexpr const char kVersion[] = "poiparse " POIPARSER_VERSION_STRING;
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
    "  --schema KIND        print the JSON Schemas (draft 2020-12) of KIND's answer\n"
    "                       and bundle as {\"answer\": ..., \"bundle\": ...} and exit\n"
    "  --summary            instead of the answers, print one JSON object: the\n"
    "                       answers counted by outcome and kind, and the --explain\n"
    "                       diagnostics grouped by path, with a count and the\n"
    "                       FILE:LINE where each was first seen\n"
    "  --format F           json (default) or table: the form of --summary\n"
    "  --compact            one line per answer\n"
    "  --color WHEN         auto (default: on a terminal, unless NO_COLOR is set),\n"
    "                       always or never\n"
    "  --jsonl              one answer per input line; one compact line each\n"
    "  -j N, --jobs N       parse on N threads (default: the number of cores)\n"
    "  -q, --quiet          no summary line at the end of a batch\n"
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
  bool quiet = false;
  bool summary = false;  // --summary: the answers' ReplaySummary instead of the answers
  bool table = false;    // --format table
  int jobs = 0;  // 0: the number of cores
  std::vector<std::string> files;
};

// One answer to parse: a whole file, or one line of a JSONL file.
struct Job {
  const std::string* name;  // the file name as the user gave it
  size_t line = 0;    // the line in the file where the answer starts (from 1)
  const char* text;   // not NUL-terminated
  size_t size;
};

struct Outcome {
  std::string out;   // for standard output
  std::string err;   // for standard error
  int status = kExitAccepted;
  bool invalid_json = false;
  bool out_of_memory = false;
  // --summary: the answer's share of the summary, and where the answer is.
  poiparse_support::AnswerRecord record;
  const std::string* source = nullptr;
  size_t line = 0;
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

using poiparse_support::Diagnostics;

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

// The error line that stands for an answer in --jsonl output, so that output
// line N still answers input line N: {"line": N, "error": "..."}.
void WriteErrorLine(size_t line, const std::string& error, std::string& out) {
  out += "{\"line\": " + std::to_string(line) + ", \"error\": \"";
  for (char c : error) {
    if (c == '"' || c == '\\') out.push_back('\\');
    if (static_cast<unsigned char>(c) < 0x20) c = ' ';
    out.push_back(c);
  }
  out += "\"}\n";
}

// An empty outcome that keeps the output buffer of `used`: an outcome handed
// back for the next answer spares it the buffer's allocation and regrowth
// (an answer's output grows by doubling to its size, about 9 KB for a POI
// list answer).
Outcome Reuse(Outcome used) {
  Outcome outcome;
  outcome.out = std::move(used.out);
  outcome.out.clear();
  return outcome;
}

// Parses one answer into an outcome that reuses the buffer of `used`. The
// text mode flag was set for the whole run (--utf8), so the kind's flag-free
// operation is used: the route-address dispatcher would clear the flag under
// the other threads' feet.
Outcome Process(const Job& job, const Options& options, Outcome used) {
  Outcome outcome = Reuse(std::move(used));
  poiparse_support::RunOptions run_options;
  run_options.kind = options.kind;
  run_options.utf8 = options.utf8;
  run_options.use_cjson = options.use_cjson;
  run_options.explain = options.explain || options.summary;
  poiparse_support::AnswerRun run;
  poiparse_support::RunAnswer(job.text, job.size, job.line, run_options, &run);
  if (run.status == poiparse_support::RunStatus::kInvalidJson) {
    outcome.err = *job.name + ":" + std::to_string(run.error_line) + ":" + std::to_string(run.error_column) +
                  ": invalid JSON: " + run.error;
    if (!options.jsonl && run.error_offset < job.size &&
        (job.text[run.error_offset] == '{' || job.text[run.error_offset] == '[')) {
      outcome.err += " (a second JSON value: one answer per line? see --jsonl)";
    }
    outcome.err += "\n";
    if (options.jsonl && !options.summary) {
      WriteErrorLine(job.line, std::string("invalid JSON: ") + run.error + " at column " +
                                   std::to_string(run.error_column),
                     outcome.out);
    }
    outcome.status = kExitError;
    outcome.invalid_json = true;
    outcome.record.outcome = poiparse_support::AnswerOutcome::kInvalid;
    return outcome;
  }
  if (run.status == poiparse_support::RunStatus::kUnknownKind) {
    std::string where = options.jsonl ? *job.name + ":" + std::to_string(job.line) : *job.name;
    outcome.err = "poiparse: " + where +
                  ": cannot tell the answer kind from its shape; name it with --kind (see --list-kinds)\n";
    if (options.jsonl && !options.summary) {
      WriteErrorLine(job.line, "cannot tell the answer kind from its shape", outcome.out);
    }
    outcome.status = kExitError;
    outcome.record.outcome = poiparse_support::AnswerOutcome::kInvalid;
    return outcome;
  }
  if (options.summary) {
    outcome.record = poiparse_support::RecordOf(run);
  } else {
    WriteResult(*run.kind, run.result, run.bundle, options.explain ? &run.diagnostics : nullptr, options,
                outcome.out);
  }
  outcome.status = run.result == 1 ? kExitAccepted : kExitRefused;
  return outcome;
}

// Process, with running out of memory on one answer reported for that
// answer alone: the batch goes on and exits 2 at the end.
Outcome ProcessGuarded(const Job& job, const Options& options, Outcome used = Outcome()) {
  Outcome outcome;
  try {
    outcome = Process(job, options, std::move(used));
  } catch (const std::bad_alloc&) {
    outcome = Outcome();
    outcome.status = kExitError;
    outcome.out_of_memory = true;
    outcome.record.outcome = poiparse_support::AnswerOutcome::kOutOfMemory;
    std::string where = options.jsonl ? *job.name + ":" + std::to_string(job.line) : *job.name;
    outcome.err = "poiparse: " + where + ": out of memory\n";
    if (options.jsonl && !options.summary) WriteErrorLine(job.line, "out of memory", outcome.out);
  }
  outcome.source = job.name;
  outcome.line = job.line;
  return outcome;
}

// Reads a file descriptor in large blocks and hands out its lines. A line
// stays valid until the next call; the buffer grows to twice the longest
// line, never with the length of the input.
class LineReader {
 public:
  // `before_read` runs before each read(2) that may wait for input.
  LineReader(int fd, std::function<void()> before_read)
      : m_fd(fd), m_before_read(std::move(before_read)), m_buffer(1 << 20) {}

  // The next line, without its '\n', and its number (from 1); false at the
  // end of the input or on a read error (then Error() is its errno).
  bool Next(const char** text, size_t* size, size_t* line) {
    for (;;) {
      const void* newline = std::memchr(m_buffer.data() + m_scan, '\n', m_end - m_scan);
      if (newline != nullptr || (m_eof && m_begin < m_end)) {
        const size_t stop = newline != nullptr ? static_cast<size_t>(static_cast<const char*>(newline) - m_buffer.data())
                                               : m_end;
        *text = m_buffer.data() + m_begin;
        *size = stop - m_begin;
        *line = ++m_line;
        m_begin = m_scan = std::min(stop + 1, m_end);
        return true;
      }
      if (m_eof || m_error != 0) return false;
      m_scan = m_end;  // no '\n' in [m_begin, m_end): not scanned again
      if (m_begin > 0) {  // keep the partial line, at the front
        std::memmove(m_buffer.data(), m_buffer.data() + m_begin, m_end - m_begin);
        m_end -= m_begin;
        m_scan -= m_begin;
        m_begin = 0;
      }
      if (m_end == m_buffer.size()) m_buffer.resize(m_buffer.size() * 2);
      if (m_before_read) m_before_read();
      const ssize_t n = read(m_fd, m_buffer.data() + m_end, m_buffer.size() - m_end);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
        m_error = errno;
      } else if (n == 0) {
        m_eof = true;
      } else {
        m_end += static_cast<size_t>(n);
      }
    }
  }
  int Error() const { return m_error; }

 private:
  int m_fd;
  std::function<void()> m_before_read;
  std::vector<char> m_buffer;
  size_t m_begin = 0;  // the first byte not handed out
  size_t m_scan = 0;   // where the search for the next '\n' goes on
  size_t m_end = 0;    // the end of what was read
  size_t m_line = 0;
  bool m_eof = false;
  int m_error = 0;
};

bool IsBlank(const char* text, size_t size) {
  return std::all_of(text, text + size, [](char c) { return c == ' ' || c == '\t' || c == '\r'; });
}

// Counts for the closing summary of a batch.
struct Summary {
  size_t answers = 0, accepted = 0, refused = 0, invalid = 0, other_errors = 0, bytes = 0;
};

// The progress bar: only on a terminal's standard error, only when standard
// output is not that same terminal, only after half a second, and cleared
// before anything else is written to standard error. `total` is the number
// of answers when known in advance, else 0 (a count alone is drawn).
class ProgressBar {
 public:
  explicit ProgressBar(size_t total) : m_total(total), m_enabled(Wanted()), m_start(Clock::now()) {}
  void Update(size_t done) {
    if (!m_enabled) return;
    const auto now = Clock::now();
    if (now - m_start < std::chrono::milliseconds(500) || now - m_last < std::chrono::milliseconds(100)) return;
    m_last = now;
    if (m_total > 0) {
      const int width = 30;
      const int filled = static_cast<int>(width * std::min(done, m_total) / m_total);
      std::fprintf(stderr, "\r[%s%s] %zu/%zu", std::string(static_cast<size_t>(filled), '#').c_str(),
                   std::string(static_cast<size_t>(width - filled), ' ').c_str(), done, m_total);
    } else {
      std::fprintf(stderr, "\r%zu answers", done);
    }
    std::fflush(stderr);
    m_drawn = true;
  }
  // Clears the bar, if drawn, before something else goes to standard error.
  void Clear() {
    if (m_drawn.exchange(false)) std::fputs("\r\x1b[K", stderr);
  }

 private:
  using Clock = std::chrono::steady_clock;
  static bool Wanted() {
    if (!isatty(STDERR_FILENO)) return false;
    struct stat out, err;
    if (isatty(STDOUT_FILENO) && fstat(STDOUT_FILENO, &out) == 0 && fstat(STDERR_FILENO, &err) == 0 &&
        out.st_rdev == err.st_rdev) {
      return false;  // the answers go to the same screen
    }
    return true;
  }
  size_t m_total;
  bool m_enabled;
  std::atomic<bool> m_drawn{false};  // Clear() may come from the reading thread
  Clock::time_point m_start;
  Clock::time_point m_last{};
};

// Writes the outcomes in input order, counts them and keeps the progress
// bar. A write error on standard output ends the run: Failed() is then its
// errno.
class Writer {
 public:
  // Standard output goes out in blocks of kOutputBuffer bytes when it is not
  // a terminal (a terminal keeps its line buffering): through stdio's 4 KB
  // buffer each 9 KB POI list answer took two write(2) calls, 22,700 per
  // 100 MB log; the blocks took -j 1's CPU time on it from 630 to 574 ms.
  explicit Writer(size_t total) : m_progress(total) {
    // Static: stdio writes it out at exit, after every object of main. (With
    // a null buffer, glibc would keep its own, of the file's block size.)
    static char buffer[kOutputBuffer];
    if (!isatty(STDOUT_FILENO)) std::setvbuf(stdout, buffer, _IOFBF, sizeof(buffer));
  }
  void Write(const Outcome& outcome, size_t bytes) {
    if (m_write_error == 0 && !outcome.out.empty() &&
        std::fwrite(outcome.out.data(), 1, outcome.out.size(), stdout) != outcome.out.size()) {
      m_write_error = errno != 0 ? errno : EIO;
    }
    if (!outcome.err.empty()) {
      m_progress.Clear();
      std::fputs(outcome.err.c_str(), stderr);
    }
    if (m_replay != nullptr) {
      m_replay->Add(static_cast<size_t>(outcome.source - m_sources), outcome.line, outcome.record);
    }
    m_status = std::max(m_status, outcome.status);
    ++m_summary.answers;
    m_summary.bytes += bytes;
    if (outcome.invalid_json) {
      ++m_summary.invalid;
    } else if (outcome.status == kExitAccepted) {
      ++m_summary.accepted;
    } else if (outcome.status == kExitRefused) {
      ++m_summary.refused;
    } else {
      ++m_summary.other_errors;
    }
    m_progress.Update(m_summary.answers);
  }
  // Flushes standard output; false (and Failed()) on a write error.
  bool Flush() {
    if (std::fflush(stdout) != 0 && m_write_error == 0) m_write_error = errno != 0 ? errno : EIO;
    return m_write_error == 0;
  }
  int Failed() const { return m_write_error; }
  int Status() const { return m_status; }
  const Summary& Totals() const { return m_summary; }
  ProgressBar& Progress() { return m_progress; }
  // --summary: the outcomes' records go to `replay`, each at the source
  // `outcome.source - sources` (the names of the run's inputs, in order).
  void CollectSummary(poiparse_support::ReplaySummary* replay, const std::string* sources) {
    m_replay = replay;
    m_sources = sources;
  }

 private:
  static constexpr size_t kOutputBuffer = 256 << 10;
  ProgressBar m_progress;
  poiparse_support::ReplaySummary* m_replay = nullptr;
  const std::string* m_sources = nullptr;
  Summary m_summary;
  int m_status = kExitAccepted;
  int m_write_error = 0;
};

// Parses answers on worker threads and writes them in input order, with a
// bounded window of answers in flight: answers go in batches (a slot), and
// a batch waits while the window of slots is full, so memory does not grow
// with the input when the writer (or its reader) falls behind. Batches make
// the threads meet once per batch, not per answer: one answer per slot cost
// 0.4 s of system time (futex calls) per 100 MB of POI lists at -j 2. The
// reading thread, once the window is full, sleeps until half of it is free.
// A slot keeps its outcomes' output buffers (up to kKeptOutput bytes) for
// its next batch: allocated by one worker and freed by the writer, they cost
// the workers' heaps lock traffic, trimming and page faults. With the 256 KB
// output blocks of Writer, these took the CPU time of -j 2 on a 100 MB log
// of POI lists from 744 to 641 ms, and from 1.22 to 1.17 times that of -j 1
// (least of nine runs each, `perf stat` task-clock, on this project's
// shared 2-core machine while busy): -j 2 takes about half its CPU time
// when both cores are its own.
//
// Invariants (under m_mutex): m_written <= m_taken <= m_submitted <=
// m_written + window; slot s % window holds batch s for m_written <= s <
// m_submitted, its `done` set once its outcomes are in place; outside those
// batches a slot's outcomes are stale, kept for their buffers alone;
// m_pending is the reading thread's alone.
class Pipeline {
 public:
  Pipeline(const Options& options, int threads, Writer& writer)
      : m_options(options), m_window(static_cast<size_t>(threads) * 4 + 4), m_slots(m_window), m_writer(writer) {
    for (int t = 0; t < threads; ++t) m_workers.emplace_back([this] { Work(); });
    m_writer_thread = std::thread([this] { WriteInOrder(); });
  }
  ~Pipeline() { Finish(); }

  // Queues an answer (copied) in the batch being filled; false when the run
  // stopped on a write error.
  bool Submit(const std::string* name, size_t line, const char* text, size_t size) {
    m_pending.jobs.push_back(Job{name, line, nullptr, size});
    m_pending.offsets.push_back(m_pending.text.size());
    m_pending.text.append(text, size);
    if (m_pending.text.size() >= kBatchBytes || m_pending.jobs.size() >= kBatchAnswers) return Push();
    return !Stopped();
  }

  // Hands the batch being filled to the workers (waiting for a free slot);
  // done before the input may wait, so that what was read goes out.
  bool Push() {
    if (m_pending.jobs.empty()) return !Stopped();
    std::unique_lock<std::mutex> lock(m_mutex);
    // A full window is waited on until half of it is free, so that the
    // writer wakes this thread once per half window, not once per batch.
    if (m_submitted - m_written == m_window) {
      m_slot_free.wait(lock, [&] { return m_stop || m_submitted - m_written <= m_window / 2; });
    }
    if (m_stop) return false;
    Slot& slot = m_slots[m_submitted % m_window];
    lock.unlock();  // the slot is the reading thread's alone until m_submitted moves
    std::swap(slot.text, m_pending.text);
    std::swap(slot.jobs, m_pending.jobs);
    std::swap(slot.offsets, m_pending.offsets);
    for (size_t i = 0; i < slot.jobs.size(); ++i) slot.jobs[i].text = slot.text.data() + slot.offsets[i];
    slot.outcomes.resize(slot.jobs.size());
    slot.done = false;
    m_pending.text.clear();
    m_pending.jobs.clear();
    m_pending.offsets.clear();
    lock.lock();
    ++m_submitted;
    m_work.notify_one();
    return true;
  }

  // Waits for every queued answer to be written.
  void Finish() {
    Push();
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      if (m_finished) return;
      m_finished = true;
    }
    m_work.notify_all();
    m_next_done.notify_all();
    for (std::thread& t : m_workers) t.join();
    m_writer_thread.join();
  }

 private:
  static constexpr size_t kBatchBytes = 128 << 10, kBatchAnswers = 64;
  static constexpr size_t kKeptOutput = 4 * kBatchBytes;

  struct Slot {
    std::string text;             // the answers' texts, one after the other
    std::vector<Job> jobs;        // pointing into `text`
    std::vector<size_t> offsets;  // of the answers in `text`
    std::vector<Outcome> outcomes;
    bool done = false;
  };

  bool Stopped() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_stop;
  }

  void Work() {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
      m_work.wait(lock, [&] { return m_stop || m_taken < m_submitted || m_finished; });
      if (m_stop || m_taken == m_submitted) return;  // stopped, or finished with nothing left
      Slot& slot = m_slots[m_taken++ % m_window];
      lock.unlock();
      for (size_t i = 0; i < slot.jobs.size(); ++i) {
        slot.outcomes[i] = ProcessGuarded(slot.jobs[i], m_options, std::move(slot.outcomes[i]));
      }
      lock.lock();
      slot.done = true;
      if (&slot == &m_slots[m_written % m_window]) m_next_done.notify_one();
    }
  }

  void WriteInOrder() {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
      Slot& slot = m_slots[m_written % m_window];
      const auto can_go_on = [&] {
        return (m_written < m_submitted && m_slots[m_written % m_window].done) ||
               (m_finished && m_written == m_submitted);
      };
      if (!can_go_on()) {
        // What is written so far goes out before a wait for input (all that
        // was read is written), or once a wait for a worker grows long;
        // not at every wait, which costs a write per answer.
        if (m_written == m_submitted || !m_next_done.wait_for(lock, std::chrono::milliseconds(20), can_go_on)) {
          lock.unlock();
          const bool ok = m_writer.Flush();
          lock.lock();
          if (!ok) break;
          m_next_done.wait(lock, can_go_on);
        }
        continue;
      }
      if (m_finished && m_written == m_submitted) break;
      lock.unlock();  // a done slot is the writer's alone until m_written moves
      size_t kept = 0;
      for (size_t i = 0; i < slot.jobs.size() && m_writer.Failed() == 0; ++i) {
        m_writer.Write(slot.outcomes[i], slot.jobs[i].size);
        // The output buffers stay for the slot's next batch (Reuse), up to
        // kKeptOutput bytes a slot: freed here, they went back to the heap
        // of the worker that made them, under its lock.
        kept += slot.outcomes[i].out.capacity();
        if (kept > kKeptOutput) {
          kept -= slot.outcomes[i].out.capacity();
          slot.outcomes[i] = Outcome();
        }
      }
      lock.lock();
      ++m_written;
      if (m_submitted - m_written == m_window / 2) m_slot_free.notify_one();
      if (m_writer.Failed() != 0) break;
    }
    if (m_writer.Failed() != 0) {
      m_stop = true;
      m_slot_free.notify_all();
      m_work.notify_all();
    }
  }

  const Options& m_options;
  const size_t m_window;
  std::vector<Slot> m_slots;
  Slot m_pending;  // the batch being filled
  Writer& m_writer;
  std::mutex m_mutex;
  std::condition_variable m_slot_free, m_work, m_next_done;
  size_t m_submitted = 0, m_taken = 0, m_written = 0;
  bool m_finished = false, m_stop = false;
  std::vector<std::thread> m_workers;
  std::thread m_writer_thread;
};

// Where the answers of a run go: parsed here (one thread) or by a pipeline.
class Sink {
 public:
  Sink(const Options& options, int threads, Writer& writer) : m_options(options), m_writer(writer) {
    if (threads > 1) m_pipeline = std::make_unique<Pipeline>(options, threads, writer);
  }
  // False when the run stopped on a write error.
  bool Take(const std::string* name, size_t line, const char* text, size_t size) {
    if (m_pipeline != nullptr) return m_pipeline->Submit(name, line, text, size);
    m_outcome = ProcessGuarded(Job{name, line, text, size}, m_options, std::move(m_outcome));
    m_writer.Write(m_outcome, size);
    return m_writer.Failed() == 0;
  }
  // Before the input may wait: what was read so far goes on to the output.
  void BeforeRead() {
    if (m_pipeline != nullptr) {
      m_pipeline->Push();
    } else {
      m_writer.Flush();
    }
  }
  void Finish() {
    if (m_pipeline != nullptr) m_pipeline->Finish();
    m_writer.Flush();
  }

 private:
  const Options& m_options;
  Writer& m_writer;
  Outcome m_outcome;  // the last answer's, whose buffer the next one reuses
  std::unique_ptr<Pipeline> m_pipeline;
};

// Feeds the lines of one JSONL input to `sink`; false when the run stopped.
// *lines: the lines read, blank ones included.
bool ReadLines(int fd, const std::string* name, Sink& sink, std::string* error, size_t* lines) {
  LineReader reader(fd, [&sink] { sink.BeforeRead(); });
  const char* text;
  size_t size, line;
  while (reader.Next(&text, &size, &line)) {
    *lines = line;
    if (IsBlank(text, size)) continue;
    if (!sink.Take(name, line, text, size)) return false;
  }
  if (reader.Error() != 0) *error = std::strerror(reader.Error());
  return true;
}

void ListKinds() {
  for (const AnswerKind& kind : _quarn_framework::AnswerKinds()) {
    std::printf("%-14s %s", kind.name, kind.description);
    if (kind.alias != nullptr) std::printf("; also --kind %s", kind.alias);
    std::printf("\n");
  }
}

// The edit distance (insertions, deletions, substitutions) of two short texts.
size_t EditDistance(const std::string& a, const std::string& b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t above = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

// The kind name (or alias) nearest to `name`, or null when none is near:
// at most a third of the name's length apart, and at least 1 and at most 3.
const char* NearestKind(const std::string& name) {
  const char* nearest = nullptr;
  size_t best = std::min<size_t>(3, std::max<size_t>(1, name.size() / 3)) + 1;
  for (const AnswerKind& kind : _quarn_framework::AnswerKinds()) {
    for (const char* candidate : {kind.name, kind.alias}) {
      if (candidate == nullptr) continue;
      const size_t distance = EditDistance(name, candidate);
      if (distance < best) {
        best = distance;
        nearest = candidate;
      }
    }
  }
  return nearest;
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
  bool format_given = false;
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
    // A flag takes no value: --compact=0 is refused, not read as --compact.
    auto no_value = [&]() {
      if (has_inline_value) std::cerr << "poiparse: " << arg << " takes no value\n";
      return !has_inline_value;
    };
    if (only_files || arg == "-" || arg.empty() || arg[0] != '-') {
      options->files.push_back(argv[i]);
    } else if (arg == "--") {
      only_files = true;
    } else if (arg == "--help" || arg == "-h") {
      if (!no_value()) return kExitError;
      std::fputs(kUsage, stdout);
      return kExitAccepted;
    } else if (arg == "--version") {
      if (!no_value()) return kExitError;
      std::puts(kVersion);
      return kExitAccepted;
    } else if (arg == "--list-kinds") {
      if (!no_value()) return kExitError;
      ListKinds();
      return kExitAccepted;
    } else if (arg == "--utf8") {
      if (!no_value()) return kExitError;
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
      if (!no_value()) return kExitError;
      options->explain = true;
    } else if (arg == "--compact") {
      if (!no_value()) return kExitError;
      options->compact = true;
    } else if (arg == "--jsonl") {
      if (!no_value()) return kExitError;
      options->jsonl = true;
    } else if (arg == "--summary") {
      if (!no_value()) return kExitError;
      options->summary = true;
    } else if (arg == "--format") {
      std::string format;
      if (!take_value(&format)) return kExitError;
      if (format != "json" && format != "table") {
        std::cerr << "poiparse: --format takes json or table\n";
        return kExitError;
      }
      options->table = format == "table";
      format_given = true;
    } else if (arg == "-q" || arg == "--quiet") {
      if (!no_value()) return kExitError;
      options->quiet = true;
    } else if (arg == "--schema") {
      std::string name;
      if (!take_value(&name)) return kExitError;
      const AnswerKind* kind = _quarn_framework::FindAnswerKind(name.c_str());
      if (kind == nullptr) {
        std::cerr << "poiparse: unknown kind '" << name << "'";
        if (const char* nearest = NearestKind(name)) std::cerr << "; did you mean " << nearest << "?";
        std::cerr << " (see --list-kinds)\n";
        return kExitError;
      }
      std::fputs(_quarn_framework::AnswerKindSchemas(*kind).c_str(), stdout);
      return std::fflush(stdout) == 0 && !std::ferror(stdout) ? kExitAccepted : kExitError;
    } else if (arg == "--kind") {
      std::string name;
      if (!take_value(&name)) return kExitError;
      options->kind = _quarn_framework::FindAnswerKind(name.c_str());
      if (options->kind == nullptr) {
        std::cerr << "poiparse: unknown kind '" << name << "'";
        if (const char* nearest = NearestKind(name)) std::cerr << "; did you mean " << nearest << "?";
        std::cerr << " (see --list-kinds)\n";
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
      std::cerr << "poiparse: unknown option '" << arg << "'; see poiparse --help\n";
      return kExitError;
    }
  }
  if (format_given && !options->summary) {
    std::cerr << "poiparse: --format goes with --summary\n";
    return kExitError;
  }
  if (options->files.empty()) options->files.push_back("-");
  const char* no_color = std::getenv("NO_COLOR");
  const bool colors_unwanted = no_color != nullptr && no_color[0] != '\0';
  options->color = color == "always" || (color == "auto" && !colors_unwanted && isatty(STDOUT_FILENO));
  return -1;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  int status = ParseArgs(argc, argv, &options);
  if (status >= 0) return status;
  status = kExitAccepted;

  std::vector<std::string> names;
  for (const std::string& path : options.files) names.push_back(path == "-" ? "<stdin>" : path);
  int threads = options.jobs > 0 ? options.jobs : static_cast<int>(std::thread::hardware_concurrency());
  if (!options.jsonl) threads = std::min<int>(threads, static_cast<int>(options.files.size()));
  threads = std::max(1, threads);
  // The flag is process-wide: set once for the whole run, never per answer.
  _quarn_framework::CJsonObjParser::isParsePHPUI2Res = options.utf8 ? 1 : 0;
  poiparse_support::InstallAllocationHooks();
  Writer writer(options.jsonl ? 0 : options.files.size());
  poiparse_support::ReplaySummary replay;
  if (options.summary) {
    for (const std::string& name : names) replay.AddSource(name);
    writer.CollectSummary(&replay, names.data());
  }
  auto start = std::chrono::steady_clock::now();
  {
    Sink sink(options, threads, writer);
    for (size_t f = 0; f < options.files.size() && writer.Failed() == 0; ++f) {
      const std::string& path = options.files[f];
      std::string error;
      bool going_on = true;
      try {
        if (options.jsonl) {
          const int fd = path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC);
          if (fd < 0) {
            error = std::strerror(errno);
          } else {
            size_t lines = 0;
            going_on = ReadLines(fd, &names[f], sink, &error, &lines);
            if (options.summary) replay.SetLines(f, lines);
            if (fd != STDIN_FILENO) close(fd);
          }
        } else {
          // A whole file is one answer: read all of it, then hand it over,
          // with those before it (reading may wait on standard input).
          sink.BeforeRead();
          std::string text;
          if (ReadAll(path, &text, &error)) {
            if (options.summary) {
              replay.SetLines(f, static_cast<size_t>(std::count(text.begin(), text.end(), '\n')) +
                                     (!text.empty() && text.back() != '\n' ? 1 : 0));
            }
            going_on = sink.Take(&names[f], 1, text.data(), text.size());
          }
        }
      } catch (const std::bad_alloc&) {
        error = "out of memory";
      }
      if (!error.empty()) {
        writer.Progress().Clear();
        std::cerr << "poiparse: " << names[f] << ": " << error << "\n";
        status = kExitError;
      }
      if (!going_on) break;
    }
    sink.Finish();
  }
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  _quarn_framework::CJsonObjParser::isParsePHPUI2Res = 0;
  status = std::max(status, writer.Status());
  writer.Progress().Clear();
  if (writer.Failed() != 0) {
    std::cerr << "poiparse: standard output: " << std::strerror(writer.Failed()) << "\n";
    status = kExitError;
  }

  if (options.summary && writer.Failed() == 0) {
    const std::string text = options.table ? replay.ToTable() : replay.ToJson();
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) {
      std::cerr << "poiparse: standard output: " << std::strerror(errno != 0 ? errno : EIO) << "\n";
      status = kExitError;
    }
  }

  if ((options.jsonl || options.files.size() > 1) && !options.quiet) {
    const Summary& summary = writer.Totals();
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
