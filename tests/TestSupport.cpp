#include "TestSupport.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <dirent.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace testing_support {

Json ParseJson(const std::string& text) {
  cJSON* root = cJSON_ParseWithLengthOpts(text.c_str(), text.size() + 1, nullptr, 1);
  EXPECT_NE(root, nullptr) << "not JSON: " << text;
  return Json(root, cJSON_Delete);
}

std::string ToJson(const _quarn_vi::CVBundle& bundle) { return _quarn_vi::BundleToJson(bundle, false); }

int Run(Op op, const std::string& input, std::string* json) {
  Json root = ParseJson(input);
  _quarn_vi::CVBundle bundle;
  int result = op(root.get(), bundle);
  *json = ToJson(bundle);
  return result;
}

namespace {

// With POIPARSER_CASE_LOG naming a file, every table case is appended to it
// as one JSON line, for the schema check (tests/schema/check_schemas.py):
// {"kind", "result", "clean" (read with no diagnostic), "bundle", "input"}.
// Cases of operations that no kind names are left out.
void LogCase(Op op, const OpCase& c, int result, const std::string& bundle) {
  const char* path = std::getenv("POIPARSER_CASE_LOG");
  if (path == nullptr || *path == 0) return;
  const char* kind = nullptr;
  for (const _quarn_framework::AnswerKind& k : _quarn_framework::AnswerKinds()) {
    if (k.operation->run == op) kind = k.name;
  }
  if (kind == nullptr) return;
  // Once more, with a collector; the text mode flag is kept as it was.
  const int flag = _quarn_framework::CJsonObjParser::isParsePHPUI2Res;
  _quarn_vi::CVDiagnostics diagnostics;
  {
    Json root = ParseJson(c.input);
    _quarn_vi::CVBundle scratch;
    _quarn_vi::CVDiagnosticsScope scope(diagnostics);
    op(root.get(), scratch);
  }
  _quarn_framework::CJsonObjParser::isParsePHPUI2Res = flag;
  // A JSON text holds line breaks only as white space.
  std::string input = c.input;
  std::replace(input.begin(), input.end(), '\n', ' ');
  std::replace(input.begin(), input.end(), '\r', ' ');
  std::ofstream(path, std::ios::app) << "{\"kind\":\"" << kind << "\",\"result\":" << result
                                     << ",\"clean\":" << (diagnostics.Reports().empty() ? "true" : "false")
                                     << ",\"bundle\":" << bundle << ",\"input\":" << input << "}\n";
}

}  // namespace

void ExpectCases(Op op, const std::vector<OpCase>& cases) {
  for (const OpCase& c : cases) {
    SCOPED_TRACE(c.input);
    std::string json;
    const int result = Run(op, c.input, &json);
    EXPECT_EQ(result, c.result);
    EXPECT_EQ(json, c.bundle);
    LogCase(op, c, result, json);
  }
}

ToolOutcome RunTool(const std::string& args, const std::string& input) {
  // Tests run in parallel processes: every call gets files of its own.
  static int calls = 0;
  const std::string stem =
      testing::TempDir() + "poiparse_" + std::to_string(getpid()) + "_" + std::to_string(++calls);
  const std::string in = stem + ".in";
  const std::string err = stem + ".err";
  std::ofstream(in, std::ios::binary) << input;
  std::string command = std::string(POIPARSE_PATH) + " " + args + " <" + in + " 2>" + err;
  ToolOutcome outcome{"", "", -1};
  if (FILE* pipe = popen(command.c_str(), "r")) {
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof(buf), pipe)) > 0) outcome.out.append(buf, n);
    int status = pclose(pipe);
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  outcome.err = ReadFile(err);
  std::remove(in.c_str());
  std::remove(err.c_str());
  return outcome;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  EXPECT_TRUE(in.good()) << "cannot read " << path;
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::vector<std::string> ExampleNames() {
  std::vector<std::string> names;
  if (DIR* dir = opendir(SOURCE_DIR "/examples")) {
    while (dirent* entry = readdir(dir)) {
      const std::string file = entry->d_name;
      if (file.size() > 5 && file.compare(file.size() - 5, 5, ".json") == 0) {
        names.push_back(file.substr(0, file.size() - 5));
      }
    }
    closedir(dir);
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string ReadExample(const std::string& name) { return ReadFile(SOURCE_DIR "/examples/" + name + ".json"); }

// Every operation of the registry has a row (answer_kinds_test.cpp checks it).
const std::vector<ExampleOp>& ExampleOps() {
  static const std::vector<ExampleOp> ops = [] {
    const struct {
      const char* example;
      const char* path;
      bool utf8;
      const char* operation;
    } rows[] = {
        {"address", "", false, "GetAddrContentFromJson"},
        {"area_multi", "", false, "ParseAreaMultiSearchRst"},
        {"area_search", "", true, "ParseAreaSearchRst"},
        {"circum_search", "", true, "ParseCircumSearchRst"},
        {"city_list", "", false, "ParseCityList"},
        {"city_list", "traffic_citys/contents", false, "GetCityInfoArrayFromJson"},
        {"city_list", "traffic_citys/contents/0", false, "GetCityInfoFromJson"},
        {"city_query", "", false, "ParseCityQueryRst"},
        {"district", "", false, "ParseDistrictRst"},
        {"coordinate_query", "", false, "ParseEspecialQueryRst"},
        {"indoor", "", false, "ParsePoiIndoorRst"},
        {"indoor", "data/poi_list/0", false, "GetIndoorPoiContentFromJson"},
        {"poi_list", "", true, "ParsePoiListRst"},
        {"poi_list", "poi_result/contents/0", true, "GetPoiContentFromJson"},
        {"poi_list", "poi_result/contents/0/show", true, "GetPoiShowFromJson"},
        {"poi_list", "poi_result/contents/0/ext/detail_info", true, "GetPoiDetailFromJson"},
        {"poi_list", "poi_result/psrs", true, "GetPsrsFromJson"},
        {"poi_list", "poi_result/suggest_query", true, "GetSuggestQueryFromJson"},
        {"poi_list_no_psrs", "", false, "ParsePoiListRst"},
        {"poi_list_refused", "", false, "ParsePoiListRst"},
        {"route_addr_1", "", false, "ParseRouteAddrRst"},
        {"route_addr_1", "", false, "ParseRouteAddrPHPUIRst"},
        {"route_addr_1", "result", false, "GetRPAddrResInfoFromJson"},
        {"route_addr_1", "content/start", false, "GetRPAddrListFromJson"},
        {"route_addr_2", "", true, "ParseRouteAddrRst"},
        {"route_addr_2", "", true, "ParseRouteAddrPHPUI2Rst"},
    };
    std::vector<ExampleOp> resolved;
    for (const auto& row : rows) {
      const _quarn_framework::ParserOperation* operation = _quarn_framework::FindParserOperation(row.operation);
      if (operation == nullptr) {
        ADD_FAILURE() << "no operation " << row.operation << " in the registry";
        continue;
      }
      resolved.push_back({row.example, row.path, row.utf8, operation->name,
                          operation->list == nullptr ? operation->run : nullptr, operation->list});
    }
    return resolved;
  }();
  return ops;
}

cJSON* NodeAt(cJSON* root, const std::string& path) {
  cJSON* node = root;
  for (size_t at = 0; node != nullptr && at < path.size();) {
    const size_t end = std::min(path.find('/', at), path.size());
    const std::string step = path.substr(at, end - at);
    node = step[0] >= '0' && step[0] <= '9' ? _quarn_vi::cJSON_GetArrayItem(node, std::atoi(step.c_str()))
                                            : _quarn_vi::cJSON_GetObjectItem(node, step.c_str());
    at = end + 1;
  }
  return node;
}

}  // namespace testing_support
