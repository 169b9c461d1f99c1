// Writes the reference of the answer kinds' bundles (docs/bundles.md) to
// standard output, or with --check FILE tells whether FILE is up to date.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include "poi_parser/AnswerSchema.h"

int main(int argc, char** argv) {
  const std::string reference = _quarn_framework::BundleReference();
  if (argc == 3 && std::strcmp(argv[1], "--check") == 0) {
    std::ifstream in(argv[2], std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    if (in && text.str() == reference) return 0;
    std::cerr << argv[2] << " is out of date with the field tables; regenerate it with: make docs\n";
    return 1;
  }
  if (argc != 1) {
    std::cerr << "usage: bundle_reference [--check FILE]\n";
    return 2;
  }
  std::fputs(reference.c_str(), stdout);
  return std::fflush(stdout) == 0 ? 0 : 1;
}
