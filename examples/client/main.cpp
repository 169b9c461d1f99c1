// A client of the parser library: reads a search service answer from the
// file named on the command line, parses it with the library's JSON
// document (simdjson, or cJSON alone, as the library was built), hands the
// tree to one entry operation and prints a few keys of the result bundle.
//
//   poiclient ANSWER.json
//
// Exit status: 0 when the answer was accepted, 1 when it was refused, 2 when
// the file could not be read or is not JSON.
#include <cjson/cJSON.h>

#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include "poi_parser/PoiJsonObjParser.h"  // the umbrella header: the document too

using _quarn_framework::CPoiJsonObjParser;
using _quarn_vi::CVBundle;
using _quarn_vi::CVString;
namespace keys = _quarn_framework::keys;  // the bundle keys: a misspelt one does not compile

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: poiclient ANSWER.json\n";
    return 2;
  }
  std::ifstream in(argv[1], std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  if (!in) {
    std::cerr << "poiclient: cannot read " << argv[1] << "\n";
    return 2;
  }
  const std::string json = text.str();
  _quarn_framework::CJsonDocument document;  // owns the tree
  cJSON* root = document.Parse(json.data(), json.size());
  if (root == nullptr) {
    std::cerr << "poiclient: " << argv[1] << " is not JSON: " << document.ErrorMessage() << " at byte "
              << document.ErrorOffset() << "\n";
    return 2;
  }

  // The POI list answer: "count" elements were sent, "pois" holds the
  // records that could be read. Absent keys read as 0 or null.
  CVBundle bundle;
  int result = CPoiJsonObjParser::ParsePoiListRst(root, bundle);

  std::cout << "result=" << result << "\n";
  std::cout << "count=" << bundle.GetInt(CVString(keys::kCount)) << "\n";
  const CVBundle::BundleArray* pois = bundle.GetBundleArray(CVString(keys::kPois));
  if (pois != nullptr && pois->m_nSize > 0) {
    const CVBundle& first = pois->m_pData[0];
    const CVString* name = first.GetString(CVString(keys::kName));
    if (name != nullptr) std::cout << "first name=" << name->ToUtf8() << "\n";
    std::cout << "first distance=" << first.GetInt(CVString(keys::kDistance)) << "\n";
  }

  return result == 1 ? 0 : 1;
}
