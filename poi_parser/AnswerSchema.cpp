#include "poi_parser/AnswerSchema.h"

#include <cjson/cJSON.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "foundation/BundleJsonWriter.h"
#include "json_readers/FieldSchema.h"

namespace _quarn_framework {

using namespace schema;

namespace {

// ---- The descriptions unfolded -----------------------------------------------------
// Tables, custom rows and operations' own lists become two trees: the
// members read and the keys stored. Records read by a record operation stay
// references by the operation's name (they become "$defs").

const char* OperationName(const OperationSchema* schema) {
  for (const ParserOperation& operation : ParserOperations()) {
    if (operation.schema == schema) return operation.name;
  }
  return "?";
}

// The kind whose operation is `schema`'s, or null.
const AnswerKind* KindOf(const OperationSchema* schema) {
  for (const AnswerKind& kind : AnswerKinds()) {
    if (kind.operation->schema == schema) return &kind;
  }
  return nullptr;
}

const FieldRow* RowsOf(const Rows& rows, int* count) {
  if (rows.table != nullptr) {
    const FieldTable& table = rows.table();
    *count = table.RowCount();
    return table.Rows();
  }
  *count = rows.count;
  return rows.rows;
}

struct MemberNode {
  std::string name;  // empty for an element
  Json json = Json::kAny;
  bool required = false;
  bool or_anything = false;  // an object, or anything else read as empty
  std::vector<MemberNode> members;  // object: members; array: first elements; any-of: alternatives
  std::vector<MemberNode> element;  // array: 0 or 1
  const OperationSchema* record = nullptr;
  std::string gate;  // a sibling that must read as 0
  std::string read_only_when;
};

void AddRowMembers(const Rows& rows, std::vector<MemberNode>& out);

MemberNode Unfold(const Member& member, const char* name) {
  MemberNode node;
  node.name = name != nullptr ? name : "";
  node.json = member.json;
  node.required = (member.flags & kRequired) != 0;
  node.or_anything = (member.flags & kOrAnything) != 0;
  node.record = member.record;
  if (member.read_when_zero != nullptr) node.gate = member.read_when_zero;
  if (member.read_only_when != nullptr) node.read_only_when = member.read_only_when;
  for (const Member& m : member.members) {
    if (m.json == Json::kRows) {
      AddRowMembers(m.rows, node.members);
    } else {
      node.members.push_back(Unfold(m, m.name));
    }
  }
  if (member.json == Json::kObject && member.record == nullptr) AddRowMembers(member.rows, node.members);
  if (member.element != nullptr) node.element.push_back(Unfold(*member.element, nullptr));
  return node;
}

MemberNode ScalarMember(const char* name, Json json) {
  MemberNode node;
  node.name = name;
  node.json = json;
  return node;
}

MemberNode TableObject(const char* name, TableFunction table) {
  MemberNode node = ScalarMember(name != nullptr ? name : "", Json::kObject);
  AddRowMembers(Rows(table), node.members);
  return node;
}

void AddRowMembers(const Rows& rows, std::vector<MemberNode>& out) {
  int count = 0;
  const FieldRow* row = RowsOf(rows, &count);
  for (int i = 0; i < count; ++i, ++row) {
    switch (row->reader) {
      case FieldReader::kInt:
      case FieldReader::kIntAsText:
      case FieldReader::kIntAlways:
        out.push_back(ScalarMember(row->member, Json::kInt));
        break;
      case FieldReader::kBool:
        out.push_back(ScalarMember(row->member, Json::kBool));
        break;
      case FieldReader::kString:
      case FieldReader::kTextIfNotEmpty:
        out.push_back(ScalarMember(row->member, Json::kText));
        break;
      case FieldReader::kStringArray: {
        MemberNode node = ScalarMember(row->member, Json::kArray);
        node.element.push_back(ScalarMember("", Json::kString));
        out.push_back(std::move(node));
        break;
      }
      case FieldReader::kRecord:
      case FieldReader::kFlat:
        out.push_back(TableObject(row->member, row->table));
        break;
      case FieldReader::kList: {
        MemberNode node = ScalarMember(row->member, Json::kArray);
        node.element.push_back(TableObject(nullptr, row->table));
        out.push_back(std::move(node));
        break;
      }
      case FieldReader::kCustom:
        out.push_back(Unfold(row->custom->member, row->member));
        break;
    }
  }
}

struct KeyNode {
  std::string key;
  Value value = Value::kInt;
  bool always = false;
  std::string from;
  std::string when;
  std::vector<KeyNode> keys;  // a nested bundle's
  const OperationSchema* record = nullptr;
};

std::string Join(const std::string& prefix, const char* path) {
  if (path == nullptr || *path == 0) return prefix;
  if (prefix.empty()) return path;
  return prefix + "." + path;
}

// Adds `node`; a key stored by two steps is always stored when either step
// always stores it.
void AddKey(KeyNode node, std::vector<KeyNode>& out) {
  for (KeyNode& existing : out) {
    if (existing.key == node.key) {
      existing.always = existing.always || node.always;
      return;
    }
  }
  out.push_back(std::move(node));
}

void AddKeys(List<Key> keys, const std::string& prefix, bool always, std::vector<KeyNode>& out);
void AddOperationKeys(const OperationSchema& op, const std::string& prefix, bool always, std::vector<KeyNode>& out);

// When a key that its table always stores is stored, read from `prefix`
// only in some cases.
std::string WhenRead(const std::string& prefix) {
  return prefix.empty() ? "whenever its record is read" : "whenever \"" + prefix + "\" is read as an object";
}

void AddRowKeys(const Rows& rows, const std::string& prefix, bool always, std::vector<KeyNode>& out) {
  int count = 0;
  const FieldRow* row = RowsOf(rows, &count);
  for (int i = 0; i < count; ++i, ++row) {
    KeyNode node;
    node.key = row->key;
    node.from = Join(prefix, row->member);
    switch (row->reader) {
      case FieldReader::kInt:
        node.value = Value::kInt;
        break;
      case FieldReader::kBool:
        node.value = Value::kBool;
        break;
      case FieldReader::kString:
        node.value = Value::kString;
        break;
      case FieldReader::kStringArray:
        node.value = Value::kStringArray;
        node.from += ": its string elements";
        node.when = "when it is an array";
        break;
      case FieldReader::kTextIfNotEmpty:
        node.value = Value::kString;
        node.when = "when it reads as non-empty text";
        break;
      case FieldReader::kIntAsText:
        node.value = Value::kString;
        node.always = always;
        if (!always) node.when = WhenRead(prefix);
        node.from += ": an integer as decimal text, " + std::to_string(row->start) + " when unreadable";
        break;
      case FieldReader::kIntAlways:
        node.value = Value::kInt;
        node.always = always;
        if (!always) node.when = WhenRead(prefix);
        node.from += ": " + std::to_string(row->start) + " when unreadable";
        if (row->convert != nullptr) node.from += ", then mapped to the client's code";
        break;
      case FieldReader::kRecord:
        node.value = Value::kBundle;
        node.when = row->keep == Keep::kPresent ? "whenever it is present (empty unless an object)"
                                                : "when it is an object";
        AddRowKeys(Rows(row->table), "", true, node.keys);
        break;
      case FieldReader::kFlat:
        AddRowKeys(Rows(row->table), node.from, false, out);
        continue;
      case FieldReader::kList:
        node.value = Value::kBundleArray;
        node.when = row->keep == Keep::kPresent ? "when it is a non-empty array"
                                                : "when an element is an object";
        AddRowKeys(Rows(row->table), "", true, node.keys);
        break;
      case FieldReader::kCustom:
        AddKeys(row->custom->keys, prefix, always, out);
        continue;
    }
    AddKey(std::move(node), out);
  }
}

void AddKeys(List<Key> keys, const std::string& prefix, bool always, std::vector<KeyNode>& out) {
  for (const Key& key : keys) {
    const bool key_always = always && (key.flags & kAlways) != 0;
    if (key.value == Value::kRows) {
      const std::string from = Join(prefix, key.from);
      if (key.record != nullptr) {
        AddOperationKeys(*key.record, from, key_always, out);
      } else {
        AddRowKeys(key.rows, from, key_always, out);
      }
      continue;
    }
    KeyNode node;
    node.key = key.key;
    node.value = key.value;
    node.always = key_always;
    node.from = Join(prefix, key.from);
    if (key.when != nullptr) {
      node.when = key.when;
    } else if ((key.flags & kAlways) != 0 && !always) {
      node.when = WhenRead(prefix);
    }
    node.record = key.record;
    if (key.value == Value::kBundle || key.value == Value::kBundleArray) {
      if (key.rows.rows != nullptr || key.rows.table != nullptr) AddRowKeys(key.rows, "", true, node.keys);
      AddKeys(key.keys, "", true, node.keys);
    }
    AddKey(std::move(node), out);
  }
}

void AddOperationKeys(const OperationSchema& op, const std::string& prefix, bool always, std::vector<KeyNode>& out) {
  if (op.keys.count == 0) {
    AddRowKeys(op.node.rows, prefix, always, out);
  } else {
    AddKeys(op.keys, prefix, always, out);
  }
}

std::vector<KeyNode> KeysOf(const OperationSchema& op) {
  std::vector<KeyNode> keys;
  AddOperationKeys(op, "", true, keys);
  return keys;
}

// ---- JSON Schema ------------------------------------------------------------------

using JsonPtr = std::unique_ptr<cJSON, void (*)(cJSON*)>;

cJSON* Object() { return cJSON_CreateObject(); }
cJSON* TypeSchema(const char* type) {
  cJSON* schema = Object();
  cJSON_AddStringToObject(schema, "type", type);
  return schema;
}
cJSON* TypesSchema(std::initializer_list<const char*> types) {
  cJSON* schema = Object();
  cJSON* list = cJSON_AddArrayToObject(schema, "type");
  for (const char* type : types) cJSON_AddItemToArray(list, cJSON_CreateString(type));
  return schema;
}
cJSON* Ref(const std::string& def) {
  cJSON* schema = Object();
  cJSON_AddStringToObject(schema, "$ref", ("#/$defs/" + def).c_str());
  return schema;
}
cJSON* Strings(const std::vector<std::string>& texts) {
  cJSON* array = cJSON_CreateArray();
  for (const std::string& text : texts) cJSON_AddItemToArray(array, cJSON_CreateString(text.c_str()));
  return array;
}
cJSON* AnyOf(std::initializer_list<cJSON*> schemas) {
  cJSON* schema = Object();
  cJSON* list = cJSON_AddArrayToObject(schema, "anyOf");
  for (cJSON* s : schemas) cJSON_AddItemToArray(list, s);
  return schema;
}
cJSON* Pattern(const char* pattern) {
  cJSON* schema = TypeSchema("string");
  cJSON_AddStringToObject(schema, "pattern", pattern);
  return schema;
}

// ASCII white space as the integer readers skip it.
#define POIPARSER_SPACE "[ \\t\\n\\v\\f\\r]*"

// The JSON each scalar form takes, as the readers in json_readers/JsonAccess.h
// read it. A string's integer may be out of int32's range for the pattern,
// not for the reader: the schemas may accept more than the readers, never less.
struct ScalarForm {
  Json json;
  const char* def;
  const char* description;
  cJSON* (*make)();
};

cJSON* IntForm() {
  return AnyOf({TypesSchema({"number", "boolean"}), Pattern("^" POIPARSER_SPACE "[+-]?[0-9]+" POIPARSER_SPACE "$")});
}
cJSON* IntZeroForm() {
  cJSON* number = TypeSchema("number");
  cJSON_AddNumberToObject(number, "exclusiveMinimum", -1);
  cJSON_AddNumberToObject(number, "exclusiveMaximum", 1);
  cJSON* no = Object();
  cJSON_AddFalseToObject(no, "const");
  return AnyOf({number, no, Pattern("^" POIPARSER_SPACE "[+-]?0+" POIPARSER_SPACE "$")});
}
cJSON* BoolForm() {
  cJSON* words = Object();
  cJSON_AddItemToObject(words, "enum", Strings({"true", "false", "1", "0"}));
  return AnyOf({TypesSchema({"boolean", "number"}), words});
}
cJSON* TextForm() { return TypesSchema({"string", "number", "boolean"}); }
cJSON* NonEmptyTextForm() {
  cJSON* text = TypeSchema("string");
  cJSON_AddNumberToObject(text, "minLength", 1);
  return AnyOf({text, TypesSchema({"number", "boolean"})});
}
cJSON* LeadingIntForm() { return Pattern("^" POIPARSER_SPACE "[+-]?[0-9]"); }
cJSON* PositionForm() { return Pattern(","); }

const ScalarForm kForms[] = {
    {Json::kInt, "int", "an integer: a number (truncated), true/false, or a string holding a decimal integer",
     IntForm},
    {Json::kIntZero, "status", "an integer form that reads as 0", IntZeroForm},
    {Json::kBool, "bool", "a truth value: true/false, a number (nonzero is true), or \"true\", \"false\", \"1\", \"0\"",
     BoolForm},
    {Json::kText, "text", "text: a string, or a number or true/false as text", TextForm},
    {Json::kNonEmptyText, "non-empty-text", "text that is not empty", NonEmptyTextForm},
    {Json::kLeadingInt, "leading-int", "a string that starts with a decimal number", LeadingIntForm},
    {Json::kPosition, "position", "a string \"x,y\"", PositionForm},
};

const ScalarForm* FormOf(Json json) {
  for (const ScalarForm& form : kForms) {
    if (form.json == json) return &form;
  }
  return nullptr;
}

const ScalarForm* FormNamed(const std::string& def) {
  for (const ScalarForm& form : kForms) {
    if (def == form.def) return &form;
  }
  return nullptr;
}

// The "$defs" a schema needs, in the order first asked for.
class Defs {
 public:
  std::string Need(const std::string& name, const OperationSchema* record) {
    for (const auto& def : m_defs) {
      if (def.first == name) return name;
    }
    m_defs.emplace_back(name, record);
    return name;
  }
  size_t Size() const { return m_defs.size(); }
  const std::pair<std::string, const OperationSchema*>& At(size_t i) const { return m_defs[i]; }

 private:
  std::vector<std::pair<std::string, const OperationSchema*>> m_defs;
};

cJSON* MemberSchema(const MemberNode& node, Defs& defs);

void AddObjectMembers(const std::vector<MemberNode>& members, cJSON* schema, Defs& defs) {
  if (members.empty()) return;
  cJSON* properties = cJSON_AddObjectToObject(schema, "properties");
  std::vector<std::string> required;
  cJSON* gates = nullptr;
  for (const MemberNode& member : members) {
    if (cJSON_GetObjectItemCaseSensitive(properties, member.name.c_str()) != nullptr) continue;
    cJSON_AddItemToObject(properties, member.name.c_str(), MemberSchema(member, defs));
    if (!member.gate.empty()) {
      // Read only while the gate reads as 0 (and then as required says);
      // otherwise a present member is skipped.
      cJSON* rule = Object();
      cJSON* when = cJSON_AddObjectToObject(rule, "if");
      cJSON* gate_properties = cJSON_AddObjectToObject(when, "properties");
      cJSON_AddItemToObject(gate_properties, member.gate.c_str(), Ref(defs.Need("status", nullptr)));
      cJSON_AddItemToObject(when, "required", Strings({member.gate}));
      cJSON* then = cJSON_AddObjectToObject(rule, "then");
      if (member.required) cJSON_AddItemToObject(then, "required", Strings({member.name}));
      cJSON* otherwise = cJSON_AddObjectToObject(rule, "else");
      cJSON* absent = cJSON_AddObjectToObject(otherwise, "not");
      cJSON_AddItemToObject(absent, "required", Strings({member.name}));
      if (gates == nullptr) gates = cJSON_CreateArray();
      cJSON_AddItemToArray(gates, rule);
    } else if (member.required) {
      required.push_back(member.name);
    }
  }
  if (!required.empty()) cJSON_AddItemToObject(schema, "required", Strings(required));
  if (gates != nullptr) cJSON_AddItemToObject(schema, "allOf", gates);
}

cJSON* MemberSchema(const MemberNode& node, Defs& defs) {
  if (!node.read_only_when.empty()) {
    // What is not always read cannot be refused by a schema of the answer.
    cJSON* schema = Object();
    cJSON_AddStringToObject(schema, "description", ("read only " + node.read_only_when).c_str());
    return schema;
  }
  if (node.record != nullptr) {
    cJSON* schema = Ref(defs.Need(OperationName(node.record), node.record));
    AddObjectMembers(node.members, schema, defs);
    return schema;
  }
  if (const ScalarForm* form = FormOf(node.json)) return Ref(defs.Need(form->def, nullptr));
  switch (node.json) {
    case Json::kString:
      return TypeSchema("string");
    case Json::kObject: {
      cJSON* schema = node.or_anything ? Object() : TypeSchema("object");
      AddObjectMembers(node.members, schema, defs);
      return schema;
    }
    case Json::kArray: {
      cJSON* schema = TypeSchema("array");
      if (!node.members.empty()) {
        cJSON* first = cJSON_AddArrayToObject(schema, "prefixItems");
        for (const MemberNode& item : node.members) cJSON_AddItemToArray(first, MemberSchema(item, defs));
        cJSON_AddNumberToObject(schema, "minItems", static_cast<double>(node.members.size()));
      }
      if (!node.element.empty()) cJSON_AddItemToObject(schema, "items", MemberSchema(node.element[0], defs));
      return schema;
    }
    case Json::kAnyOf: {
      cJSON* schema = Object();
      cJSON* list = cJSON_AddArrayToObject(schema, "anyOf");
      for (const MemberNode& alternative : node.members) cJSON_AddItemToArray(list, MemberSchema(alternative, defs));
      return schema;
    }
    default:
      return Object();  // anything
  }
}

// The "$defs" of `defs`, each built once (building one may ask for more).
void AddDefs(cJSON* schema, Defs& defs, cJSON* (*build)(const OperationSchema&, Defs&)) {
  if (defs.Size() == 0) return;
  cJSON* list = cJSON_AddObjectToObject(schema, "$defs");
  for (size_t i = 0; i < defs.Size(); ++i) {
    const std::string name = defs.At(i).first;
    const OperationSchema* record = defs.At(i).second;
    cJSON* def;
    const ScalarForm* form = FormNamed(name);
    if (record != nullptr) {
      def = build(*record, defs);
    } else if (form != nullptr) {
      def = form->make();
      cJSON_AddStringToObject(def, "description", form->description);
    } else {
      continue;  // added by the caller
    }
    cJSON_AddItemToObject(list, name.c_str(), def);
  }
}

cJSON* RecordAnswerSchema(const OperationSchema& op, Defs& defs) {
  cJSON* schema = MemberSchema(Unfold(op.node, nullptr), defs);
  cJSON_AddStringToObject(schema, "description", op.summary);
  return schema;
}

void MoveMembers(cJSON* from, cJSON* to) {
  while (cJSON* item = from->child) {
    cJSON_DetachItemViaPointer(from, item);
    cJSON_AddItemToObject(to, item->string, item);
  }
  cJSON_Delete(from);
}

cJSON* Header(const std::string& title, const char* description) {
  cJSON* schema = Object();
  cJSON_AddStringToObject(schema, "$schema", "https://json-schema.org/draft/2020-12/schema");
  cJSON_AddStringToObject(schema, "title", title.c_str());
  cJSON_AddStringToObject(schema, "description", description);
  return schema;
}

cJSON* AnswerSchema(const AnswerKind& kind) {
  const OperationSchema& op = *kind.operation->schema;
  cJSON* schema = Header(std::string("The ") + kind.name + " answer read by " + kind.operation->name, op.summary);
  Defs defs;
  if (op.forms[0] != nullptr) {
    cJSON* forms = cJSON_AddArrayToObject(schema, "anyOf");
    for (const OperationSchema* form : op.forms) cJSON_AddItemToArray(forms, Ref(defs.Need(OperationName(form), form)));
  } else {
    MoveMembers(MemberSchema(Unfold(op.node, nullptr), defs), schema);
  }
  AddDefs(schema, defs, RecordAnswerSchema);
  return schema;
}

// ---- Bundle schema -----------------------------------------------------------------

const char* ValueName(Value value) {
  switch (value) {
    case Value::kInt:
      return "integer";
    case Value::kBool:
      return "boolean";
    case Value::kDouble:
      return "number (null when not finite)";
    case Value::kString:
      return "string";
    case Value::kStringArray:
      return "array of strings";
    case Value::kBundle:
      return "object";
    case Value::kBundleArray:
      return "array of objects";
    default:
      return "?";
  }
}

cJSON* KeysSchema(const std::vector<KeyNode>& keys, bool with_required, Defs& defs);

cJSON* KeySchema(const KeyNode& key, Defs& defs) {
  switch (key.value) {
    case Value::kInt:
      return TypeSchema("integer");
    case Value::kBool:
      return TypeSchema("boolean");
    case Value::kDouble:
      return TypesSchema({"number", "null"});
    case Value::kString:
      return TypeSchema("string");
    case Value::kStringArray: {
      cJSON* schema = TypeSchema("array");
      cJSON_AddItemToObject(schema, "items", TypeSchema("string"));
      return schema;
    }
    default: {
      cJSON* record = key.record != nullptr ? Ref(defs.Need(OperationName(key.record), key.record))
                                            : KeysSchema(key.keys, true, defs);
      if (key.value == Value::kBundle) return record;
      cJSON* schema = TypeSchema("array");
      cJSON_AddItemToObject(schema, "items", record);
      return schema;
    }
  }
}

std::vector<std::string> RequiredKeys(const std::vector<KeyNode>& keys) {
  std::vector<std::string> required;
  for (const KeyNode& key : keys) {
    if (key.always) required.push_back(key.key);
  }
  return required;
}

cJSON* KeysSchema(const std::vector<KeyNode>& keys, bool with_required, Defs& defs) {
  cJSON* schema = TypeSchema("object");
  cJSON* properties = cJSON_AddObjectToObject(schema, "properties");
  for (const KeyNode& key : keys) cJSON_AddItemToObject(properties, key.key.c_str(), KeySchema(key, defs));
  cJSON_AddFalseToObject(schema, "additionalProperties");
  const std::vector<std::string> required = RequiredKeys(keys);
  if (with_required && !required.empty()) cJSON_AddItemToObject(schema, "required", Strings(required));
  return schema;
}

cJSON* RecordBundleSchema(const OperationSchema& op, Defs& defs) {
  cJSON* schema = KeysSchema(KeysOf(op), true, defs);
  cJSON_AddStringToObject(schema, "description", op.summary);
  return schema;
}

cJSON* BundleSchema(const AnswerKind& kind) {
  const OperationSchema& op = *kind.operation->schema;
  cJSON* schema = Header(std::string("The bundle of the ") + kind.name + " answer (" + kind.operation->name + ")",
                         "The bundle as poiparse writes it. A refused answer's bundle holds a part of the keys: it "
                         "validates against #/$defs/keys.");
  Defs defs;
  cJSON* keys = nullptr;
  if (op.forms[0] != nullptr) {
    // One form or the other: "keys" is either form's keys.
    cJSON* forms = cJSON_AddArrayToObject(schema, "anyOf");
    keys = Object();
    cJSON* either = cJSON_AddArrayToObject(keys, "anyOf");
    std::vector<std::pair<std::string, cJSON*>> form_defs;
    for (const OperationSchema* form : op.forms) {
      const std::vector<KeyNode> form_keys = KeysOf(*form);
      const std::string name = std::string(OperationName(form)) + "-keys";
      form_defs.emplace_back(name, KeysSchema(form_keys, false, defs));
      cJSON* choice = Ref(name);
      const std::vector<std::string> required = RequiredKeys(form_keys);
      if (!required.empty()) cJSON_AddItemToObject(choice, "required", Strings(required));
      cJSON_AddItemToArray(forms, choice);
      cJSON_AddItemToArray(either, Ref(name));
    }
    AddDefs(schema, defs, RecordBundleSchema);
    cJSON* list = cJSON_GetObjectItemCaseSensitive(schema, "$defs");
    if (list == nullptr) list = cJSON_AddObjectToObject(schema, "$defs");
    cJSON_AddItemToObject(list, "keys", keys);
    for (auto& def : form_defs) cJSON_AddItemToObject(list, def.first.c_str(), def.second);
    return schema;
  }
  const std::vector<KeyNode> all = KeysOf(op);
  keys = KeysSchema(all, false, defs);
  cJSON_AddStringToObject(schema, "$ref", "#/$defs/keys");
  const std::vector<std::string> required = RequiredKeys(all);
  if (!required.empty()) cJSON_AddItemToObject(schema, "required", Strings(required));
  cJSON* list = cJSON_AddObjectToObject(schema, "$defs");
  cJSON_AddItemToObject(list, "keys", keys);
  cJSON_DetachItemViaPointer(schema, list);
  // The records after "keys", each built once.
  cJSON* records = Object();
  AddDefs(records, defs, RecordBundleSchema);
  if (cJSON* built = cJSON_GetObjectItemCaseSensitive(records, "$defs")) {
    MoveMembers(cJSON_DetachItemViaPointer(records, built), list);
  }
  cJSON_Delete(records);
  cJSON_AddItemToObject(schema, "$defs", list);
  return schema;
}

// ---- Writing ------------------------------------------------------------------------

void Write(const cJSON* node, _quarn_vi::CVJsonWriter& writer) {
  if (cJSON_IsObject(node)) {
    writer.BeginObject();
    for (const cJSON* item = node->child; item != nullptr; item = item->next) {
      writer.Key(item->string);
      Write(item, writer);
    }
    writer.EndObject();
  } else if (cJSON_IsArray(node)) {
    writer.BeginArray();
    for (const cJSON* item = node->child; item != nullptr; item = item->next) Write(item, writer);
    writer.EndArray();
  } else if (cJSON_IsString(node)) {
    writer.StringUtf8(node->valuestring);
  } else if (cJSON_IsBool(node)) {
    writer.Bool(cJSON_IsTrue(node));
  } else {
    writer.Int(static_cast<long long>(node->valuedouble));  // the schemas hold integers only
  }
}

// ---- The reference ------------------------------------------------------------------

std::string Code(const std::string& text) { return "`" + text + "`"; }

// The anchor of a kind's section.
std::string KindLink(const AnswerKind& kind) { return "[" + std::string(kind.name) + "](#" + kind.name + ")"; }

std::string JsonWords(const MemberNode& node) {
  if (node.record != nullptr) {
    const AnswerKind* kind = KindOf(node.record);
    return kind != nullptr ? "a " + KindLink(*kind) + " record" : "a record (below)";
  }
  if (const ScalarForm* form = FormOf(node.json)) return Code(form->def);
  switch (node.json) {
    case Json::kString:
      return "string";
    case Json::kObject:
      return "object";
    case Json::kArray:
      return "array";
    case Json::kAnyOf:
      return "one of";
    default:
      return "anything";
  }
}

void MemberLines(const std::vector<MemberNode>& members, const std::string& indent, std::string& out);

void MemberLine(const MemberNode& node, const std::string& label, const std::string& indent, std::string& out) {
  out += indent + "- " + label + ": " + JsonWords(node);
  if (node.required) out += ", required";
  if (node.or_anything) out += " (anything else reads as an empty object)";
  if (!node.read_only_when.empty()) out += ", read only " + node.read_only_when;
  if (!node.gate.empty()) out += ", read only when " + Code(node.gate) + " reads as 0 (skipped otherwise)";
  out += "\n";
  const std::string inner = indent + "  ";
  if (node.record != nullptr && KindOf(node.record) == nullptr) {
    MemberLines(Unfold(node.record->node, nullptr).members, inner, out);
  }
  if (node.json == Json::kAnyOf) {
    for (const MemberNode& alternative : node.members) MemberLine(alternative, "or", inner, out);
    return;
  }
  if (node.json == Json::kArray) {
    for (size_t i = 0; i < node.members.size(); ++i) {
      MemberLine(node.members[i], "element " + std::to_string(i), inner, out);
    }
    if (!node.element.empty()) MemberLine(node.element[0], "each element", inner, out);
    return;
  }
  MemberLines(node.members, inner, out);
}

void MemberLines(const std::vector<MemberNode>& members, const std::string& indent, std::string& out) {
  for (const MemberNode& member : members) MemberLine(member, Code(member.name), indent, out);
}

std::string TypeWords(const KeyNode& key) {
  std::string words = ValueName(key.value);
  if (key.record != nullptr) {
    const AnswerKind* kind = KindOf(key.record);
    words += kind != nullptr ? " (" + KindLink(*kind) + " record" + (key.value == Value::kBundleArray ? "s" : "") + ")"
                             : "";
  }
  return words;
}

// Markdown table cells hold no '|'.
std::string Cell(std::string text) {
  for (size_t at = text.find('|'); at != std::string::npos; at = text.find('|', at + 2)) text.replace(at, 1, "\\|");
  return text;
}

void KeyRows(const std::vector<KeyNode>& keys, const std::string& prefix, std::string& out) {
  for (const KeyNode& key : keys) {
    const std::string path = prefix + key.key;
    std::string when = key.always ? "always" : key.when.empty() ? "when it can be read" : key.when;
    out += "| " + Code(path) + " | " + Cell(TypeWords(key)) + " | " + Cell(when) + " | " + Cell(key.from) + " |\n";
    const std::string inner = path + (key.value == Value::kBundleArray ? "[]." : ".");
    if (key.record != nullptr && KindOf(key.record) == nullptr) {
      KeyRows(KeysOf(*key.record), inner, out);
    } else {
      KeyRows(key.keys, inner, out);
    }
  }
}

void OperationReference(const OperationSchema& op, std::string& out) {
  out += "Members read:\n\n";
  MemberNode node = Unfold(op.node, nullptr);
  if (node.or_anything) out += "(A node that is not an object reads as an empty object.)\n\n";
  if (node.json == Json::kArray) {
    MemberLine(node, "the node", "", out);
  } else {
    MemberLines(node.members, "", out);
  }
  out += "\nKeys stored (\"always\": whenever the result is 1; a nested key's member is its record's):\n\n";
  out += "| Key | Type | Stored | From |\n|---|---|---|---|\n";
  KeyRows(KeysOf(op), "", out);
  out += "\nRefused (result 0):\n\n";
  for (const char* refusal : op.refusals) out += "- " + std::string(refusal) + "\n";
}

}  // namespace

std::string BundleReference() {
  std::string out =
      "# Answer kinds and their bundles\n\n"
      "Generated from the field tables and the operations' descriptions by `make docs`; do not edit.\n"
      "`poiparse --schema KIND` gives the same contract as JSON Schema.\n\n"
      "A member is read when it holds the JSON its reader takes; otherwise it is skipped (or, when required, the\n"
      "answer is refused). The readers take:\n\n";
  for (const ScalarForm& form : kForms) {
    out += "- " + Code(form.def) + ": " + form.description + "\n";
  }
  out += "\nThe types are those of `poiparse`'s output: texts are JSON strings whatever the text mode.\n\n";
  for (const AnswerKind& kind : AnswerKinds()) out += "- " + KindLink(kind) + ": " + kind.description + "\n";
  for (const AnswerKind& kind : AnswerKinds()) {
    const OperationSchema& op = *kind.operation->schema;
    out += "\n## " + std::string(kind.name) + "\n\n";
    out += Code(kind.operation->name) + (kind.alias != nullptr ? " (alias " + Code(kind.alias) + ")" : "") + ": " +
           op.summary + "\n\n";
    if (op.forms[0] != nullptr) {
      out += "Chooses " + std::string(op.choice) + ":\n\n";
      for (const OperationSchema* form : op.forms) {
        const AnswerKind* form_kind = KindOf(form);
        out += "- " + Code(OperationName(form)) + (form_kind != nullptr ? ", see " + KindLink(*form_kind) : "") + "\n";
      }
      continue;
    }
    OperationReference(op, out);
  }
  return out;
}

std::string AnswerKindSchemas(const AnswerKind& kind) {
  JsonPtr both(Object(), cJSON_Delete);
  cJSON_AddItemToObject(both.get(), "answer", AnswerSchema(kind));
  cJSON_AddItemToObject(both.get(), "bundle", BundleSchema(kind));
  std::string text;
  _quarn_vi::CVJsonWriter writer(text, _quarn_vi::CVJsonWriter::Options());
  Write(both.get(), writer);
  text += '\n';
  return text;
}

}  // namespace _quarn_framework
