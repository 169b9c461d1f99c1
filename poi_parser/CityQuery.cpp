// The city query answer (one place flattened, with a default level by city
// type and the current city) and the address record.
#include <utility>

#include "poi_parser/OperationSchemas.h"
#include "poi_parser/ParserSupport.h"
#include "poi_parser/PoiJsonObjParser.h"

namespace _quarn_framework {

using namespace internal;

namespace {

const CVString kTypeKey = MakeKey(keys::kType);

// The level shown for a city type when the answer gives none (or 0); types
// outside 0..3 have no default.
int DefaultLevel(int city_type) {
  static const int kLevels[] = {4, 11, 12, 13};
  return city_type >= 0 && city_type <= 3 ? kLevels[city_type] : 0;
}

// Irregular: "level" depends on another member. It is always stored: the answer's non-zero level, else the default of
// the city type that the first row of the same table has just stored.
void ReadLevel(cJSON* member, const CVString& key, CVBundle& out) {
  int level = 0;
  if (!JsonReadInt(member, &level)) diag::SkipMember(member, "an integer");
  if (level == 0) level = DefaultLevel(out.GetInt(kTypeKey));
  out.SetInt(key, level);
}

constexpr schema::Key kLevelKeys[] = {
    schema::ScalarKey(keys::kLevel, schema::Value::kInt, schema::kAlways,
                      "level: its non-zero value, else by \"city_type\" 0 to 3: 4, 11, 12, 13, else 0"),
};

constexpr CustomReader kLevelReader = {ReadLevel, schema::MakeMember(nullptr, schema::Json::kInt), kLevelKeys};

// The city is named by "cname"; a "name" member is not read. "city_type" is
// always stored, 0 when unreadable.

constexpr FieldRow kCityQueryRows[] = {
    IntAlwaysField("city_type", keys::kType, 0),
    IntField("code", keys::kCode),
    StringField("cname", keys::kName),
    StringField("geo", keys::kGeo),
    StringField("uid", keys::kUid),
    IntField("pccode", keys::kPccode),
    StringField("pcname", keys::kPcname),
    CustomField("level", keys::kLevel, kLevelReader),
    BoolField("sup_bus", keys::kSupBus),
    BoolField("sup_business_area", keys::kSupBusinessArea),
    BoolField("sup_subway", keys::kSupSubway),
    BoolField("sup_lukuang", keys::kSupLukuang),
};

constexpr FieldRow kAddressRows[] = {
    StringField("addr", keys::kAddress),
    StringField("geo", keys::kGeo),
    StringField("name", keys::kName),
    IntField("precise", keys::kPrecise),
};

}  // namespace

// ---- What the operations read and store -----------------------------------------

namespace schema {
namespace {

constexpr Member kCityQueryMembers[] = {
    TableMember("content", kCityQueryRows, kRequired),
    kCurrentCityMember,
};
constexpr Key kCityQueryKeys[] = {
    RowsKeys(kCityQueryRows, "content", kAlways),
    CurrentCityKey("current_city"),
};
constexpr const char* kCityQueryRefusals[] = {
    "a null root or one without \"content\"; nothing is stored",
};

}  // namespace

const OperationSchema kParseCityQueryRst =
    Operation("The city query answer: one city read flat from \"content\", and the current city.",
              ObjectMember(nullptr, kCityQueryMembers), kCityQueryKeys, kCityQueryRefusals);
const OperationSchema kGetAddrContentFromJson = TableRecord("One address record.", kAddressRows);

}  // namespace schema

int CPoiJsonObjParser::ParseCityQueryRst(cJSON* root, CVBundle& out) {
  static const FieldTable table(kCityQueryRows);
  if (root == nullptr) return RefuseNoAnswer();
  cJSON* content = FindMember(root, "content");
  if (content == nullptr) {
    diag::RefuseMember(root, "content", nullptr, "an object");
    return 0;
  }
  UsableObject(content);  // any other type reads as an empty object
  out.Reserve(out.GetCount() + table.MaxKeys() + kCurrentCityKeys);
  table.Read(content, out);

  StoreCurrentCityRecord(FindMember(root, "current_city"), out);
  return 1;
}

int CPoiJsonObjParser::GetAddrContentFromJson(cJSON* node, CVBundle& out) {
  static const FieldTable table(kAddressRows);
  return table.ReadRecord(node, out);
}

}  // namespace _quarn_framework
