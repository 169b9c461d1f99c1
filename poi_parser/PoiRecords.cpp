// The point-of-interest records shared by the search answers: the two hint
// records (psrs and suggested queries), the show record, the detail record
// and the POI record that holds the last two.
#include <cstddef>
#include <utility>

#include "poi_parser/OperationSchemas.h"
#include "poi_parser/ParserSupport.h"
#include "poi_parser/PoiJsonObjParser.h"

namespace _quarn_framework {

using namespace internal;

namespace {

// The telephone buffer of a POI record: a longer "tel" is cut at the last
// whole UTF-8 character that fits in kTelBufferSize - 1 bytes.
constexpr int kTelBufferSize = 80;

const CVString kNumKey = MakeKey(keys::kNum);
const CVString kResultKey = MakeKey(keys::kResult);
const CVString kSrcNameKey = MakeKey(keys::kSrcName);

// ---- Show record -------------------------------------------------------------

constexpr FieldRow kShowRows[] = {
    IntField("address", keys::kAddress),
    IntField("image", keys::kImage),
    IntField("name", keys::kName),
    IntField("icon", keys::kIcon),
    IntField("distance", keys::kDistance),
    IntField("overall_rating", keys::kOverallRating),
    IntField("price", keys::kPrice),
    IntField("ep_char", keys::kEpChar),
    IntField("ec_reason", keys::kEcReason),
    IntField("phone_button", keys::kPhoneButton),
    IntField("map_button", keys::kMapButton),
    IntField("book_info", keys::kBookInfo),
};

const FieldTable& ShowTable() {
  static const FieldTable table(kShowRows);
  return table;
}

// ---- Detail record -------------------------------------------------------------

// "premium_info" and "groupon_info" are read flat into the detail record.
constexpr FieldRow kPremiumRows[] = {
    StringField("discount_content", keys::kDiscountContent),
    StringField("discount_dl", keys::kDiscountDl),
    StringField("discount_id", keys::kDiscountId),
    StringField("name", keys::kName),
};

const FieldTable& PremiumTable() {
  static const FieldTable table(kPremiumRows);
  return table;
}

constexpr FieldRow kGrouponRows[] = {
    StringField("groupon_num", keys::kGrouponNum),
    StringField("groupon_price", keys::kGrouponPrice),
    StringField("groupon_title", keys::kGrouponTitle),
    StringField("groupon_image", keys::kGrouponImage),
    StringField("regular_price", keys::kRegularPrice),
    StringField("groupon_url_mobile", keys::kGrouponUrlMobile),
};

const FieldTable& GrouponTable() {
  static const FieldTable table(kGrouponRows);
  return table;
}

constexpr FieldRow kOrilEntryRows[] = {
    StringField("oril_price", keys::kOrilPrice),
    StringField("oril_type", keys::kOrilType),
};

const FieldTable& OrilEntryTable() {
  static const FieldTable table(kOrilEntryRows);
  return table;
}

// "oril_info" holds only the list "oril_detail", stored in the detail record.
constexpr FieldRow kOrilInfoRows[] = {
    ListField("oril_detail", keys::kOrilDetail, OrilEntryTable),
};

const FieldTable& OrilInfoTable() {
  static const FieldTable table(kOrilInfoRows);
  return table;
}

// A contact of the booking record ("tel" or "web").
constexpr FieldRow kContactRows[] = {
    StringField("title", keys::kTitle),
    StringField("content", keys::kContent),
};

const FieldTable& ContactTable() {
  static const FieldTable table(kContactRows);
  return table;
}

constexpr FieldRow kBookingRows[] = {
    RecordField("tel", keys::kTel, ContactTable),
    RecordField("web", keys::kWeb, ContactTable),
};

const FieldTable& BookingTable() {
  static const FieldTable table(kBookingRows);
  return table;
}

// Integers as text start at 0, except "movie_film_count" (-1), so an absent
// member is stored as "0" (or "-1"). The booking record is stored whenever
// "book_info" is present; it is empty unless "book_info" is an object.
constexpr FieldRow kDetailRows[] = {
    StringArrayField("flag", keys::kFlag),
    TextIfNotEmptyField("overall_rating", keys::kOverallRating),
    TextIfNotEmptyField("image", keys::kImage),
    TextIfNotEmptyField("price", keys::kPrice),
    TextIfNotEmptyField("price_text", keys::kPriceText),
    TextIfNotEmptyField("tag", keys::kTag),
    TextIfNotEmptyField("ota_price", keys::kOtaPrice),
    TextIfNotEmptyField("vesk_realtime_price_flag", keys::kVeskRealtimePriceFlag),
    TextIfNotEmptyField("vesk_realtime_price", keys::kVeskRealtimePrice),
    TextIfNotEmptyField("show_info", keys::kShowInfo),
    IntAsTextField("premium_flag", keys::kPremiumFlag, 0),
    IntAsTextField("discount_total", keys::kDiscountTotal, 0),
    IntAsTextField("groupon_total", keys::kGrouponTotal, 0),
    FlatField("premium_info", PremiumTable),
    TextIfNotEmptyField("comment_num", keys::kCommentNum),
    IntAsTextField("movie_flag", keys::kMovieFlag, 0),
    IntAsTextField("movie_film_count", keys::kMovieFilmCount, -1),
    IntAsTextField("groupon_flag", keys::kGrouponFlag, 0),
    FlatField("groupon_info", GrouponTable),
    FlatField("oril_info", OrilInfoTable),
    TextIfNotEmptyField("wap_bookable", keys::kWapBookable),
    RecordField("book_info", keys::kBookInfo, BookingTable, Keep::kPresent),
};

const FieldTable& DetailTable() {
  static const FieldTable table(kDetailRows);
  return table;
}

// ---- POI record --------------------------------------------------------------

// Irregular: "tel" through the telephone buffer, normalised; the bytes are
// widened, not decoded.
void ReadTel(cJSON* member, const CVString& key, CVBundle& out) {
  char buffer[kTelBufferSize];
  if (!JsonReadTextToBuffer(member, buffer, kTelBufferSize)) {
    if (member != nullptr) diag::SkipMember(member, "text");
    return;
  }
  CJsonObjParser::ProcessTelNum(buffer);
  out.SetString(key, CVString(buffer));
}

// The place bundle: "src_name", then the detail record's keys.
constexpr schema::Key kPlaceKeys[] = {
    schema::ScalarKey(keys::kSrcName, schema::Value::kString, schema::kAlways, "ext.src_name"),
    schema::RecordKeys(schema::kGetPoiDetailFromJson, "ext.detail_info"),
};
constexpr schema::Key kExtKeys[] = {
    schema::NestedKey(keys::kPlace, schema::Value::kBundle, kPlaceKeys, 0, "ext",
                      "when \"ext\".\"src_name\" reads as non-empty text"),
};
constexpr schema::Member kExtMembers[] = {
    schema::MakeMember("src_name", schema::Json::kNonEmptyText, schema::kRequired),
    schema::RecordMember("detail_info", schema::kGetPoiDetailFromJson),
};

// Irregular: the place bundle holds "ext"."src_name" first, then the detail
// record of "ext"."detail_info" in the same bundle; only for a non-empty
// "src_name".
void ReadPlace(cJSON* ext, const CVString& key, CVBundle& out) {
  if (!UsableObject(ext)) return;
  CVString src_name;
  CJsonObjParser::GetJsonItem(ext, "src_name", src_name);
  if (src_name.IsEmpty()) {
    if (diag::Active()) {
      diag::SkipRequiredMember(ext, "src_name", FindMember(ext, "src_name"), "non-empty text");
    }
    return;
  }
  CVBundle place;
  cJSON* detail = FindMember(ext, "detail_info");
  if (IsJsonObject(detail)) {
    // One block for "src_name" and the detail record.
    DetailTable().ReadAfter(detail, kSrcNameKey, std::move(src_name), place);
  } else {
    place.SetString(kSrcNameKey, std::move(src_name));
    if (detail != nullptr) diag::SkipMember(detail, "an object");
  }
  out.SetBundle(key, std::move(place));
}

constexpr schema::Key kTelKeys[] = {
    schema::ScalarKey(keys::kTel, schema::Value::kString, 0,
                      "tel: cut to 79 bytes at a whole character, separators normalised"),
};
constexpr CustomReader kTelReader = {ReadTel, schema::MakeMember(nullptr, schema::Json::kText), kTelKeys};
constexpr CustomReader kExtReader = {ReadPlace, schema::ObjectMember(nullptr, kExtMembers), kExtKeys};

// "poiType" is stored as the client's type code, 0 when unreadable.

constexpr FieldRow kPoiRows[] = {
    StringField("geo", keys::kGeo),
    StringField("name", keys::kName),
    StringField("uid", keys::kUid),
    IntField("acc_flag", keys::kAccFlag),
    StringField("addr", keys::kAddr),
    BoolField("detail", keys::kDetail),
    CustomField("tel", keys::kTel, kTelReader),
    IntAlwaysField("poiType", keys::kType, 0, CJsonObjParser::int2PoiType),
    StringField("indoor_pano", keys::kIndoorPano),
    IntField("pano", keys::kPano),
    StringField("aoi", keys::kAoi),
    RecordField("show", keys::kShow, ShowTable),
    CustomField("ext", keys::kPlace, kExtReader),
    IntField("dis", keys::kDistance),
    StringField("rp_des", keys::kRpDes),
    StringField("sep_char", keys::kSepChar),
    StringArrayField("rec_reason", keys::kRecReason),
};

}  // namespace

// ---- What the operations read and store ----------------------------------------

namespace schema {
namespace {

constexpr Member kSEResultElement = MakeMember(nullptr, Json::kString);
constexpr Member kPsrsMembers[] = {
    MakeMember("SENum", Json::kInt),
    ArrayMember("SEResult", kSEResultElement, kRequired),
};
constexpr Key kPsrsKeys[] = {
    ScalarKey(keys::kNum, Value::kInt, 0, "SENum"),
    ScalarKey(keys::kResult, Value::kStringArray, 0, "SEResult: its strings, bytes widened",
              "when an element is a string"),
};
constexpr const char* kPsrsRefusals[] = {
    "a null or non-object node; nothing is stored",
    "a \"SEResult\" that is not an array; \"num\" may be stored by then",
};

constexpr Member kQueryMembers[] = {MakeMember("query", Json::kString, kRequired)};
constexpr Member kQueryElement = ObjectMember(nullptr, kQueryMembers);
constexpr Key kSuggestKeys[] = {
    ScalarKey(keys::kNum, Value::kInt, kAlways, "the array's length"),
    ScalarKey(keys::kResult, Value::kStringArray, 0, "[].query: by the text rule",
              "when an element is an object with a string \"query\""),
};
constexpr const char* kSuggestRefusals[] = {"a null or non-array node; nothing is stored"};

}  // namespace

const OperationSchema kGetPsrsFromJson =
    Operation("The psrs hint record.", ObjectMember(nullptr, kPsrsMembers), kPsrsKeys, kPsrsRefusals);
const OperationSchema kGetSuggestQueryFromJson =
    Operation("The suggested-query record of an array of queries.", ArrayMember(nullptr, kQueryElement),
              kSuggestKeys, kSuggestRefusals);
const OperationSchema kGetPoiShowFromJson = TableRecord("The show record of a POI: display integers.", ShowTable);
const OperationSchema kGetPoiDetailFromJson = TableRecord("The detail record of a POI.", DetailTable);
const OperationSchema kGetPoiContentFromJson = TableRecord("One POI record.", kPoiRows);

}  // namespace schema

// ---- Hint records --------------------------------------------------------------

int CPoiJsonObjParser::GetPsrsFromJson(cJSON* node, CVBundle& out) {
  if (!IsJsonObject(node)) return 0;
  out.Reserve(out.GetCount() + 2);
  field::StoreInt(FindMember(node, "SENum"), kNumKey, out);
  cJSON* results = FindMember(node, "SEResult");
  if (!IsJsonArray(results)) {
    diag::SkipRequiredMember(node, "SEResult", results, "an array");
    return 0;
  }
  StringArray texts;
  for (cJSON* element : JsonElements(results)) {
    if (!IsJsonString(element)) {
      diag::SkipElement(element, "a string");
      continue;
    }
    CVString text(JsonStringBytes(element));
    AppendByMove(texts, text);
  }
  if (texts.m_nSize >= 1) out.SetStringArray(kResultKey, std::move(texts));
  return 1;
}

int CPoiJsonObjParser::GetSuggestQueryFromJson(cJSON* node, CVBundle& out) {
  if (!IsJsonArray(node)) return 0;
  out.Reserve(out.GetCount() + 2);
  out.SetInt(kNumKey, ArraySize(node));
  StringArray texts;
  for (cJSON* element : JsonElements(node)) {
    if (!IsJsonObject(element)) {
      diag::SkipElement(element, "an object");
      continue;
    }
    cJSON* query = FindMember(element, "query");
    if (!IsJsonString(query)) {
      diag::SkipRequiredMember(element, "query", query, "a string");
      continue;
    }
    CVString text = CJsonObjParser::ConvertTextByRule(JsonStringBytes(query));
    AppendByMove(texts, text);
  }
  if (texts.m_nSize >= 1) out.SetStringArray(kResultKey, std::move(texts));
  return 1;
}

// ---- Show, detail and POI records -------------------------------------------------

int CPoiJsonObjParser::GetPoiShowFromJson(cJSON* node, CVBundle& out) {
  return ShowTable().ReadRecord(node, out);
}

int CPoiJsonObjParser::GetPoiDetailFromJson(cJSON* node, CVBundle& out) {
  return DetailTable().ReadRecord(node, out);
}

int CPoiJsonObjParser::GetPoiContentFromJson(cJSON* node, CVBundle& out) {
  static const FieldTable table(kPoiRows);
  return table.ReadRecord(node, out);
}

}  // namespace _quarn_framework
