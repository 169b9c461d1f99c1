// Diagnostics: where an answer was refused and which members were skipped.
//
// Off by default and free when off: the operations call the report functions
// below at each refusal and at each member or element they cannot use; each
// call is one test of a thread-local pointer unless a collector is installed
// on the calling thread with a CVDiagnosticsScope. Reporting never changes an
// operation's result or the keys it stores.
//
// The operations report nodes, not paths (cJSON nodes have no parent link);
// CVDiagnostics::Resolve turns them into JSONPath-style paths
// ($.poi_result.contents[1].tel) by walking the answer's root once.
//
//   CVDiagnostics diagnostics;
//   {
//     CVDiagnosticsScope scope(diagnostics);
//     CPoiJsonObjParser::ParsePoiListRst(root, bundle);
//   }
//   for (const auto& d : diagnostics.Resolve(root)) ...
//
// Thread safety: a collector belongs to the thread whose scope installed it.
#ifndef JSON_READERS_DIAGNOSTICS_H_
#define JSON_READERS_DIAGNOSTICS_H_

#include <cjson/cJSON.h>

#include <string>
#include <vector>

namespace _quarn_framework {

class CVDiagnostics {
 public:
  enum Severity {
    kRefused,  // the operation refused its answer or record here
    kSkipped,  // a member or list element was left out
    kWarning,  // accepted, but worth saying (poiparse: a text that is not strict JSON)
  };

  struct Report {
    Severity severity;
    const cJSON* node;    // the node concerned, or null for an absent member
    const cJSON* parent;  // for an absent member: the object it is missing from
    const char* member;   // for an absent member: its name
    std::string message;
  };

  struct Resolved {
    std::string path;  // JSONPath-style; "$" is the root given to Resolve
    Severity severity;
    std::string message;
  };

  const std::vector<Report>& Reports() const { return m_reports; }
  void Add(Report report) { m_reports.push_back(std::move(report)); }
  void Clear() { m_reports.clear(); }

  // The reports with their paths from `root`, in report order. A node that
  // is not under `root` gets the path "?".
  std::vector<Resolved> Resolve(const cJSON* root) const;

  static const char* SeverityName(Severity severity) {
    return severity == kRefused ? "refused" : severity == kSkipped ? "skipped" : "warning";
  }

 private:
  std::vector<Report> m_reports;
};

// Installs a collector for the calling thread for the scope's lifetime (the
// previous one, if any, is restored afterwards).
class CVDiagnosticsScope {
 public:
  explicit CVDiagnosticsScope(CVDiagnostics& diagnostics);
  ~CVDiagnosticsScope();
  CVDiagnosticsScope(const CVDiagnosticsScope&) = delete;
  CVDiagnosticsScope& operator=(const CVDiagnosticsScope&) = delete;

 private:
  CVDiagnostics* m_previous;
};

// ---- Report points (used by the operations) ----------------------------------

namespace diag {

// The collector of the calling thread, or null (the common case).
CVDiagnostics* Active();

// `parent`."`member`" failed its test: absent (`node` null) or of the wrong
// type; `wanted` says what was required ("an object", "an array").
void RefuseMember(const cJSON* parent, const char* member, const cJSON* node, const char* wanted);
// `node` was refused for the reason given (a status, a count). Build a
// composed message only inside `if (diag::Active())`; the literal form
// costs nothing when no collector is installed.
void Refuse(const cJSON* node, const char* message);
void Refuse(const cJSON* node, const std::string& message);
// `node` (present: a list element, the root) is not `wanted` and was
// refused.
void RefuseNode(const cJSON* node, const char* wanted);
// A record was dropped (not the answer) because its required member
// `parent`."`member`" is absent (`node` null) or not `wanted`.
void SkipRequiredMember(const cJSON* parent, const char* member, const cJSON* node, const char* wanted);
// `node` was left out for the reason given.
void Skip(const cJSON* node, const std::string& message);
// A present member that a reader could not use; `wanted` is what it reads
// ("an integer", "text", "a truth value", "an array of strings", "an object").
// Absent members (`node` null) are not reported.
void SkipMember(const cJSON* node, const char* wanted);
// A list element left out: it gave no record, or is not `wanted`.
void SkipElement(const cJSON* element, const char* wanted);

// "<found> where <wanted> was expected" ("array where an object was
// expected", "empty string where non-empty text was expected", "absent").
std::string Mismatch(const cJSON* node, const char* wanted);

}  // namespace diag

}  // namespace _quarn_framework

// The names of earlier releases, for clients written against them.
namespace _quarn_vi {
using _quarn_framework::CVDiagnostics;
using _quarn_framework::CVDiagnosticsScope;
}  // namespace _quarn_vi

#endif  // JSON_READERS_DIAGNOSTICS_H_
