// libFuzzer target: trees built through cJSON's API, which its parser never
// makes, through every operation.
//
// Input: one control byte, then a program that builds the tree, one
// instruction per byte (operands follow it), into an object root:
//   bit 0 of the control byte   0: every operation on the root;
//                               1: one operation (bits 1-5) on every node
//   instructions (byte % 17): null, false, true, a number of 8 raw bytes
//   (NaN, infinities, denormals), a number from a table of edges, a string
//   from the member names the operations read, a string of raw bytes, a
//   string with a null valuestring, open an array, open an object, close,
//   a raw node (cJSON_Raw), a container sharing the members of an earlier
//   one (a subtree with two parents), the reference flag on the next node,
//   up to 4,096 members of one name, a node of no valid type, and a chain of
//   up to 25,500 nested arrays; at most kMaxNodes nodes in all.
//   A value added to an object takes one more byte first, for its name: a
//   name the operations read, none (a member without a name), a constant
//   name (cJSON_StringIsConst) or raw bytes.
//
// Each operation runs with the text mode flag clear and set, with and
// without a diagnostics collector, into a bundle that already holds keys.
// Checks: the result is 0 or 1; a second run gives the same result and an
// equal bundle; the written bundle parses back as a JSON object; a collector
// changes neither result nor bundle, and its reports resolve to paths; a
// copy of the bundle taken before the call is unchanged. A failed check
// aborts, so that libFuzzer keeps the input as a crash.
//
// The tree shares nodes, so cJSON_Delete cannot free it: the builder takes
// its nodes from a pool of its own, points names and texts of the dictionary
// at the dictionary itself, and frees the raw texts it makes.
#include <cjson/cJSON.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "foundation/BundleJsonWriter.h"
#include "json_readers/Diagnostics.h"
#include "poi_parser/AnswerKinds.h"
#include "poi_parser/PoiJsonObjParser.h"

namespace {

using _quarn_framework::CJsonObjParser;
using _quarn_vi::CVBundle;
using _quarn_vi::CVString;
using Op = _quarn_framework::BundleOperation;

// The member names the operations read (the dictionary's), so that built
// trees reach the records.
const char* const kNames[] = {
    "Msg", "SENum", "SEResult", "acc_flag", "addr", "address", "addrs", "aoi", "book_info", "catalogID",
    "center", "cid", "city_list", "city_type", "cname", "code", "comment_num", "content", "contents",
    "count", "current_city", "d_data_type", "d_sort_rule", "d_sort_type", "data", "detail", "detail_info",
    "dis", "discount", "discount_total", "distance", "e_wd", "end", "end_city", "errNo", "error", "ext",
    "flag", "floor", "from", "geo", "groupon_flag", "groupon_info", "groupon_total", "if_nav", "level",
    "movie_film_count", "movie_flag", "multi_waypoints", "name", "num", "op_gel", "option", "oril_detail",
    "oril_info", "page_num", "pccode", "pcname", "phone", "place_info", "poi", "poiType", "poi_list",
    "poi_num", "poi_result", "precise", "premium_flag", "premium_info", "price", "prio_flag", "psrs",
    "pt_x", "pt_y", "query", "rec_reason", "result", "result_array", "s_wd", "show", "start",
    "start_city", "strategy", "suggest_query", "sup_bus", "sup_subway", "tag", "tel", "total",
    "traffic_citys", "traffic_pois", "twp", "type", "uid", "way_points", "waypoints", "wd", "wp_wd",
    "x", "y", "12958160.05,4825907.21", "1|500,700;", "12", "bid", "floor not found", "010-1234;138"};
constexpr unsigned kNameCount = sizeof(kNames) / sizeof(kNames[0]);

const double kEdges[] = {
    std::numeric_limits<double>::quiet_NaN(), -std::numeric_limits<double>::quiet_NaN(),
    std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
    std::numeric_limits<double>::denorm_min(), -std::numeric_limits<double>::denorm_min(),
    std::numeric_limits<double>::min() / 2, -0.0, 0.0, 1.0, 2147483647.0, 2147483648.0, -2147483649.0,
    2147483647.5, 9007199254740993.0, 1e308, -1e308, 0.1, 4.0};
constexpr unsigned kEdgeCount = sizeof(kEdges) / sizeof(kEdges[0]);

// At most this many nodes per tree, so that an input stays quick.
constexpr size_t kMaxNodes = 10000;

void Check(bool condition, const char* what) {
  if (!condition) {
    std::fprintf(stderr, "check failed: %s\n", what);
    std::abort();
  }
}

// The nodes of the tree being built: one pool for the process, as an input
// makes thousands of nodes and a heap request for each made the target
// three times slower.
cJSON g_pool[kMaxNodes];

// Builds a tree from the program bytes; owns every node and text it makes.
class Builder {
 public:
  Builder(const uint8_t* data, size_t size) : m_data(data), m_size(size) { m_nodes.reserve(kMaxNodes); }
  ~Builder() {
    for (char* text : m_texts) std::free(text);
  }

  cJSON* Build() {
    cJSON* root = Make(cJSON_Object);
    m_open.push_back(root);
    while (m_at < m_size && m_nodes.size() < kMaxNodes) Step();
    return root;
  }

  // Every node made, in order (the root first).
  const std::vector<cJSON*>& Nodes() const { return m_nodes; }

 private:
  int Byte() { return m_at < m_size ? m_data[m_at++] : 0; }

  char* Text(const char* bytes, size_t length) {
    char* text = static_cast<char*>(std::malloc(length + 1));
    std::memcpy(text, bytes, length);
    text[length] = 0;
    m_texts.push_back(text);
    return text;
  }
  char* Name() { return const_cast<char*>(kNames[Byte() % kNameCount]); }
  char* RawText() {
    size_t length = static_cast<size_t>(Byte()) % 64;
    if (length > m_size - m_at) length = m_size - m_at;
    char* text = Text(reinterpret_cast<const char*>(m_data + m_at), length);
    m_at += length;
    return text;
  }

  cJSON* Make(int type) {
    Check(m_nodes.size() < kMaxNodes, "the builder keeps to its pool");
    cJSON* node = &g_pool[m_nodes.size()];
    std::memset(node, 0, sizeof(cJSON));
    node->type = type;
    if (m_reference) node->type |= cJSON_IsReference;
    m_reference = false;
    m_nodes.push_back(node);
    return node;
  }

  // Appends `node` to the innermost open container (cJSON's links: the first
  // child's prev is the last child), with a name in an object.
  void Add(cJSON* node) {
    cJSON* parent = m_open.back();
    if ((parent->type & 0xFF) == cJSON_Object) {
      const int how = Byte();
      if (how < 200) {
        node->string = const_cast<char*>(kNames[how % kNameCount]);
      } else if (how < 230) {
        node->string = nullptr;  // a member without a name
      } else if (how < 255) {
        node->string = RawText();
      } else {
        node->string = Name();
        node->type |= cJSON_StringIsConst;
      }
    }
    AppendNamed(parent, node);
  }

  void Number(double value) {
    cJSON* node = Make(cJSON_Number);
    node->valuedouble = value;
    node->valueint = value >= 2147483647.0 ? 2147483647 : value <= -2147483648.0 ? -2147483647 - 1
                     : std::isnan(value)  ? 0
                                          : static_cast<int>(value);
    Add(node);
  }

  void Step() {
    switch (Byte() % 17) {
      case 0: Add(Make(cJSON_NULL)); break;
      case 1: Add(Make(cJSON_False)); break;
      case 2: Add(Make(cJSON_True)); break;
      case 3: {
        uint64_t bits = 0;
        for (int i = 0; i < 8; ++i) bits = bits << 8 | static_cast<uint64_t>(Byte());
        double value;
        std::memcpy(&value, &bits, sizeof(value));
        Number(value);
        break;
      }
      case 4: Number(kEdges[Byte() % kEdgeCount]); break;
      case 5: {
        cJSON* node = Make(cJSON_String);
        node->valuestring = Name();
        Add(node);
        break;
      }
      case 6: {
        cJSON* node = Make(cJSON_String);
        node->valuestring = RawText();
        Add(node);
        break;
      }
      case 7: Add(Make(cJSON_String)); break;  // valuestring null
      case 8:
      case 9: {
        cJSON* node = Make(m_data[m_at - 1] % 17 == 8 ? cJSON_Array : cJSON_Object);
        Add(node);
        m_open.push_back(node);
        break;
      }
      case 10:
        if (m_open.size() > 1) {
          m_closed.push_back(m_open.back());
          m_open.pop_back();
        }
        break;
      case 11: {
        cJSON* node = Make(cJSON_Raw);
        node->valuestring = Name();
        Add(node);
        break;
      }
      case 12: {
        // A closed container's members, shared: no cycle, as nothing open
        // is under a closed container.
        if (m_closed.empty()) break;
        cJSON* shared = m_closed[static_cast<size_t>(Byte()) % m_closed.size()];
        cJSON* node = Make(shared->type & 0xFF);
        node->child = shared->child;
        Add(node);
        break;
      }
      case 13: m_reference = true; break;
      case 14: {
        int count = (Byte() | Byte() << 8) % 4096 + 1;
        const char* name = kNames[Byte() % kNameCount];
        const bool objects = Byte() % 2 == 1;
        cJSON* parent = m_open.back();
        for (int i = 0; i < count && m_nodes.size() < kMaxNodes; ++i) {
          cJSON* node = Make(objects ? cJSON_Object : cJSON_Number);
          node->valuedouble = i;
          node->valueint = i;
          if ((parent->type & 0xFF) == cJSON_Object) {
            // All share the one constant name (Add would read a name byte
            // for each).
            node->string = const_cast<char*>(name);
            node->type |= cJSON_StringIsConst;
          }
          AppendNamed(parent, node);
        }
        break;
      }
      case 15: {
        cJSON* node = Make(Byte() == 0 ? cJSON_Invalid : 0x80);
        Add(node);
        break;
      }
      case 16: {
        const int levels = Byte() * 100;
        cJSON* top = Make(cJSON_Array);
        cJSON* inner = top;
        for (int i = 1; i < levels && m_nodes.size() < kMaxNodes; ++i) {
          cJSON* next = Make(cJSON_Array);
          inner->child = next;
          next->prev = next;
          inner = next;
        }
        Add(top);
        break;
      }
    }
  }

  // Appends a node whose name (if the parent is an object) is already set.
  void AppendNamed(cJSON* parent, cJSON* node) {
    if (parent->child == nullptr) {
      parent->child = node;
    } else {
      cJSON* last = parent->child->prev;
      last->next = node;
      node->prev = last;
    }
    parent->child->prev = node;
  }

  const uint8_t* m_data;
  size_t m_size;
  size_t m_at = 0;
  bool m_reference = false;
  std::vector<cJSON*> m_nodes;
  std::vector<char*> m_texts;
  std::vector<cJSON*> m_open;    // the containers being filled, the root first
  std::vector<cJSON*> m_closed;  // containers closed, for sharing
};

// A bundle that already holds keys, as a caller's may.
CVBundle Prefilled() {
  CVBundle bundle;
  bundle.SetInt("count", -5);
  bundle.SetString("name", CVString("a text longer than the inline capacity"));
  CVBundle nested;
  nested.SetDouble("x", 1.5);
  bundle.SetBundle("current_city", nested);
  return bundle;
}

struct Run {
  int result;
  CVBundle bundle;
};

Run RunOp(Op op, cJSON* node, bool utf8, _quarn_framework::CVDiagnostics* diagnostics) {
  Run run{0, Prefilled()};
  const CVBundle before = run.bundle;
  const std::string before_text = _quarn_vi::BundleToJson(before, false);
  CJsonObjParser::isParsePHPUI2Res = utf8 ? 1 : 0;
  {
    std::unique_ptr<_quarn_framework::CVDiagnosticsScope> scope;
    if (diagnostics != nullptr) scope.reset(new _quarn_framework::CVDiagnosticsScope(*diagnostics));
    run.result = op(node, run.bundle);
  }
  CJsonObjParser::isParsePHPUI2Res = 0;
  Check(run.result == 0 || run.result == 1, "the result is 0 or 1");
  Check(_quarn_vi::BundleToJson(before, false) == before_text, "a copy taken before the call is unchanged");
  return run;
}

void RunChecked(Op op, cJSON* root, cJSON* node, bool utf8) {
  const Run first = RunOp(op, node, utf8, nullptr);
  const std::string text = _quarn_vi::BundleToJson(first.bundle, false);
  cJSON* again = cJSON_ParseWithLength(text.data(), text.size());
  Check(again != nullptr && cJSON_IsObject(again), "the written bundle parses back as an object");
  cJSON_Delete(again);

  const Run second = RunOp(op, node, utf8, nullptr);
  Check(second.result == first.result, "a second run gives the same result");
  Check(second.bundle == first.bundle, "a second run gives an equal bundle");

  _quarn_framework::CVDiagnostics diagnostics;
  const Run diagnosed = RunOp(op, node, utf8, &diagnostics);
  Check(diagnosed.result == first.result, "a collector changes no result");
  Check(diagnosed.bundle == first.bundle, "a collector changes no bundle");
  for (const auto& report : diagnostics.Resolve(root)) {
    Check(!report.path.empty() && (report.path[0] == '$' || report.path == "?"), "a report has a path");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const uint8_t control = data[0];
  Builder builder(data + 1, size - 1);
  cJSON* root = builder.Build();
  const auto operations = _quarn_framework::ParserOperations();
  if ((control & 1) == 0) {
    for (const auto& operation : operations) {
      RunChecked(operation.run, root, root, false);
      RunChecked(operation.run, root, root, true);
    }
  } else {
    // One operation on each node made (a shared node once), up to a budget.
    const Op op = operations[(control >> 1) % operations.size()].run;
    const std::vector<cJSON*>& nodes = builder.Nodes();
    for (size_t i = 0; i < nodes.size() && i < 512; ++i) {
      RunChecked(op, root, nodes[i], (control & 0x40) != 0);
    }
  }
  return 0;
}
