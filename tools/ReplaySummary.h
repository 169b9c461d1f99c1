// ReplaySummary: what replaying a log of answers gave, as one object: the
// answers counted by outcome and by kind, and the --explain diagnostics of
// all answers grouped by (path, severity, message), each group with how
// often it was reported and where it was first seen. poiparse --summary
// prints it; the Python module builds, merges and returns it as a dict.
//
// Positions. An answer is at (source, line): a source is one input (a file,
// standard input, the texts given to the module), lines count from 1 within
// it, blank lines included. Each source records how many lines it had, so
// that summaries of consecutive parts of an input merge into the summary of
// the whole: Merge shifts the later part's lines by the earlier part's
// count when the later part's first source continues the earlier part's
// last one (they have the same name), so a part need not know where it
// starts in its file.
//
// The printed object (ToJson), byte for byte what Python's
//   json.dumps(summary, indent=2, ensure_ascii=False) + "\n"
// prints for the same dict:
//   {
//     "answers": N,        every non-blank line (with --jsonl) or file
//     "accepted": N,       result 1
//     "refused": N,        result 0
//     "invalid": N,        no answer: invalid JSON, or a kind not told
//     "out_of_memory": N,  memory ran out while parsing the answer
//     "kinds": {"poi-list": N, ...},  accepted + refused answers per kind;
//                          most first, ties by name
//     "diagnostics": [{"path", "severity", "message", "count", "first"}, ...],
//     "sources": [{"name": "log.jsonl", "lines": N}, ...]
//   }
// answers = accepted + refused + invalid + out_of_memory. A group's path is
// the diagnostic's path with every array index written [*]; its count is the
// number of reports (an answer with three bad elements counts three); its
// first is "SOURCE:LINE" of the first answer that reported it. The "not
// strict JSON" warning is grouped by its reason alone (its text position
// differs from answer to answer). Groups are sorted by count, largest
// first; ties by first position, then path, severity (refused, skipped,
// warning) and message, so that the order follows from the groups alone.
// Strings are valid UTF-8 (invalid sequences become U+FFFD).
//
// Cost: Add is linear in the answer's diagnostics (one hash lookup each);
// memory grows with the number of distinct groups and sources, never with
// the number of answers.
//
// Thread safety: a summary belongs to one thread; AnswerRecords may be made
// on any thread.
#ifndef TOOLS_REPLAYSUMMARY_H_
#define TOOLS_REPLAYSUMMARY_H_

#include <cstddef>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "json_readers/Diagnostics.h"
#include "tools/AnswerRun.h"

namespace poiparse_support {

enum class AnswerOutcome { kAccepted, kRefused, kInvalid, kOutOfMemory };

// One diagnostic as a summary groups it.
struct GroupKey {
  std::string path;  // array indices written [*]
  _quarn_framework::CVDiagnostics::Severity severity;
  std::string message;
};

// One answer's share of a summary, made where the answer was parsed (on a
// worker thread), so that the thread that adds it in input order only counts.
struct AnswerRecord {
  AnswerOutcome outcome = AnswerOutcome::kInvalid;
  const char* kind = nullptr;         // accepted or refused: the kind's name
  std::vector<GroupKey> diagnostics;  // in report order
};

// The record of a run with status kParsed and explain on.
AnswerRecord RecordOf(const AnswerRun& run);

// `path` with every array index ("[12]") written "[*]"; a quoted member name
// (['a[1]']) is kept as it is.
std::string GroupPath(const std::string& path);

// `text` with every invalid UTF-8 sequence replaced by U+FFFD, as the tool's
// JSON writer decodes it.
std::string ValidUtf8(const std::string& text);

class ReplaySummary {
 public:
  struct Position {
    size_t source = 0;  // index into Sources()
    size_t line = 0;    // from 1 within the source
  };
  struct Group {
    GroupKey key;
    size_t count = 0;
    Position first;
  };
  struct Source {
    std::string name;
    size_t lines = 0;
  };
  struct Counts {
    size_t answers = 0, accepted = 0, refused = 0, invalid = 0, out_of_memory = 0;
  };

  // Appends a source; returns its index.
  size_t AddSource(const std::string& name, size_t lines = 0);
  // REQUIRES: source < Sources().size()
  void SetLines(size_t source, size_t lines);
  // Counts one answer at `line` of `source`; records must come in input order
  // for `first` to be the first. REQUIRES: source < Sources().size()
  void Add(size_t source, size_t line, const AnswerRecord& record);
  // Adds `later`, the summary of the input right after this one's.
  void Merge(const ReplaySummary& later);

  // Pieces, for a summary rebuilt from its printed form (the module's dicts).
  Counts& MutableCounts() { return m_counts; }
  void AddKind(const std::string& kind, size_t count);
  // Adds `count` reports of `key`, first seen at `first` (kept when the
  // group's first is earlier).
  void AddGroup(const GroupKey& key, size_t count, Position first);
  // Reads "NAME:LINE" as a position among Sources() (the earliest source of
  // that name); false when it names none.
  bool ParseFirst(const std::string& text, Position* first) const;

  const Counts& GetCounts() const { return m_counts; }
  const std::vector<Source>& Sources() const { return m_sources; }
  // Kinds, most answers first, ties by name.
  std::vector<std::pair<std::string, size_t>> SortedKinds() const;
  // Groups in printing order (see above).
  std::vector<const Group*> SortedGroups() const;
  // "NAME:LINE".
  std::string FirstText(const Position& first) const;

  // The summary as JSON, indented by two spaces, with a final newline.
  std::string ToJson() const;
  // The summary as aligned text for a terminal.
  std::string ToTable() const;

 private:
  static std::string MapKey(const GroupKey& key);

  Counts m_counts;
  std::map<std::string, size_t> m_kinds;
  std::vector<Group> m_groups;                         // in the order first added
  std::unordered_map<std::string, size_t> m_group_index;  // MapKey -> index in m_groups
  std::vector<Source> m_sources;
};

// "refused", "skipped" or "warning" to its severity; false for another text.
bool SeverityFromName(const std::string& name, _quarn_framework::CVDiagnostics::Severity* severity);

}  // namespace poiparse_support

#endif  // TOOLS_REPLAYSUMMARY_H_
