#!/bin/sh
# Installs the library and the tool into a temporary prefix and builds the
# example client against it twice: with CMake's find_package and with
# pkg-config. Both clients must parse examples/poi_list.json and print the
# expected keys; the installed poiparse must run, with its manual page and
# bash completion beside it.
#
#   install_test.sh SOURCE_DIR [WITH_SIMDJSON]
#
# WITH_SIMDJSON (ON, the default, or OFF) is passed on as
# POIPARSER_WITH_SIMDJSON: with ON, both package files must carry simdjson.
set -eu
src=$(cd "$1" && pwd)
with_simdjson=${2:-ON}
jobs=2
work=$(mktemp -d "${TMPDIR:-/tmp}/poiparser-package.XXXXXX")
trap 'rm -rf "$work"' EXIT
trap 'exit 1' INT TERM
prefix=$work/prefix
unset DESTDIR  # cmake --install would honour it

fail() {
  echo "install_test: $*" >&2
  exit 1
}

# A separate Release copy without sanitizers, so that plain clients link.
cmake -S "$src" -B "$work/build" -DCMAKE_BUILD_TYPE=Release \
  -DPOIPARSER_BUILD_TESTS=OFF -DPOIPARSER_SANITIZE= -DPOIPARSER_WITH_SIMDJSON="$with_simdjson" >/dev/null
cmake --build "$work/build" --target poiparser poiparse -j "$jobs" >/dev/null
cmake --install "$work/build" --prefix "$prefix" >/dev/null

for f in lib/libpoiparser.a lib/cmake/poiparser/poiparserConfig.cmake \
  lib/cmake/poiparser/poiparserConfigVersion.cmake lib/pkgconfig/poiparser.pc; do
  [ -f "$prefix/$f" ] || fail "not installed: $f"
done

# The tool: it runs from the prefix, and its manual page and completion are
# where man and bash-completion look for them.
[ -x "$prefix/bin/poiparse" ] || fail "not installed: bin/poiparse"
version=$("$prefix/bin/poiparse" --version) || fail "bin/poiparse --version exited with $?"
case "$version" in "poiparse "[0-9]*.[0-9]*.[0-9]*) ;; *) fail "bin/poiparse --version printed: $version" ;; esac
"$prefix/bin/poiparse" --utf8 --compact "$src/examples/poi_list.json" >/dev/null ||
  fail "bin/poiparse on examples/poi_list.json exited with $?"
manual=$prefix/share/man/man1/poiparse.1
[ -f "$manual" ] || fail "not installed: share/man/man1/poiparse.1"
for section in NAME SYNOPSIS DESCRIPTION OPTIONS "EXIT STATUS"; do
  grep -qx "\.SH \"*$section\"*" "$manual" || fail "the manual page has no section $section"
done
grep -q '@[A-Z_]*@' "$manual" && fail "the manual page holds an unfilled @VARIABLE@"
grep -q "^\.TH POIPARSE 1 .*${version#poiparse }" "$manual" || fail "the manual page does not give the version ${version#poiparse }"
completion=$prefix/share/bash-completion/completions/poiparse
[ -f "$completion" ] || fail "not installed: share/bash-completion/completions/poiparse"
if command -v bash >/dev/null; then
  bash -c ". '$completion' && complete -p poiparse" >/dev/null 2>&1 || fail "the completion does not load in bash"
fi

# Exactly the public headers, under include/poiparser/, and nothing else
# under include/: the implementation headers (json_readers/FieldTable.h,
# poi_parser/ParserSupport.h, foundation/Utf8.h, ...) stay out.
public_headers='PoiparserVersion.h
engine/dev/inc/vi/vos/VTempl.h
foundation/BundleJsonWriter.h
foundation/ComplexPt.h
foundation/VBundle.h
foundation/VMem.h
foundation/VString.h
json_readers/Diagnostics.h
json_readers/JsonAccess.h
json_readers/JsonDocument.h
json_readers/JsonObjParser.h
poi_parser/AnswerKinds.h
poi_parser/AnswerSchema.h
poi_parser/BundleKeys.h
poi_parser/PoiJsonObjParser.h'
[ "$(ls "$prefix/include")" = poiparser ] || fail "include/ holds more than poiparser/: $(ls "$prefix/include")"
installed=$(cd "$prefix/include/poiparser" && find . -type f | sed 's|^\./||' | LC_ALL=C sort)
[ "$installed" = "$public_headers" ] || fail "installed headers:
$installed
expected:
$public_headers"

# No installed header includes one that is not installed, and each compiles
# on its own against the installed tree.
cjson_flags=$(pkg-config --cflags libcjson)
for header in $public_headers; do
  for included in $(sed -n 's/^#include "\(.*\)"$/\1/p' "$prefix/include/poiparser/$header"); do
    [ -f "$prefix/include/poiparser/$included" ] || fail "$header includes $included, which is not installed"
  done
  # shellcheck disable=SC2086  # the flags are words
  echo "#include \"$header\"" | ${CXX:-g++} -std=c++17 -fsyntax-only -I"$prefix/include/poiparser" $cjson_flags \
    -x c++ - || fail "$header does not compile alone from the installed tree"
done

expected='result=1
count=12
first name=星巴克(三里屯太古里店)
first distance=312'
check_output() {
  out=$("$1" "$src/examples/poi_list.json") || fail "$1 exited with $?"
  [ "$out" = "$expected" ] || fail "$1 printed:
$out
expected:
$expected"
}

# 1. CMake: find_package(poiparser) through CMAKE_PREFIX_PATH.
cmake -S "$src/examples/client" -B "$work/client" -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/client" -j "$jobs" >/dev/null
check_output "$work/client/poiclient"

# 2. pkg-config: the API takes cJSON trees, so cJSON is a public requirement
# (its flags come without --static too); simdjson is a private one.
requires=$(PKG_CONFIG_PATH="$prefix/lib/pkgconfig" pkg-config --print-requires poiparser)
[ "$requires" = libcjson ] || fail "pkg-config --print-requires gives: $requires"
flags=$(PKG_CONFIG_PATH="$prefix/lib/pkgconfig" pkg-config --cflags --libs --static poiparser)
case "$flags" in *-lcjson*) ;; *) fail "pkg-config --static gives no -lcjson: $flags" ;; esac
case "$with_simdjson:$flags" in
  ON:*-lsimdjson* | OFF:*) ;;
  *) fail "pkg-config --static gives no -lsimdjson: $flags" ;;
esac
# shellcheck disable=SC2086  # the flags are words
${CXX:-g++} -std=c++17 -o "$work/poiclient-pc" "$src/examples/client/main.cpp" $flags
check_output "$work/poiclient-pc"

echo "install_test: package and tool install; CMake and pkg-config clients work"
