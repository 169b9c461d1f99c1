#!/bin/sh
# Unpacks the Debian packages of a foreign architecture's libraries into a
# directory of their own, for a cross build to link against (make test-arm64,
# make test-armhf).
#
#   cross-sysroot.sh ARCH DIR PACKAGE...
#
# e.g. cross-sysroot.sh arm64 build/sysroot/arm64 libcjson-dev libcjson1
# gives DIR/usr/include and DIR/usr/lib/aarch64-linux-gnu. Every package is
# named, dependencies included: nothing is resolved.
#
# Why not install them with multiarch (apt-get install libcjson-dev:arm64)?
# Co-installation needs the foreign package at exactly the version of the
# native one for every Multi-Arch: same package, which breaks whenever the
# mirror serves one architecture's security update before the other's; and
# libsimdjson-dev is not Multi-Arch: same at all, so its arm64 copy would
# remove the native one that the benchmarks need. Unpacking with dpkg -x
# leaves the machine's packages alone and needs only the architecture's
# package lists.
#
# Steps: adds ARCH to dpkg's architectures and runs apt-get update (retried:
# a mirror in the middle of a sync fails it for a few minutes) when apt does
# not know the packages yet (both need root), downloads them (after another
# update, and with retries, if that fails) and unpacks them. DIR/.packages
# records what was unpacked; the same request again does nothing, offline.
set -eu
[ $# -ge 3 ] || { echo "usage: $0 ARCH DIR PACKAGE..." >&2; exit 2; }
arch=$1
dir=$2
shift 2
request="$arch $*"
stamp=$dir/.packages
if [ -f "$stamp" ] && [ "$(cat "$stamp")" = "$request" ]; then
  exit 0
fi

# Runs its arguments up to 3 times, 20 s apart.
retry() {
  for attempt in 1 2 3; do
    "$@" && return 0
    [ $attempt -eq 3 ] || { echo "cross-sysroot: retrying in 20 s: $*" >&2; sleep 20; }
  done
  return 1
}

as_root() {
  if [ "$(id -u)" -ne 0 ]; then
    echo "cross-sysroot: needs root for: $*" >&2
    echo "run it with sudo, or run: sudo sh -c 'dpkg --add-architecture $arch && apt-get update'" >&2
    exit 1
  fi
  "$@"
}

# True iff apt has a candidate version of every package for ARCH.
known() {
  for package in "$@"; do
    apt-cache policy "$package:$arch" 2>/dev/null | grep -q 'Candidate: [^(]' || return 1
  done
}

if ! dpkg --print-foreign-architectures | grep -qx "$arch" &&
  [ "$(dpkg --print-architecture)" != "$arch" ]; then
  echo "cross-sysroot: adding the $arch architecture to dpkg"
  as_root dpkg --add-architecture "$arch"
fi
# apt-get update fails as a whole when any one index fails (another
# architecture's, say, while the mirror syncs); the lists it did fetch still
# serve, so a failure here is reported and the download decides.
update() {
  as_root retry apt-get update -qq ||
    echo "cross-sysroot: apt-get update failed; going on with the package lists it left" >&2
}
if ! known "$@"; then
  update
fi

rm -rf "$dir"
mkdir -p "$dir/debs"
debs=$(cd "$dir/debs" && pwd)
qualified=""
for package in "$@"; do qualified="$qualified $package:$arch"; done
download() {
  # shellcheck disable=SC2086  # the packages are words
  (cd "$debs" && apt-get download -qq -o APT::Sandbox::User="$(id -un)" $qualified)
}
# Package lists older than the mirror name versions it no longer has.
if ! download; then
  update
  retry download
fi
for deb in "$debs"/*.deb; do
  dpkg-deb -x "$deb" "$dir"
done
rm -rf "$debs"

# Some packages' CMake files name their files by absolute paths (cJSON's
# say /usr/include and /usr/lib/TRIPLE/libcjson.so...): point them into DIR.
root=$(cd "$dir" && pwd)
find "$root/usr/lib" -path '*/cmake/*' -name '*.cmake' -exec \
  sed -i -e "s|\"/usr/|\"$root/usr/|g" -e "s|\"/usr\"|\"$root/usr\"|g" {} +
echo "$request" >"$stamp"
echo "cross-sysroot: unpacked $* ($arch) into $dir"
