#include "TestSupport.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace testing_support {

Json ParseJson(const std::string& text) {
  cJSON* root = cJSON_ParseWithLengthOpts(text.c_str(), text.size() + 1, nullptr, 1);
  EXPECT_NE(root, nullptr) << "not JSON: " << text;
  return Json(root, cJSON_Delete);
}

std::string ToJson(const _quarn_vi::CVBundle& bundle) { return _quarn_vi::BundleToJson(bundle, false); }

int Run(int (*op)(cJSON*, _quarn_vi::CVBundle&), const std::string& input, std::string* json) {
  Json root = ParseJson(input);
  _quarn_vi::CVBundle bundle;
  int result = op(root.get(), bundle);
  *json = ToJson(bundle);
  return result;
}

void ExpectCases(int (*op)(cJSON*, _quarn_vi::CVBundle&), const std::vector<OpCase>& cases) {
  for (const OpCase& c : cases) {
    SCOPED_TRACE(c.input);
    std::string json;
    EXPECT_EQ(Run(op, c.input, &json), c.result);
    EXPECT_EQ(json, c.bundle);
  }
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  EXPECT_TRUE(in.good()) << "cannot read " << path;
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

}  // namespace testing_support
