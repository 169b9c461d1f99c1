#include "json_readers/Diagnostics.h"

#include <cstring>
#include <unordered_map>
#include <unordered_set>

#include "json_readers/JsonAccess.h"

namespace _quarn_framework {

namespace {

thread_local CVDiagnostics* t_active = nullptr;

bool IsIdentifier(const char* name) {
  if (name == nullptr || *name == 0) return false;
  for (const char* p = name; *p != 0; ++p) {
    char c = *p;
    bool ok = c == '_' || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (p != name && c >= '0' && c <= '9');
    if (!ok) return false;
  }
  return true;
}

void AppendMember(std::string& path, const char* name) {
  if (IsIdentifier(name)) {
    path += '.';
    path += name;
    return;
  }
  path += "['";
  for (const char* p = name != nullptr ? name : ""; *p != 0; ++p) {
    if (*p == '\'' || *p == '\\') path += '\\';
    path += *p;
  }
  path += "']";
}

// Records the paths of the nodes in `wanted` found under `root`, each the
// first path in document order. The walk is iterative, with an explicit
// stack as deep as the tree: a tree built through cJSON's API has no depth
// limit (its parser stops at 1000 levels). A container is entered once, so
// a subtree shared by several parents (possible through the API) is walked
// once, under its first path, and a cycle ends the walk of its branch.
void FindPaths(const cJSON* root, const std::unordered_set<const cJSON*>& wanted,
               std::unordered_map<const cJSON*, std::string>& found) {
  struct Level {
    const cJSON* next;  // the next child to visit
    int index;          // its index
    size_t length;      // the length of the container's path
    bool object;
  };
  std::vector<Level> stack;
  std::unordered_set<const cJSON*> entered;
  std::string path = "$";
  const cJSON* node = root;
  for (;;) {
    // Visit `node`, whose path is `path`.
    if (wanted.count(node) != 0) found.emplace(node, path);
    if (found.size() == wanted.size()) return;
    const cJSON* first = FirstChild(node);
    if (first != nullptr && entered.insert(node).second) {
      stack.push_back(Level{first, 0, path.size(), IsJsonObject(node)});
    }
    // The next node: the next child of the innermost container left.
    node = nullptr;
    while (!stack.empty()) {
      Level& top = stack.back();
      if (top.next == nullptr) {
        stack.pop_back();
        continue;
      }
      node = top.next;
      path.resize(top.length);
      if (top.object) {
        AppendMember(path, MemberName(node));
      } else {
        path += '[' + std::to_string(top.index) + ']';
      }
      top.next = NextSibling(node);
      ++top.index;
      break;
    }
    if (node == nullptr) return;
  }
}

}  // namespace

std::vector<CVDiagnostics::Resolved> CVDiagnostics::Resolve(const cJSON* root) const {
  std::unordered_set<const cJSON*> wanted;
  for (const Report& r : m_reports) wanted.insert(r.node != nullptr ? r.node : r.parent);
  wanted.erase(nullptr);
  std::unordered_map<const cJSON*, std::string> found;
  if (root != nullptr && !wanted.empty()) {
    FindPaths(root, wanted, found);
  }
  std::vector<Resolved> resolved;
  resolved.reserve(m_reports.size());
  for (const Report& r : m_reports) {
    const cJSON* anchor = r.node != nullptr ? r.node : r.parent;
    std::string path = "?";
    if (anchor == nullptr) {
      path = "$";
    } else {
      auto it = found.find(anchor);
      if (it != found.end()) path = it->second;
    }
    if (r.node == nullptr && r.member != nullptr && path != "?") AppendMember(path, r.member);
    resolved.push_back(Resolved{path, r.severity, r.message});
  }
  return resolved;
}

CVDiagnosticsScope::CVDiagnosticsScope(CVDiagnostics& diagnostics) : m_previous(t_active) {
  t_active = &diagnostics;
}

CVDiagnosticsScope::~CVDiagnosticsScope() { t_active = m_previous; }

namespace diag {

CVDiagnostics* Active() { return t_active; }

std::string Mismatch(const cJSON* node, const char* wanted) {
  if (node == nullptr) return "absent";
  const char* text = JsonStringBytes(node);
  const char* found = text != nullptr && *text == 0 ? "empty string" : JsonTypeName(node);
  std::string message = found;
  message += " where ";
  message += wanted;
  message += " was expected";
  return message;
}

void RefuseMember(const cJSON* parent, const char* member, const cJSON* node, const char* wanted) {
  if (CVDiagnostics* d = t_active) {
    d->Add(CVDiagnostics::Report{CVDiagnostics::kRefused, node, parent, member, Mismatch(node, wanted)});
  }
}

void Refuse(const cJSON* node, const char* message) {
  if (CVDiagnostics* d = t_active) {
    d->Add(CVDiagnostics::Report{CVDiagnostics::kRefused, node, nullptr, nullptr, message});
  }
}

void Refuse(const cJSON* node, const std::string& message) {
  if (CVDiagnostics* d = t_active) {
    d->Add(CVDiagnostics::Report{CVDiagnostics::kRefused, node, nullptr, nullptr, message});
  }
}

void RefuseNode(const cJSON* node, const char* wanted) {
  if (CVDiagnostics* d = t_active) {
    d->Add(CVDiagnostics::Report{CVDiagnostics::kRefused, node, nullptr, nullptr, Mismatch(node, wanted)});
  }
}

void SkipRequiredMember(const cJSON* parent, const char* member, const cJSON* node, const char* wanted) {
  if (CVDiagnostics* d = t_active) {
    d->Add(CVDiagnostics::Report{CVDiagnostics::kSkipped, node, parent, member, Mismatch(node, wanted)});
  }
}

void Skip(const cJSON* node, const std::string& message) {
  if (CVDiagnostics* d = t_active) {
    d->Add(CVDiagnostics::Report{CVDiagnostics::kSkipped, node, nullptr, nullptr, message});
  }
}

void SkipMember(const cJSON* node, const char* wanted) {
  if (CVDiagnostics* d = t_active) {
    if (node == nullptr) return;  // absent members are not reported
    d->Add(CVDiagnostics::Report{CVDiagnostics::kSkipped, node, nullptr, nullptr, Mismatch(node, wanted)});
  }
}

void SkipElement(const cJSON* element, const char* wanted) {
  if (CVDiagnostics* d = t_active) {
    d->Add(CVDiagnostics::Report{CVDiagnostics::kSkipped, element, nullptr, nullptr,
                                 "left out: " + Mismatch(element, wanted)});
  }
}

}  // namespace diag

}  // namespace _quarn_framework
