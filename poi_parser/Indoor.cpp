// The indoor search answer: the service's error status mapped to the
// client's error codes, or one page of places inside a building.
#include <cstdlib>
#include <string>
#include <utility>

#include "poi_parser/OperationSchemas.h"
#include "poi_parser/ParserSupport.h"
#include "poi_parser/PoiJsonObjParser.h"

namespace _quarn_framework {

using namespace internal;

namespace {

// The service's "errNo" values that the client tells apart.
constexpr int kServiceOk = 0;
constexpr int kServiceBadParameter = 1;  // "Msg" names the parameter
constexpr int kServiceStatus5 = 5;

// The client's error codes, stored under "errNo".
constexpr int kErrorOfStatus5 = 11;
constexpr int kErrorBadBuilding = 601;  // "Msg" names "bid"
constexpr int kErrorBadFloor = 602;     // "Msg" names "floor"
constexpr int kErrorUnknown = 603;      // any other status, or none

const CVString kErrNoKey = MakeKey(keys::kErrNo);
const CVString kWFlagKey = MakeKey(keys::kWFlag);
const CVString kPFlagKey = MakeKey(keys::kPFlag);

// Irregular: one member gives three keys. "twp" is a string holding a number whose three low bits are the flags
// "t_flag", "w_flag" and "p_flag" (two's-complement bits for a negative
// number). The number is read as atoi reads it, saturated beyond int32
// (LeadingDecimalInt). Anything but a string, and a text without a leading
// number, gives three false flags; they are always stored.
void ReadTwpFlags(cJSON* member, const CVString& t_key, CVBundle& out) {
  const char* text = JsonStringBytes(member);
  bool digits = false;
  const unsigned bits = static_cast<unsigned>(LeadingDecimalInt(text, &digits));
  if (text == nullptr) {
    diag::SkipMember(member, "a string");
  } else if (!digits && diag::Active()) {
    diag::Skip(member, "text without a leading number");
  }
  out.SetBool(t_key, (bits & 1u) != 0);
  out.SetBool(kWFlagKey, (bits & 2u) != 0);
  out.SetBool(kPFlagKey, (bits & 4u) != 0);
}

constexpr schema::Key kTwpKeys[] = {
    schema::ScalarKey(keys::kTFlag, schema::Value::kBool, schema::kAlways, "twp: bit 0 of the number it starts with"),
    schema::ScalarKey(keys::kWFlag, schema::Value::kBool, schema::kAlways, "twp: bit 1 of the number it starts with"),
    schema::ScalarKey(keys::kPFlag, schema::Value::kBool, schema::kAlways, "twp: bit 2 of the number it starts with"),
};

constexpr CustomReader kTwpReader = {ReadTwpFlags, schema::MakeMember(nullptr, schema::Json::kLeadingInt),
                                     kTwpKeys};

constexpr FieldRow kIndoorPoiRows[] = {
    StringField("address", keys::kAddress),
    StringField("qx_id", keys::kQxId),
    StringField("cid", keys::kCid),
    StringField("discount", keys::kDiscount),
    StringField("floor", keys::kFloor),
    StringField("name", keys::kName),
    StringField("phone", keys::kPhone),
    StringField("poi_rank", keys::kPoiRank),
    StringField("price", keys::kPrice),
    StringField("pt_x", keys::kPtX),
    StringField("pt_y", keys::kPtY),
    StringField("star_level", keys::kStarLevel),
    StringField("tag", keys::kTag),
    StringField("tuan_nums", keys::kTuanNums),
    StringField("uid", keys::kUid),
    CustomField("twp", keys::kTFlag, kTwpReader, 3),
};

const FieldTable& IndoorPoiTable() {
  static const FieldTable table(kIndoorPoiRows);
  return table;
}

// "poi_list" is stored when it is a non-empty array, even when none of its
// elements gives a record.
constexpr FieldRow kPageRows[] = {
    IntField("page_num", keys::kPageNum),
    IntField("poi_num", keys::kPoiNum),
    ListField("poi_list", keys::kPoiList, IndoorPoiTable, Keep::kPresent),
};

// The client's code for a bad-parameter message: a building ("bid") problem
// wins over a floor problem; 0 when the message names neither.
int BadParameterError(cJSON* root) {
  CVString message;
  CJsonObjParser::GetJsonItem(root, "Msg", message);
  if (message.Find("bid", 0) >= 0) return kErrorBadBuilding;
  if (message.Find("floor", 0) >= 0) return kErrorBadFloor;
  return 0;
}

// The page of an answer with an error status is not read: a "data" member
// is reported as skipped, with the status that caused it.
void ReportUnreadPage(cJSON* root, int status) {
  cJSON* data = FindMember(root, "data");
  if (data == nullptr) return;
  cJSON* status_node = FindMember(root, "errNo");
  int read = 0;
  std::string message = "not read: ";
  if (status_node == nullptr) {
    message += "the answer has no \"errNo\" (an unknown error)";
  } else if (!JsonReadInt(status_node, &read)) {
    message += "\"errNo\" is not an integer (an unknown error)";
  } else {
    message += "status is " + std::to_string(status) + ", not 0";
  }
  diag::Skip(data, message);
}

}  // namespace

// ---- What the operations read and store -----------------------------------------

namespace schema {
namespace {

constexpr Member IndoorPage() {
  Member data = TableMember("data", kPageRows, kRequired);
  data.read_when_zero = "errNo";
  return data;
}
constexpr Member kIndoorMembers[] = {
    MakeMember("errNo", Json::kAny),  // unreadable: an unknown error, unreported
    MakeMember("Msg", Json::kAny),
    IndoorPage(),
};
constexpr Key kIndoorKeys[] = {
    ScalarKey(keys::kErrNo, Value::kInt, 0,
              "errNo: the client's error code: 11 for status 5; for status 1, 601 when \"Msg\" names \"bid\", "
              "else 602 when it names \"floor\"; 603 for any other status or none",
              "when the status is not 0 (for status 1, only when \"Msg\" names \"bid\" or \"floor\")"),
    RowsKeys(kPageRows, "data"),
};
constexpr const char* kIndoorRefusals[] = {
    "a root that is not an object, or a status of 0 without a \"data\" object; nothing is stored",
};

}  // namespace

const OperationSchema kParsePoiIndoorRst =
    Operation("The indoor search answer: a page of places inside a building, or the client's error code.",
              ObjectMember(nullptr, kIndoorMembers), kIndoorKeys, kIndoorRefusals);
const OperationSchema kGetIndoorPoiContentFromJson = TableRecord("One indoor POI record.", IndoorPoiTable);

}  // namespace schema

int CPoiJsonObjParser::ParsePoiIndoorRst(cJSON* root, CVBundle& out) {
  static const FieldTable page_table(kPageRows);
  if (!RequireRootObject(root)) return 0;
  int status = -1;
  CJsonObjParser::GetJsonItem(root, "errNo", status);
  if (status != kServiceOk) {
    if (diag::Active()) ReportUnreadPage(root, status);
    int error = kErrorUnknown;
    if (status == kServiceStatus5) {
      error = kErrorOfStatus5;
    } else if (status == kServiceBadParameter) {
      error = BadParameterError(root);
    }
    if (error != 0) out.SetInt(kErrNoKey, error);
    return 1;
  }
  cJSON* data = RequireObject(root, "data");
  if (data == nullptr) return 0;
  page_table.Read(data, out);
  return 1;
}

int CPoiJsonObjParser::GetIndoorPoiContentFromJson(cJSON* node, CVBundle& out) {
  return IndoorPoiTable().ReadRecord(node, out);
}

}  // namespace _quarn_framework
