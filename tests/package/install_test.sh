#!/bin/sh
# Installs the library into a temporary prefix and builds the example client
# against it twice: with CMake's find_package and with pkg-config. Both
# clients must parse examples/poi_list.json and print the expected keys.
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
cmake --build "$work/build" --target poiparser -j "$jobs" >/dev/null
cmake --install "$work/build" --prefix "$prefix" >/dev/null

for f in lib/libpoiparser.a include/poi_parser/PoiJsonObjParser.h \
  include/engine/dev/inc/vi/vos/VTempl.h \
  lib/cmake/poiparser/poiparserConfig.cmake \
  lib/cmake/poiparser/poiparserConfigVersion.cmake lib/pkgconfig/poiparser.pc; do
  [ -f "$prefix/$f" ] || fail "not installed: $f"
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

# 2. pkg-config: a static library's users need cJSON at link time (--static).
flags=$(PKG_CONFIG_PATH="$prefix/lib/pkgconfig" pkg-config --cflags --libs --static poiparser)
case "$flags" in *-lcjson*) ;; *) fail "pkg-config --static gives no -lcjson: $flags" ;; esac
case "$with_simdjson:$flags" in
  ON:*-lsimdjson* | OFF:*) ;;
  *) fail "pkg-config --static gives no -lsimdjson: $flags" ;;
esac
# shellcheck disable=SC2086  # the flags are words
${CXX:-g++} -std=c++17 -o "$work/poiclient-pc" "$src/examples/client/main.cpp" $flags
check_output "$work/poiclient-pc"

echo "install_test: package installs; CMake and pkg-config clients work"
