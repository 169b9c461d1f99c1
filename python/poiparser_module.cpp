// The Python module `poiparser`: map search answers parsed as the map client
// parses them, as Python values, and the replay summary of poiparse
// --summary, built and merged from Python (notebooks, Dask workers).
//
//   parse(text, kind=None, utf8=False, explain=False) -> dict
//   parse_many(texts, kind=None, utf8=False, explain=False, threads=0) -> list
//   summary(texts, kind=None, utf8=False, source="<texts>") -> dict
//   merge_summaries(summaries) -> dict
//   kinds() -> list of str
//
// parse gives what `poiparse --compact [--explain]` prints for the text,
// built directly from the bundle (no JSON text in between): ints as int,
// bools as bool, doubles as float (None for a non-finite one, as the tool
// prints null), UTF-16 texts decoded with lone surrogates kept (the tool
// writes them as \uD800 escapes, which json.loads reads back the same).
// Each answer runs through tools/AnswerRun, the tool's own code.
//
// The text mode flag (utf8) is process-wide: calls with utf8=True and
// utf8=False never parse at the same time (a call waits until the calls of
// the other mode are done), so threads of one Python process may mix them.
// The GIL is released while answers are parsed.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "foundation/VBundle.h"
#include "foundation/VString.h"
#include "json_readers/JsonObjParser.h"
#include "poi_parser/AnswerKinds.h"
#include "tools/AnswerRun.h"
#include "tools/ReplaySummary.h"

namespace py = pybind11;

namespace {

using _quarn_framework::AnswerKind;
using _quarn_framework::CVDiagnostics;
using _quarn_vi::CVBundle;
using _quarn_vi::CVString;
using poiparse_support::AnswerRun;
using poiparse_support::ReplaySummary;
using poiparse_support::RunStatus;

// Holds the text mode flag at one value while calls of that mode parse.
// Invariant (under m_mutex): m_holders > 0 implies the flag equals m_utf8.
class TextModeHold {
 public:
  explicit TextModeHold(bool utf8) {
    std::unique_lock<std::mutex> lock(Mutex());
    Changed().wait(lock, [&] { return Holders() == 0 || Utf8() == utf8; });
    if (Holders() == 0) {
      Utf8() = utf8;
      _quarn_framework::CJsonObjParser::isParsePHPUI2Res = utf8 ? 1 : 0;
    }
    ++Holders();
  }
  ~TextModeHold() {
    std::lock_guard<std::mutex> lock(Mutex());
    if (--Holders() == 0) {
      _quarn_framework::CJsonObjParser::isParsePHPUI2Res = 0;
      Changed().notify_all();
    }
  }
  TextModeHold(const TextModeHold&) = delete;
  TextModeHold& operator=(const TextModeHold&) = delete;

 private:
  static std::mutex& Mutex() {
    static std::mutex mutex;
    return mutex;
  }
  static std::condition_variable& Changed() {
    static std::condition_variable changed;
    return changed;
  }
  static int& Holders() {
    static int holders = 0;
    return holders;
  }
  static bool& Utf8() {
    static bool utf8 = false;
    return utf8;
  }
};

// A text handed in from Python: a view of the str's UTF-8 form (cached in
// the str object) or of the bytes, valid while `owner` lives.
struct Text {
  py::object owner;
  const char* data = nullptr;
  size_t size = 0;
};

Text TextOf(const py::handle& object) {
  Text text;
  text.owner = py::reinterpret_borrow<py::object>(object);
  if (PyUnicode_Check(object.ptr())) {
    Py_ssize_t size = 0;
    text.data = PyUnicode_AsUTF8AndSize(object.ptr(), &size);
    if (text.data == nullptr) throw py::error_already_set();
    text.size = static_cast<size_t>(size);
  } else if (PyBytes_Check(object.ptr())) {
    text.data = PyBytes_AS_STRING(object.ptr());
    text.size = static_cast<size_t>(PyBytes_GET_SIZE(object.ptr()));
  } else {
    throw py::type_error("an answer text is a str or bytes, not " +
                         std::string(Py_TYPE(object.ptr())->tp_name));
  }
  return text;
}

std::vector<Text> TextsOf(const py::iterable& texts) {
  std::vector<Text> out;
  for (const py::handle& t : texts) out.push_back(TextOf(t));
  return out;
}

const AnswerKind* KindOf(const py::object& kind) {
  if (kind.is_none()) return nullptr;
  const std::string name = py::cast<std::string>(kind);
  const AnswerKind* found = _quarn_framework::FindAnswerKind(name.c_str());
  if (found == nullptr) throw py::value_error("unknown kind '" + name + "' (see poiparser.kinds())");
  return found;
}

// ---- Bundles to Python values ------------------------------------------------

py::str StrOf(const CVString& s) {
  int byte_order = -1;  // little-endian units
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  byte_order = 1;
#endif
  PyObject* str = PyUnicode_DecodeUTF16(reinterpret_cast<const char*>(s.Data()),
                                        static_cast<Py_ssize_t>(s.GetLength()) * 2, "surrogatepass", &byte_order);
  if (str == nullptr) throw py::error_already_set();
  return py::reinterpret_steal<py::str>(str);
}

// UTF-8 from the library (paths, messages), decoded as the tool's writer
// decodes it.
py::str StrOfUtf8(const std::string& utf8) {
  return StrOf(_quarn_vi::CVCMMap::Utf8ToUnicode(utf8.data(), static_cast<unsigned int>(utf8.size())));
}

py::object ValueAt(const CVBundle& bundle, int i);

// Recursion is bounded: the parser's bundles nest as deep as the answer
// formats do (a handful of levels), whatever the input.
py::dict DictOf(const CVBundle& bundle) {
  py::dict dict;
  for (int i = 0; i < bundle.GetCount(); ++i) dict[StrOf(bundle.GetKeyAt(i))] = ValueAt(bundle, i);
  return dict;
}

py::object ValueAt(const CVBundle& bundle, int i) {
  switch (bundle.GetTypeAt(i)) {
    case CVBundle::kInt:
      return py::int_(bundle.GetIntAt(i));
    case CVBundle::kBool:
      return py::bool_(bundle.GetIntAt(i) != 0);
    case CVBundle::kDouble: {
      const double value = bundle.GetDoubleAt(i);
      if (!std::isfinite(value)) return py::none();
      return py::float_(value);
    }
    case CVBundle::kString:
      return StrOf(bundle.GetStringAt(i));
    case CVBundle::kBundle:
      return DictOf(bundle.GetBundleAt(i));
    case CVBundle::kBundleArray: {
      const CVBundle::BundleArray& array = bundle.GetBundleArrayAt(i);
      py::list list(static_cast<size_t>(array.m_nSize));
      for (int k = 0; k < array.m_nSize; ++k) list[static_cast<size_t>(k)] = DictOf(array.m_pData[k]);
      return list;
    }
    case CVBundle::kStringArray: {
      const CVBundle::StringArray& array = bundle.GetStringArrayAt(i);
      py::list list(static_cast<size_t>(array.m_nSize));
      for (int k = 0; k < array.m_nSize; ++k) list[static_cast<size_t>(k)] = StrOf(array.m_pData[k]);
      return list;
    }
  }
  return py::none();
}

// ---- parse and parse_many -----------------------------------------------------

// One text's run, or what stopped it.
struct Slot {
  AnswerRun run;
  bool out_of_memory = false;
};

void RunSlot(const Text& text, const poiparse_support::RunOptions& options, Slot* slot) {
  try {
    poiparse_support::RunAnswer(text.data, text.size, 1, options, &slot->run);
  } catch (const std::bad_alloc&) {
    slot->out_of_memory = true;
  }
}

// The result of one run as the tool prints it, or the error it raises;
// `where` prefixes the error message ("texts[3]: ").
py::dict ResultOf(const Slot& slot, bool explain, const std::string& where) {
  if (slot.out_of_memory) throw std::bad_alloc();
  const AnswerRun& run = slot.run;
  if (run.status == RunStatus::kInvalidJson) {
    throw py::value_error(where + "line " + std::to_string(run.error_line) + ", column " +
                          std::to_string(run.error_column) + ": invalid JSON: " + run.error);
  }
  if (run.status == RunStatus::kUnknownKind) {
    throw py::value_error(where + "cannot tell the answer kind from its shape; name it with kind= (see poiparser.kinds())");
  }
  py::dict result;
  result["kind"] = py::str(run.kind->name);
  result["result"] = py::int_(run.result);
  result["bundle"] = DictOf(run.bundle);
  if (explain) {
    py::list diagnostics;
    for (const auto& d : run.diagnostics) {
      py::dict item;
      item["path"] = StrOfUtf8(d.path);
      item["severity"] = py::str(CVDiagnostics::SeverityName(d.severity));
      item["message"] = StrOfUtf8(d.message);
      diagnostics.append(item);
    }
    result["diagnostics"] = diagnostics;
  }
  return result;
}

poiparse_support::RunOptions OptionsOf(const py::object& kind, bool utf8, bool explain) {
  poiparse_support::RunOptions options;
  options.kind = KindOf(kind);
  options.utf8 = utf8;
  options.explain = explain;
  return options;
}

py::dict Parse(const py::handle& text, const py::object& kind, bool utf8, bool explain) {
  const poiparse_support::RunOptions options = OptionsOf(kind, utf8, explain);
  const Text t = TextOf(text);
  Slot slot;
  {
    py::gil_scoped_release release;
    TextModeHold hold(utf8);
    RunSlot(t, options, &slot);
  }
  return ResultOf(slot, explain, "");
}

py::list ParseMany(const py::iterable& texts, const py::object& kind, bool utf8, bool explain, int threads) {
  const poiparse_support::RunOptions options = OptionsOf(kind, utf8, explain);
  if (threads < 0) throw py::value_error("threads is 0 (all cores) or more");
  const std::vector<Text> all = TextsOf(texts);
  std::vector<Slot> slots(all.size());
  {
    py::gil_scoped_release release;
    TextModeHold hold(utf8);
    size_t count = threads > 0 ? static_cast<size_t>(threads) : std::max(1u, std::thread::hardware_concurrency());
    count = std::min(count, all.size());
    std::atomic<size_t> next{0};
    auto work = [&] {
      for (size_t i = next++; i < all.size(); i = next++) RunSlot(all[i], options, &slots[i]);
    };
    std::vector<std::thread> pool;
    for (size_t t = 1; t < count; ++t) pool.emplace_back(work);
    work();  // this thread is one of them
    for (std::thread& t : pool) t.join();
  }
  py::list results(all.size());
  for (size_t i = 0; i < slots.size(); ++i) {
    results[i] = ResultOf(slots[i], explain, "texts[" + std::to_string(i) + "]: ");
  }
  return results;
}

// ---- Summaries ----------------------------------------------------------------

py::dict DictOfSummary(const ReplaySummary& summary) {
  const ReplaySummary::Counts& c = summary.GetCounts();
  py::dict out;
  out["answers"] = c.answers;
  out["accepted"] = c.accepted;
  out["refused"] = c.refused;
  out["invalid"] = c.invalid;
  out["out_of_memory"] = c.out_of_memory;
  py::dict kinds;
  for (const auto& k : summary.SortedKinds()) kinds[py::str(k.first)] = k.second;
  out["kinds"] = kinds;
  py::list groups;
  for (const ReplaySummary::Group* g : summary.SortedGroups()) {
    py::dict group;
    group["path"] = py::str(g->key.path);
    group["severity"] = py::str(CVDiagnostics::SeverityName(g->key.severity));
    group["message"] = py::str(g->key.message);
    group["count"] = g->count;
    group["first"] = py::str(summary.FirstText(g->first));
    groups.append(group);
  }
  out["diagnostics"] = groups;
  py::list sources;
  for (const ReplaySummary::Source& s : summary.Sources()) {
    py::dict source;
    source["name"] = py::str(s.name);
    source["lines"] = s.lines;
    sources.append(source);
  }
  out["sources"] = sources;
  return out;
}

template <typename T>
T Member(const py::dict& dict, const char* name, const char* what) {
  if (!dict.contains(name)) throw py::value_error(std::string(what) + " has no \"" + name + "\"");
  try {
    return py::cast<T>(dict[name]);
  } catch (const py::cast_error&) {
    throw py::value_error(std::string(what) + "'s \"" + name + "\" has the wrong type");
  }
}

ReplaySummary SummaryOfDict(const py::handle& object) {
  if (!py::isinstance<py::dict>(object)) throw py::type_error("a summary is a dict");
  const py::dict dict = py::reinterpret_borrow<py::dict>(object);
  ReplaySummary summary;
  for (const py::handle& s : Member<py::list>(dict, "sources", "a summary")) {
    const py::dict source = py::cast<py::dict>(s);
    summary.AddSource(Member<std::string>(source, "name", "a source"), Member<size_t>(source, "lines", "a source"));
  }
  ReplaySummary::Counts& c = summary.MutableCounts();
  c.answers = Member<size_t>(dict, "answers", "a summary");
  c.accepted = Member<size_t>(dict, "accepted", "a summary");
  c.refused = Member<size_t>(dict, "refused", "a summary");
  c.invalid = Member<size_t>(dict, "invalid", "a summary");
  c.out_of_memory = Member<size_t>(dict, "out_of_memory", "a summary");
  for (const auto& k : Member<py::dict>(dict, "kinds", "a summary")) {
    summary.AddKind(py::cast<std::string>(k.first), py::cast<size_t>(k.second));
  }
  for (const py::handle& g : Member<py::list>(dict, "diagnostics", "a summary")) {
    const py::dict group = py::cast<py::dict>(g);
    poiparse_support::GroupKey key;
    key.path = Member<std::string>(group, "path", "a diagnostic");
    key.message = Member<std::string>(group, "message", "a diagnostic");
    const std::string severity = Member<std::string>(group, "severity", "a diagnostic");
    if (!poiparse_support::SeverityFromName(severity, &key.severity)) {
      throw py::value_error("unknown severity '" + severity + "'");
    }
    const std::string first = Member<std::string>(group, "first", "a diagnostic");
    ReplaySummary::Position position;
    if (!summary.ParseFirst(first, &position)) {
      throw py::value_error("a diagnostic's first '" + first + "' names none of the summary's sources");
    }
    summary.AddGroup(key, Member<size_t>(group, "count", "a diagnostic"), position);
  }
  return summary;
}

py::dict Summary(const py::iterable& texts, const py::object& kind, bool utf8, const std::string& source) {
  const poiparse_support::RunOptions options = OptionsOf(kind, utf8, true);
  const std::vector<Text> all = TextsOf(texts);
  ReplaySummary summary;
  {
    py::gil_scoped_release release;
    TextModeHold hold(utf8);
    const size_t index = summary.AddSource(source, all.size());
    for (size_t i = 0; i < all.size(); ++i) {
      // One text is one line of a log: its newline, if any, is not part of it.
      size_t size = all[i].size;
      if (size > 0 && all[i].data[size - 1] == '\n') --size;
      const char* text = all[i].data;
      if (std::all_of(text, text + size, [](char c) { return c == ' ' || c == '\t' || c == '\r'; })) continue;
      poiparse_support::AnswerRecord record;
      try {
        AnswerRun run;
        poiparse_support::RunAnswer(text, size, i + 1, options, &run);
        if (run.status == RunStatus::kParsed) record = poiparse_support::RecordOf(run);
      } catch (const std::bad_alloc&) {
        record = poiparse_support::AnswerRecord();
        record.outcome = poiparse_support::AnswerOutcome::kOutOfMemory;
      }
      summary.Add(index, i + 1, record);
    }
  }
  return DictOfSummary(summary);
}

py::dict MergeSummaries(const py::iterable& summaries) {
  ReplaySummary merged;
  for (const py::handle& s : summaries) merged.Merge(SummaryOfDict(s));
  return DictOfSummary(merged);
}

py::list Kinds() {
  py::list names;
  for (const AnswerKind& kind : _quarn_framework::AnswerKinds()) names.append(py::str(kind.name));
  return names;
}

}  // namespace

PYBIND11_MODULE(poiparser, m) {
  m.doc() = "Map search answers parsed as the map client parses them, and replay summaries of logs of answers.";
  poiparse_support::InstallAllocationHooks();
  m.def("parse", &Parse, py::arg("text"), py::arg("kind") = py::none(), py::arg("utf8") = false,
        py::arg("explain") = false,
        "parse(text, kind=None, utf8=False, explain=False) -> dict\n\n"
        "The answer `text` (str or bytes) as `poiparse --compact [--explain]` prints it:\n"
        "{\"kind\", \"result\", \"bundle\"[, \"diagnostics\"]}. Without `kind`, the kind is\n"
        "told from the answer's shape. Raises ValueError for invalid JSON (with its\n"
        "line, column and reason) and for an unknown or undetectable kind.");
  m.def("parse_many", &ParseMany, py::arg("texts"), py::arg("kind") = py::none(), py::arg("utf8") = false,
        py::arg("explain") = false, py::arg("threads") = 0,
        "parse_many(texts, kind=None, utf8=False, explain=False, threads=0) -> list\n\n"
        "parse() of each text, in order, on `threads` threads (0: all cores), without\n"
        "the GIL. The first text in order that parse() would refuse raises its error,\n"
        "prefixed with its index (\"texts[3]: ...\").");
  m.def("summary", &Summary, py::arg("texts"), py::arg("kind") = py::none(), py::arg("utf8") = false,
        py::arg("source") = "<texts>",
        "summary(texts, kind=None, utf8=False, source=\"<texts>\") -> dict\n\n"
        "The `poiparse --jsonl --summary` object of `texts`, the lines of a log (or a\n"
        "part of one) named `source`: one text per line, blank ones counted as lines\n"
        "and skipped, invalid ones counted. Positions count from 1 within the texts.\n"
        "json.dumps(summary, indent=2, ensure_ascii=False) prints what the tool prints.");
  m.def("merge_summaries", &MergeSummaries, py::arg("summaries"),
        "merge_summaries(summaries) -> dict\n\n"
        "The summary of the input whose consecutive parts the `summaries` summarise,\n"
        "in order. A part whose first source has the name of the previous part's\n"
        "last source continues it: its lines are shifted past that source's lines.");
  m.def("kinds", &Kinds, "kinds() -> list of the answer kinds' names (poiparse --list-kinds)");
}
