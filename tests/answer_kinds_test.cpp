// The registry of operations and answer kinds: detection by shape, names and
// aliases, the operations' text mode, and that every operation is exercised.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "TestSupport.h"
#include "poi_parser/AnswerKinds.h"

namespace {

using _quarn_framework::AnswerKind;
using _quarn_framework::AnswerKinds;
using _quarn_framework::CJsonObjParser;
using _quarn_framework::DetectAnswerKind;
using _quarn_framework::FindAnswerKind;
using _quarn_framework::ParserOperation;
using _quarn_framework::ParserOperations;
using _quarn_framework::TextMode;
using _quarn_vi::CVBundle;

std::string DetectedName(const std::string& input) {
  testing_support::Json root = testing_support::ParseJson(input);
  const AnswerKind* kind = DetectAnswerKind(root.get());
  return kind != nullptr ? kind->name : "(none)";
}

// The shape tests and their order: an answer with the members of several
// kinds is the kind tried first. The district answer has the area search's
// shape; the route dispatcher and the records are only named.
TEST(AnswerKinds, DetectionByShapeMostSpecificFirst) {
  const struct {
    const char* input;
    const char* kind;
  } cases[] = {
      // Not an object, or nothing to go by.
      {R"([])", "(none)"},
      {R"("traffic_citys")", "(none)"},
      {R"({})", "(none)"},
      {R"({"Traffic_citys": {}})", "(none)"},  // member names are case-sensitive
      // One member decides, whatever its type.
      {R"({"traffic_citys": null})", "city-list"},
      {R"({"poi_result": 1})", "poi-list"},
      {R"({"traffic_pois": []})", "route-addr-2"},
      {R"({"result": {"result_array": 1}})", "area-multi"},
      {R"({"center": "x"})", "circum"},
      {R"({"errNo": "3"})", "indoor"},
      // The order among them.
      {R"({"poi_result": {}, "traffic_citys": {}})", "city-list"},
      {R"({"traffic_pois": {}, "poi_result": {}})", "poi-list"},
      {R"({"center": {}, "traffic_pois": {}})", "route-addr-2"},
      {R"({"center": {}, "result": {"result_array": []}})", "area-multi"},
      {R"({"errNo": 0, "center": {}})", "circum"},
      {R"({"errNo": 0, "result": {"city_list": []}, "content": {"end": []}})", "route-addr-1"},
      {R"({"errNo": 0, "content": {"cname": "x"}})", "indoor"},
      // The first route address form: "city_list" in a "result" object and a
      // "content" object holding a point.
      {R"({"result": {"city_list": [0, 0]}, "content": {"start": []}})", "route-addr-1"},
      {R"({"result": {"city_list": 1}, "content": {"waypoints": 1}})", "route-addr-1"},
      {R"({"result": {"city_list": []}, "content": {"other": []}})", "(none)"},
      {R"({"result": {"city_list": []}, "content": [{"start": []}]})", "(none)"},
      {R"({"result": [], "content": {"start": []}})", "(none)"},
      // The city query: a "content" object with "city_type" or "cname".
      {R"({"content": {"city_type": 1}})", "city-query"},
      {R"({"content": {"cname": "x"}, "result": {}})", "city-query"},
      {R"({"content": {"name": "x"}})", "(none)"},
      // The coordinate query: "content" whose first element is a text with
      // a comma; it comes before the area search.
      {R"({"content": ["1,2", "3"]})", "especial"},
      {R"({"content": [",", 3]})", "especial"},
      {R"({"content": ["12", "1,2"]})", "(none)"},
      {R"({"content": [12]})", "(none)"},
      {R"({"content": []})", "(none)"},
      {R"({"result": {}, "content": ["1,2", "3"]})", "especial"},
      // The area search: a "result" object without "error" or "city_list",
      // and a "content" array.
      {R"({"result": {}, "content": []})", "area"},
      {R"({"result": {"total": 1}, "current_city": {}, "content": [{"geo": "1|2,3"}]})", "area"},
      {R"({"result": {"error": 0}, "content": []})", "(none)"},
      {R"({"result": {"city_list": []}, "content": []})", "(none)"},
      {R"({"result": 1, "content": []})", "(none)"},
      {R"({"result": {}, "content": {}})", "(none)"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.input);
    EXPECT_EQ(DetectedName(c.input), c.kind);
  }
}

TEST(AnswerKinds, NamesAndAliasesFindTheirKindAndNothingElse) {
  std::set<std::string> names;
  for (const AnswerKind& kind : AnswerKinds()) {
    SCOPED_TRACE(kind.name);
    EXPECT_TRUE(names.insert(kind.name).second) << "a name given twice";
    EXPECT_EQ(FindAnswerKind(kind.name), &kind);
    if (kind.alias != nullptr) {
      EXPECT_TRUE(names.insert(kind.alias).second) << "an alias given twice";
      EXPECT_EQ(FindAnswerKind(kind.alias), &kind);
    }
  }
  EXPECT_EQ(FindAnswerKind("coordinate-query"), FindAnswerKind("especial"));
  EXPECT_EQ(FindAnswerKind(""), nullptr);
  EXPECT_EQ(FindAnswerKind("poi_list"), nullptr);
  EXPECT_EQ(FindAnswerKind("City-list"), nullptr);
}

// The tool accepts an alias and reports the kind by its stable name.
TEST(AnswerKinds, TheToolTakesAnAliasAndPrintsTheName) {
  const std::string file = std::string(SOURCE_DIR) + "/examples/coordinate_query.json";
  const testing_support::ToolOutcome by_alias = testing_support::RunTool("--compact --kind coordinate-query " + file);
  const testing_support::ToolOutcome by_name = testing_support::RunTool("--compact --kind especial " + file);
  EXPECT_EQ(by_alias.status, 0) << by_alias.err;
  EXPECT_EQ(by_alias.out, by_name.out);
  EXPECT_EQ(by_alias.out.rfind(R"({"kind":"especial",)", 0), 0u) << by_alias.out;
  EXPECT_NE(testing_support::RunTool("--list-kinds").out.find("coordinate-query"), std::string::npos);
}

// The tests that walk ExampleOps() reach every operation of the registry.
TEST(AnswerKinds, EveryOperationHasAnExampleNode) {
  std::set<std::string> covered;
  for (const testing_support::ExampleOp& row : testing_support::ExampleOps()) covered.insert(row.op_name);
  std::set<std::string> names;
  for (const ParserOperation& operation : ParserOperations()) {
    EXPECT_TRUE(names.insert(operation.name).second) << operation.name << " listed twice";
    EXPECT_EQ(covered.count(operation.name), 1u) << operation.name << " has no row in ExampleOps()";
  }
}

// With the flag held set (poiparse --utf8, or a client that sets it for a
// whole batch), no kind's operation may clear it.
TEST(AnswerKinds, AHeldFlagIsNeverCleared) {
  for (const AnswerKind& kind : AnswerKinds()) {
    SCOPED_TRACE(kind.name);
    EXPECT_NE(kind.OperationFor(true).text_mode, TextMode::kDispatches);
    EXPECT_EQ(&kind.OperationFor(false), kind.operation);
  }
}

std::string RunWithFlag(const ParserOperation& operation, cJSON* node, bool flag, int* flag_after) {
  CJsonObjParser::isParsePHPUI2Res = flag ? 1 : 0;
  CVBundle bundle;
  const int result = operation.run(node, bundle);
  *flag_after = CJsonObjParser::isParsePHPUI2Res;
  CJsonObjParser::isParsePHPUI2Res = 0;
  return std::to_string(result) + testing_support::ToJson(bundle);
}

// The registry's text mode of an operation is what it does: an operation
// that ignores the flag gives the same bundle either way on every example
// answer and node; one that decodes gives another bundle for a text that is
// not ASCII; only the dispatcher clears the flag.
TEST(AnswerKinds, TextModeIsWhatTheOperationDoes) {
  // A non-ASCII text ("é", two UTF-8 bytes) where each decoding operation
  // applies the text rule.
  const struct {
    const char* operation;
    const char* input;
  } decoding[] = {
      {"ParsePoiListRst",
       R"({"result": {"error": 0}, "poi_result": {"option": {}, "place_info": {}, "suggest_query": [{"query": "é"}]}})"},
      {"ParseAreaSearchRst", R"({"result": {}, "suggest_query": [{"query": "é"}]})"},
      {"ParseCircumSearchRst", R"({"result": {}, "suggest_query": [{"query": "é"}]})"},
      // Clear, the first form; set, the second.
      {"ParseRouteAddrRst", R"({"result": {"error": 0, "city_list": [0, 0, 0]}, "content": {"waypoints": []},)"
                            R"( "traffic_pois": {"option": {"city_list": [0, 0, 0], "wp_wd": ["é"]}, "content": {}}})"},
      {"ParseRouteAddrPHPUIRst",
       R"({"result": {"city_list": [0, 0, 0], "wp_wd": ["é"]}, "content": {"waypoints": []}})"},
      {"ParseRouteAddrPHPUI2Rst", R"({"result": {"error": 0}, "traffic_pois": {"option": {"city_list": [0, 0, 0],)"
                                  R"( "wp_wd": ["é"]}, "content": {"multi_waypoints": []}}})"},
      {"GetSuggestQueryFromJson", R"([{"query": "é"}])"},
      {"GetRPAddrResInfoFromJson", R"({"city_list": [0, 0, 0], "wp_wd": ["é"]})"},
  };
  std::set<std::string> decoders;
  for (const auto& d : decoding) {
    SCOPED_TRACE(d.operation);
    const ParserOperation* operation = _quarn_framework::FindParserOperation(d.operation);
    ASSERT_NE(operation, nullptr);
    EXPECT_NE(operation->text_mode, TextMode::kIgnored);
    testing_support::Json root = testing_support::ParseJson(d.input);
    int flag_after;
    const std::string clear = RunWithFlag(*operation, root.get(), false, &flag_after);
    const std::string set = RunWithFlag(*operation, root.get(), true, &flag_after);
    EXPECT_NE(clear, set);
    EXPECT_EQ(flag_after, operation->text_mode == TextMode::kDispatches ? 0 : 1);
    decoders.insert(d.operation);
  }
  for (const ParserOperation& operation : ParserOperations()) {
    if (operation.text_mode != TextMode::kIgnored) {
      EXPECT_EQ(decoders.count(operation.name), 1u) << operation.name << " needs a row above";
      continue;
    }
    SCOPED_TRACE(operation.name);
    for (const testing_support::ExampleOp& row : testing_support::ExampleOps()) {
      testing_support::Json root = testing_support::ParseJson(testing_support::ReadExample(row.example));
      for (cJSON* node : {root.get(), testing_support::NodeAt(root.get(), row.path)}) {
        int flag_after;
        const std::string clear = RunWithFlag(operation, node, false, &flag_after);
        EXPECT_EQ(RunWithFlag(operation, node, true, &flag_after), clear) << row.example << "/" << row.path;
        EXPECT_EQ(flag_after, 1);
      }
    }
  }
}

}  // namespace
