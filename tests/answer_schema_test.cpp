// The generated schemas and reference: the key constants cover every key,
// the tool prints the schemas of a kind by its name or alias, and the parts
// that tests/schema/check_schemas.py cannot see (the refused answers of the
// forms, the gate of a member on a status) hold.
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <set>
#include <string>

#include "TestSupport.h"
#include "poi_parser/AnswerSchema.h"
#include "poi_parser/BundleKeys.h"

namespace {

using testing_support::Json;
using testing_support::ParseJson;

// Every member name under a "properties" object anywhere in `node`.
void CollectProperties(const cJSON* node, std::set<std::string>* names) {
  for (const cJSON* child = node->child; child != nullptr; child = child->next) {
    if (child->string != nullptr && std::string(child->string) == "properties" && cJSON_IsObject(child)) {
      for (const cJSON* p = child->child; p != nullptr; p = p->next) names->insert(p->string);
    }
    CollectProperties(child, names);
  }
}

std::set<std::string> BundleKeysOfAllKinds() {
  std::set<std::string> keys;
  for (const _quarn_framework::AnswerKind& kind : _quarn_framework::AnswerKinds()) {
    Json both = ParseJson(_quarn_framework::AnswerKindSchemas(kind));
    CollectProperties(cJSON_GetObjectItemCaseSensitive(both.get(), "bundle"), &keys);
  }
  return keys;
}

// The key texts of poi_parser/BundleKeys.h.
std::set<std::string> KeyConstants() {
  const std::string header = testing_support::ReadFile(std::string(SOURCE_DIR) + "/poi_parser/BundleKeys.h");
  const std::regex constant("constexpr char k\\w+\\[\\] = \"([^\"]+)\";");
  std::set<std::string> texts;
  for (auto it = std::sregex_iterator(header.begin(), header.end(), constant); it != std::sregex_iterator(); ++it) {
    texts.insert((*it)[1]);
  }
  return texts;
}

TEST(AnswerSchema, EveryStoredKeyHasAConstantAndEveryConstantIsStored) {
  const std::set<std::string> stored = BundleKeysOfAllKinds();
  std::set<std::string> constants = KeyConstants();
  ASSERT_GT(constants.size(), 100u);
  for (const std::string& key : stored) EXPECT_EQ(constants.count(key), 1u) << "no constant for " << key;
  // "list" is stored only by the registry's wrapper of the two list builders.
  constants.erase(_quarn_framework::keys::kList);
  for (const std::string& key : constants) EXPECT_EQ(stored.count(key), 1u) << "a constant for no key: " << key;
}

// A node of a schema by its '/'-separated path (member names, indexes).
const cJSON* At(const cJSON* node, const std::string& path) {
  size_t from = 0;
  while (node != nullptr && from <= path.size()) {
    const size_t slash = std::min(path.find('/', from), path.size());
    const std::string step = path.substr(from, slash - from);
    node = cJSON_IsArray(node) ? cJSON_GetArrayItem(node, std::stoi(step))
                               : cJSON_GetObjectItemCaseSensitive(node, step.c_str());
    from = slash + 1;
  }
  return node;
}

// Parts of the schemas that the data-driven check sees only through the
// examples it happens to have: the refusals JSON Schema can state.
struct Expected {
  const char* kind;
  const char* path;
  const char* json;  // compact
};

TEST(AnswerSchema, StatesTheRefusalsJsonSchemaCanState) {
  const Expected cases[] = {
      // The status frame: "result" is needed, and its "error" must read as 0.
      {"poi-list", "answer/required", "[\"result\",\"poi_result\"]"},
      {"poi-list", "answer/properties/result/required", "[\"error\"]"},
      {"poi-list", "answer/properties/result/properties/error/$ref", "\"#/$defs/status\""},
      {"poi-list", "answer/$defs/status/anyOf/1", "{\"const\":false}"},
      // The indoor page is read only under a status of 0, and then needed.
      {"indoor", "answer/allOf/0/then/required", "[\"data\"]"},
      {"indoor", "answer/allOf/0/else/not/required", "[\"data\"]"},
      // The coordinate query needs two elements, the first an "x,y" text.
      {"especial", "answer/properties/content/minItems", "2"},
      {"especial", "answer/properties/content/prefixItems/0/$ref", "\"#/$defs/position\""},
      // The district's first element is a POI record with a "geo" string.
      {"district", "answer/properties/content/prefixItems/0/required", "[\"geo\"]"},
      // A place needs a non-empty "src_name".
      {"poi", "answer/properties/ext/required", "[\"src_name\"]"},
      // The dispatcher is either form, each with its own required keys.
      {"route-addr", "bundle/anyOf/1/$ref", "\"#/$defs/ParseRouteAddrPHPUI2Rst-keys\""},
      {"route-addr", "bundle/anyOf/1/required", "[\"address_info\"]"},
      // Bundles are exact; always-stored keys are required, and a refused
      // bundle's form ("keys") requires nothing.
      {"poi", "bundle/$defs/keys/additionalProperties", "false"},
      {"poi", "bundle/required", "[\"type\"]"},
      {"poi-detail", "bundle/required",
       "[\"premium_flag\",\"discount_total\",\"groupon_total\",\"movie_flag\",\"movie_film_count\","
       "\"groupon_flag\"]"},
      {"city-query", "bundle/required", "[\"type\",\"level\"]"},
      {"district", "bundle/$defs/keys/properties/x/type", "[\"number\",\"null\"]"},
  };
  for (const Expected& c : cases) {
    Json both = ParseJson(_quarn_framework::AnswerKindSchemas(*_quarn_framework::FindAnswerKind(c.kind)));
    const cJSON* node = At(both.get(), c.path);
    ASSERT_NE(node, nullptr) << c.kind << ": no " << c.path;
    char* text = cJSON_PrintUnformatted(node);
    EXPECT_EQ(std::string(text), c.json) << c.kind << ": " << c.path;
    cJSON_free(text);
  }
  EXPECT_EQ(At(ParseJson(_quarn_framework::AnswerKindSchemas(*_quarn_framework::FindAnswerKind("poi"))).get(),
               "bundle/$defs/keys/required"),
            nullptr);
}

TEST(AnswerSchema, ToolPrintsTheSchemasOfAKindByNameOrAlias) {
  const testing_support::ToolOutcome by_name = testing_support::RunTool("--schema especial");
  EXPECT_EQ(by_name.status, 0);
  EXPECT_EQ(by_name.out, _quarn_framework::AnswerKindSchemas(*_quarn_framework::FindAnswerKind("especial")));
  const testing_support::ToolOutcome by_alias = testing_support::RunTool("--schema=coordinate-query");
  EXPECT_EQ(by_alias.out, by_name.out);

  const testing_support::ToolOutcome unknown = testing_support::RunTool("--schema poi-lists");
  EXPECT_EQ(unknown.status, 2);
  EXPECT_EQ(unknown.out, "");
  EXPECT_NE(unknown.err.find("did you mean poi-list?"), std::string::npos) << unknown.err;
  EXPECT_EQ(testing_support::RunTool("--schema").status, 2);
}

}  // namespace
