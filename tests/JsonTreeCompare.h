// Node-for-node comparison of two cJSON trees, for the document's
// differential tests and fuzz target: types (flag bits included), member
// names, valuestring, valueint, valuedouble bit for bit, the order of
// children, each node's prev link and the first child's prev pointing at
// the last child.
#ifndef TESTS_JSONTREECOMPARE_H_
#define TESTS_JSONTREECOMPARE_H_

#include <cjson/cJSON.h>

#include <cstring>
#include <string>

namespace testing_support {

inline bool SameText(const char* a, const char* b) {
  return (a == nullptr || b == nullptr) ? a == b : std::strcmp(a, b) == 0;
}

// Empty when the trees are the same; else the path of the first difference
// and what differs.
inline std::string TreeDifference(const cJSON* a, const cJSON* b, const std::string& path = "$") {
  if (a == nullptr || b == nullptr) return a == b ? "" : path + ": one side is null";
  if (a->type != b->type) return path + ": type " + std::to_string(a->type) + " vs " + std::to_string(b->type);
  if (!SameText(a->string, b->string)) return path + ": member name";
  if (!SameText(a->valuestring, b->valuestring)) return path + ": valuestring";
  if (a->valueint != b->valueint) {
    return path + ": valueint " + std::to_string(a->valueint) + " vs " + std::to_string(b->valueint);
  }
  if (std::memcmp(&a->valuedouble, &b->valuedouble, sizeof(double)) != 0) return path + ": valuedouble bits";
  const cJSON* x = a->child;
  const cJSON* y = b->child;
  const cJSON* x_prev = nullptr;
  const cJSON* y_prev = nullptr;
  for (int i = 0; x != nullptr || y != nullptr; ++i) {
    const std::string at = path + "[" + std::to_string(i) + "]";
    if (x == nullptr || y == nullptr) return at + ": one side has fewer children";
    if (i > 0 && (x->prev != x_prev || y->prev != y_prev)) return at + ": prev link";
    std::string difference = TreeDifference(x, y, at);
    if (!difference.empty()) return difference;
    x_prev = x;
    y_prev = y;
    x = x->next;
    y = y->next;
  }
  if (a->child != nullptr && (a->child->prev != x_prev || b->child->prev != y_prev)) {
    return path + ": the first child's prev is not the last child";
  }
  return "";
}

}  // namespace testing_support

#endif  // TESTS_JSONTREECOMPARE_H_
