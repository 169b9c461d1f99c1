// The answer kinds that poiparse knows: name, what it reads, the operation
// that parses it, and how the tool recognises it without --kind.
#ifndef TOOLS_KINDS_H_
#define TOOLS_KINDS_H_

#include <string>

#include "poi_parser/PoiJsonObjParser.h"

namespace poiparse {

struct AnswerKind {
  const char* name;   // the --kind value
  const char* reads;  // one line for --list-kinds
  int (*parse)(cJSON* node, _quarn_vi::CVBundle& out);
  // With --utf8 the tool sets the text mode flag once for a whole run; a kind
  // whose operation changes the flag names here the operation to use instead.
  int (*parse_utf8)(cJSON* node, _quarn_vi::CVBundle& out) = nullptr;
};

// Every kind, in --list-kinds order; `count` receives their number.
const AnswerKind* AllKinds(int* count);
// The kind named `name`, or null.
const AnswerKind* FindKind(const std::string& name);
// The kind of an answer told from its shape, or null when it cannot tell.
const AnswerKind* DetectKind(cJSON* root);

}  // namespace poiparse

#endif  // TOOLS_KINDS_H_
