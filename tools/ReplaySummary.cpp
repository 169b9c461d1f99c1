#include "tools/ReplaySummary.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <tuple>

#include "foundation/Utf8.h"

namespace poiparse_support {

namespace {

using _quarn_framework::CVDiagnostics;

// A JSON string as Python's json.dumps(ensure_ascii=False) writes it: the
// two-letter escapes, \u00xx (lower-case) for the other control characters,
// everything else as it is.
void AppendQuoted(const std::string& text, std::string& out) {
  static const char kHex[] = "0123456789abcdef";
  out.push_back('"');
  for (char c : text) {
    switch (c) {
      case '"': out += "\\\""; continue;
      case '\\': out += "\\\\"; continue;
      case '\b': out += "\\b"; continue;
      case '\f': out += "\\f"; continue;
      case '\n': out += "\\n"; continue;
      case '\r': out += "\\r"; continue;
      case '\t': out += "\\t"; continue;
      default: break;
    }
    const unsigned char u = static_cast<unsigned char>(c);
    if (u < 0x20) {
      out += "\\u00";
      out.push_back(kHex[u >> 4]);
      out.push_back(kHex[u & 0xF]);
    } else {
      out.push_back(c);
    }
  }
  out.push_back('"');
}

// Code points, for aligning columns (wide characters count one).
size_t Width(const std::string& text) {
  return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  }));
}

void Pad(std::string& out, const std::string& text, size_t width, bool right) {
  const size_t fill = width > Width(text) ? width - Width(text) : 0;
  if (right) out.append(fill, ' ');
  out += text;
  if (!right) out.append(fill, ' ');
}

}  // namespace

std::string ValidUtf8(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  const unsigned char* s = reinterpret_cast<const unsigned char*>(text.data());
  size_t i = 0;
  while (i < text.size()) {
    uint32_t code_point;
    int subpart = 0;
    const int n = _quarn_vi::Utf8SequenceAt(s + i, text.size() - i, &code_point, &subpart);
    if (n > 0) {
      out.append(text, i, static_cast<size_t>(n));
      i += static_cast<size_t>(n);
    } else {
      out += "\xEF\xBF\xBD";  // U+FFFD
      i += static_cast<size_t>(subpart);
    }
  }
  return out;
}

std::string GroupPath(const std::string& path) {
  std::string out;
  out.reserve(path.size());
  size_t i = 0;
  while (i < path.size()) {
    if (path.compare(i, 2, "['") == 0) {
      // A quoted member name: up to the closing quote, escapes (\' and \\) kept.
      size_t j = i + 2;
      while (j < path.size() && path[j] != '\'') j += path[j] == '\\' ? 2 : 1;
      j = std::min(path.size(), j + 2);  // past "']"
      out.append(path, i, j - i);
      i = j;
    } else if (path[i] == '[') {
      size_t j = i + 1;
      while (j < path.size() && path[j] >= '0' && path[j] <= '9') ++j;
      if (j > i + 1 && j < path.size() && path[j] == ']') {
        out += "[*]";
        i = j + 1;
      } else {
        out.push_back(path[i++]);
      }
    } else {
      out.push_back(path[i++]);
    }
  }
  return out;
}

bool SeverityFromName(const std::string& name, CVDiagnostics::Severity* severity) {
  for (CVDiagnostics::Severity s : {CVDiagnostics::kRefused, CVDiagnostics::kSkipped, CVDiagnostics::kWarning}) {
    if (name == CVDiagnostics::SeverityName(s)) {
      *severity = s;
      return true;
    }
  }
  return false;
}

AnswerRecord RecordOf(const AnswerRun& run) {
  AnswerRecord record;
  record.outcome = run.result == 1 ? AnswerOutcome::kAccepted : AnswerOutcome::kRefused;
  record.kind = run.kind->name;
  record.diagnostics.reserve(run.diagnostics.size());
  for (size_t i = 0; i < run.diagnostics.size(); ++i) {
    const auto& d = run.diagnostics[i];
    // The leniency warning comes first; its position is left out.
    const bool leniency = i == 0 && run.leniency != nullptr;
    record.diagnostics.push_back(GroupKey{ValidUtf8(GroupPath(d.path)), d.severity,
                                          ValidUtf8(leniency ? LeniencyWarning(run.leniency) : d.message)});
  }
  return record;
}

size_t ReplaySummary::AddSource(const std::string& name, size_t lines) {
  m_sources.push_back(Source{ValidUtf8(name), lines});
  return m_sources.size() - 1;
}

void ReplaySummary::SetLines(size_t source, size_t lines) { m_sources.at(source).lines = lines; }

std::string ReplaySummary::MapKey(const GroupKey& key) {
  std::string k = key.path;
  k.push_back('\0');
  k.push_back(static_cast<char>('0' + key.severity));
  k += key.message;
  return k;
}

void ReplaySummary::AddKind(const std::string& kind, size_t count) { m_kinds[kind] += count; }

void ReplaySummary::AddGroup(const GroupKey& key, size_t count, Position first) {
  auto inserted = m_group_index.emplace(MapKey(key), m_groups.size());
  if (inserted.second) {
    m_groups.push_back(Group{key, count, first});
    return;
  }
  Group& group = m_groups[inserted.first->second];
  group.count += count;
  if (std::tie(first.source, first.line) < std::tie(group.first.source, group.first.line)) group.first = first;
}

void ReplaySummary::Add(size_t source, size_t line, const AnswerRecord& record) {
  ++m_counts.answers;
  switch (record.outcome) {
    case AnswerOutcome::kAccepted: ++m_counts.accepted; break;
    case AnswerOutcome::kRefused: ++m_counts.refused; break;
    case AnswerOutcome::kInvalid: ++m_counts.invalid; break;
    case AnswerOutcome::kOutOfMemory: ++m_counts.out_of_memory; break;
  }
  if (record.kind != nullptr) ++m_kinds[record.kind];
  for (const GroupKey& key : record.diagnostics) AddGroup(key, 1, Position{source, line});
}

void ReplaySummary::Merge(const ReplaySummary& later) {
  // Where later's sources land here, and by how many lines they shift.
  std::vector<Position> shift(later.m_sources.size());
  for (size_t s = 0; s < later.m_sources.size(); ++s) {
    const Source& source = later.m_sources[s];
    if (s == 0 && !m_sources.empty() && m_sources.back().name == source.name) {
      shift[s] = Position{m_sources.size() - 1, m_sources.back().lines};
      m_sources.back().lines += source.lines;
    } else {
      shift[s] = Position{m_sources.size(), 0};
      m_sources.push_back(source);
    }
  }
  m_counts.answers += later.m_counts.answers;
  m_counts.accepted += later.m_counts.accepted;
  m_counts.refused += later.m_counts.refused;
  m_counts.invalid += later.m_counts.invalid;
  m_counts.out_of_memory += later.m_counts.out_of_memory;
  for (const auto& kind : later.m_kinds) m_kinds[kind.first] += kind.second;
  for (const Group& group : later.m_groups) {
    const Position& to = shift.at(group.first.source);
    AddGroup(group.key, group.count, Position{to.source, to.line + group.first.line});
  }
}

bool ReplaySummary::ParseFirst(const std::string& text, Position* first) const {
  const size_t colon = text.rfind(':');
  if (colon == std::string::npos || colon + 1 == text.size()) return false;
  size_t line = 0;
  for (size_t i = colon + 1; i < text.size(); ++i) {
    if (text[i] < '0' || text[i] > '9' || line > (SIZE_MAX - 9) / 10) return false;
    line = line * 10 + static_cast<size_t>(text[i] - '0');
  }
  for (size_t s = 0; s < m_sources.size(); ++s) {
    if (text.compare(0, colon, m_sources[s].name) == 0) {
      *first = Position{s, line};
      return true;
    }
  }
  return false;
}

std::vector<std::pair<std::string, size_t>> ReplaySummary::SortedKinds() const {
  std::vector<std::pair<std::string, size_t>> kinds(m_kinds.begin(), m_kinds.end());  // by name
  std::stable_sort(kinds.begin(), kinds.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
  return kinds;
}

std::vector<const ReplaySummary::Group*> ReplaySummary::SortedGroups() const {
  std::vector<const Group*> groups;
  groups.reserve(m_groups.size());
  for (const Group& g : m_groups) groups.push_back(&g);
  std::sort(groups.begin(), groups.end(), [](const Group* a, const Group* b) {
    return std::forward_as_tuple(b->count, a->first.source, a->first.line, a->key.path, a->key.severity,
                                 a->key.message) < std::forward_as_tuple(a->count, b->first.source, b->first.line,
                                                                         b->key.path, b->key.severity,
                                                                         b->key.message);
  });
  return groups;
}

std::string ReplaySummary::FirstText(const Position& first) const {
  return m_sources.at(first.source).name + ":" + std::to_string(first.line);
}

std::string ReplaySummary::ToJson() const {
  std::string out = "{\n";
  const std::pair<const char*, size_t> counts[] = {
      {"answers", m_counts.answers},   {"accepted", m_counts.accepted},
      {"refused", m_counts.refused},   {"invalid", m_counts.invalid},
      {"out_of_memory", m_counts.out_of_memory}};
  for (const auto& c : counts) out += std::string("  \"") + c.first + "\": " + std::to_string(c.second) + ",\n";
  const auto kinds = SortedKinds();
  out += "  \"kinds\": {";
  for (size_t i = 0; i < kinds.size(); ++i) {
    out += i == 0 ? "\n    " : ",\n    ";
    AppendQuoted(kinds[i].first, out);
    out += ": " + std::to_string(kinds[i].second);
  }
  out += kinds.empty() ? "},\n" : "\n  },\n";
  const auto groups = SortedGroups();
  out += "  \"diagnostics\": [";
  for (size_t i = 0; i < groups.size(); ++i) {
    const Group& g = *groups[i];
    out += i == 0 ? "\n    {\n      \"path\": " : ",\n    {\n      \"path\": ";
    AppendQuoted(g.key.path, out);
    out += ",\n      \"severity\": ";
    AppendQuoted(CVDiagnostics::SeverityName(g.key.severity), out);
    out += ",\n      \"message\": ";
    AppendQuoted(g.key.message, out);
    out += ",\n      \"count\": " + std::to_string(g.count) + ",\n      \"first\": ";
    AppendQuoted(FirstText(g.first), out);
    out += "\n    }";
  }
  out += groups.empty() ? "],\n" : "\n  ],\n";
  out += "  \"sources\": [";
  for (size_t i = 0; i < m_sources.size(); ++i) {
    out += i == 0 ? "\n    {\n      \"name\": " : ",\n    {\n      \"name\": ";
    AppendQuoted(m_sources[i].name, out);
    out += ",\n      \"lines\": " + std::to_string(m_sources[i].lines) + "\n    }";
  }
  out += m_sources.empty() ? "]\n}\n" : "\n  ]\n}\n";
  return out;
}

std::string ReplaySummary::ToTable() const {
  std::string out;
  const Counts& c = m_counts;
  out += std::to_string(c.answers) + " answers: " + std::to_string(c.accepted) + " accepted, " +
         std::to_string(c.refused) + " refused, " + std::to_string(c.invalid) + " invalid, " +
         std::to_string(c.out_of_memory) + " out of memory\n";
  const auto kinds = SortedKinds();
  if (!kinds.empty()) {
    size_t name_width = Width("kind"), count_width = Width("answers");
    for (const auto& k : kinds) {
      name_width = std::max(name_width, Width(k.first));
      count_width = std::max(count_width, std::to_string(k.second).size());
    }
    out += "\n";
    Pad(out, "kind", name_width, false);
    out += "  ";
    Pad(out, "answers", count_width, true);
    out += "\n";
    for (const auto& k : kinds) {
      Pad(out, k.first, name_width, false);
      out += "  ";
      Pad(out, std::to_string(k.second), count_width, true);
      out += "\n";
    }
  }
  const auto groups = SortedGroups();
  if (!groups.empty()) {
    // count, severity, first, path: aligned; the message last, as it is.
    const char* const heads[] = {"count", "severity", "first", "path"};
    std::vector<std::vector<std::string>> rows;
    for (const Group* g : groups) {
      rows.push_back({std::to_string(g->count), CVDiagnostics::SeverityName(g->key.severity), FirstText(g->first),
                      g->key.path});
    }
    size_t widths[4];
    for (size_t k = 0; k < 4; ++k) {
      widths[k] = Width(heads[k]);
      for (const auto& row : rows) widths[k] = std::max(widths[k], Width(row[k]));
    }
    out += "\n";
    for (size_t k = 0; k < 4; ++k) {
      Pad(out, heads[k], widths[k], k == 0);
      out += "  ";
    }
    out += "message\n";
    for (size_t r = 0; r < rows.size(); ++r) {
      for (size_t k = 0; k < 4; ++k) {
        Pad(out, rows[r][k], widths[k], k == 0);
        out += "  ";
      }
      out += groups[r]->key.message + "\n";
    }
  }
  return out;
}

}  // namespace poiparse_support
