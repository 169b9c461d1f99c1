// poiparse: parses a search service answer and prints what the client's
// bundle holds, as JSON.
//
//   poiparse [--kind KIND] [--utf8] [--compact] [FILE ...]
//
// Exit status: 0 when every answer was accepted (result 1), 1 when some
// answer was refused (result 0; its bundle is printed all the same), 2 for
// usage errors, unreadable files and invalid JSON.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "foundation/BundleJsonWriter.h"
#include "poi_parser/PoiJsonObjParser.h"
#include "tools/Kinds.h"

namespace {

constexpr const char kVersion[] = "poiparse 0.1.0";
constexpr int kExitRefused = 1;
constexpr int kExitError = 2;

const char kUsage[] =
    "usage: poiparse [options] [FILE ...]\n"
    "Parses search service answers (JSON) as the map client does and prints\n"
    "each resulting bundle as JSON. No FILE, or '-', reads standard input.\n"
    "\n"
    "options:\n"
    "  --kind KIND    the answer kind (see --list-kinds); detected when omitted\n"
    "  --list-kinds   list the answer kinds and exit\n"
    "  --utf8         the answer's texts are UTF-8 (sets the text mode flag)\n"
    "  --compact      one line per answer\n"
    "  --help         show this help and exit\n"
    "  --version      show the version and exit\n"
    "\n"
    "exit status: 0 all answers accepted, 1 an answer refused, 2 error\n";

struct Options {
  const poiparse::AnswerKind* kind = nullptr;
  bool utf8 = false;
  bool compact = false;
  std::vector<std::string> files;
};

using TreePtr = std::unique_ptr<cJSON, void (*)(cJSON*)>;

bool ReadAll(const std::string& path, std::string* text, std::string* error) {
  FILE* f = path == "-" ? stdin : std::fopen(path.c_str(), "rb");
  if (f == nullptr) {
    *error = std::strerror(errno);
    return false;
  }
  char buf[65536];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof(buf), f)) > 0) text->append(buf, n);
  bool ok = !std::ferror(f);
  if (!ok) *error = std::strerror(errno);
  if (f != stdin) std::fclose(f);
  return ok;
}

// Line and column (both from 1; the column counts characters) of byte
// `offset` of `text`.
void LineColumn(const std::string& text, size_t offset, size_t* line, size_t* column) {
  *line = 1;
  *column = 1;
  for (size_t i = 0; i < offset && i < text.size(); ++i) {
    unsigned char c = static_cast<unsigned char>(text[i]);
    if (c == '\n') {
      ++*line;
      *column = 1;
    } else if ((c & 0xC0) != 0x80) {
      ++*column;
    }
  }
}

// Parses `text` as one JSON document; on failure returns null and sets
// *error_offset to where the text stops being JSON.
TreePtr ParseJson(const std::string& text, size_t* error_offset) {
  const char* end = nullptr;
  // The length passed includes the terminating NUL, which cJSON requires to
  // see right after the document (no trailing garbage).
  cJSON* root = cJSON_ParseWithLengthOpts(text.c_str(), text.size() + 1, &end, 1);
  size_t stop = end != nullptr ? static_cast<size_t>(end - text.c_str()) : 0;
  if (root != nullptr && stop < text.size()) {
    // cJSON stops at an embedded NUL byte; what follows is not JSON.
    cJSON_Delete(root);
    root = nullptr;
  }
  if (root == nullptr) *error_offset = stop;
  return TreePtr(root, cJSON_Delete);
}

void WriteResult(const poiparse::AnswerKind& kind, int result, const _quarn_vi::CVBundle& bundle,
                 const Options& options, std::string& out) {
  _quarn_vi::CVJsonWriter::Options format;
  format.pretty = !options.compact;
  _quarn_vi::CVJsonWriter writer(out, format);
  writer.BeginObject();
  writer.Key("kind");
  writer.StringUtf8(kind.name);
  writer.Key("result");
  writer.Int(result);
  writer.Key("bundle");
  writer.Bundle(bundle);
  writer.EndObject();
  out.push_back('\n');
}

// Parses one input; returns the exit status it calls for.
int ProcessFile(const std::string& path, const Options& options) {
  const std::string name = path == "-" ? "<stdin>" : path;
  std::string text, error;
  if (!ReadAll(path, &text, &error)) {
    std::cerr << "poiparse: " << name << ": " << error << "\n";
    return kExitError;
  }
  size_t error_offset = 0;
  TreePtr root = ParseJson(text, &error_offset);
  if (!root) {
    size_t line, column;
    LineColumn(text, error_offset, &line, &column);
    std::cerr << name << ":" << line << ":" << column << ": invalid JSON\n";
    return kExitError;
  }
  const poiparse::AnswerKind* kind = options.kind;
  if (kind == nullptr) kind = poiparse::DetectKind(root.get());
  if (kind == nullptr) {
    std::cerr << "poiparse: " << name
              << ": cannot tell the answer kind from its shape; name it with --kind "
                 "(see --list-kinds)\n";
    return kExitError;
  }
  if (options.utf8) _quarn_framework::CJsonObjParser::isParsePHPUI2Res = 1;
  _quarn_vi::CVBundle bundle;
  int result = kind->parse(root.get(), bundle);
  _quarn_framework::CJsonObjParser::isParsePHPUI2Res = 0;

  std::string out;
  WriteResult(*kind, result, bundle, options, out);
  std::fwrite(out.data(), 1, out.size(), stdout);
  return result == 1 ? 0 : kExitRefused;
}

void ListKinds() {
  int count = 0;
  const poiparse::AnswerKind* kinds = poiparse::AllKinds(&count);
  for (int i = 0; i < count; ++i) std::printf("%-14s %s\n", kinds[i].name, kinds[i].reads);
}

// Parses the command line; returns -1 to go on, else an exit status.
int ParseArgs(int argc, char** argv, Options* options) {
  bool only_files = false;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (only_files || arg == "-" || arg.empty() || arg[0] != '-') {
      options->files.push_back(arg);
    } else if (arg == "--") {
      only_files = true;
    } else if (arg == "--help" || arg == "-h") {
      std::fputs(kUsage, stdout);
      return 0;
    } else if (arg == "--version") {
      std::puts(kVersion);
      return 0;
    } else if (arg == "--list-kinds") {
      ListKinds();
      return 0;
    } else if (arg == "--utf8") {
      options->utf8 = true;
    } else if (arg == "--compact") {
      options->compact = true;
    } else if (arg == "--kind" || arg.rfind("--kind=", 0) == 0) {
      std::string name;
      if (arg == "--kind") {
        if (i + 1 >= argc) {
          std::cerr << "poiparse: --kind needs a value (see --list-kinds)\n";
          return kExitError;
        }
        name = argv[++i];
      } else {
        name = arg.substr(7);
      }
      options->kind = poiparse::FindKind(name);
      if (options->kind == nullptr) {
        std::cerr << "poiparse: unknown kind '" << name << "' (see --list-kinds)\n";
        return kExitError;
      }
    } else {
      std::cerr << "poiparse: unknown option '" << arg << "'\n" << kUsage;
      return kExitError;
    }
  }
  if (options->files.empty()) options->files.push_back("-");
  return -1;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  int status = ParseArgs(argc, argv, &options);
  if (status >= 0) return status;
  status = 0;
  for (const std::string& path : options.files) {
    int file_status = ProcessFile(path, options);
    if (file_status > status) status = file_status;
  }
  return status;
}
