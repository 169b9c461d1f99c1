#!/bin/sh
# Installs the Debian packages named on the command line that are missing.
# As root it runs apt-get (after an apt-get update); otherwise it prints the
# command to run and fails.
set -eu
missing=""
for package in "$@"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
    missing="$missing $package"
  fi
done
[ -z "$missing" ] && exit 0
if [ "$(id -u)" -ne 0 ]; then
  echo "Missing Debian packages:$missing" >&2
  echo "Install them with: sudo apt-get update && sudo apt-get install -y$missing" >&2
  exit 1
fi
echo "Installing:$missing"
# A mirror in the middle of a sync fails apt-get update ("File has unexpected
# size") for a few minutes: try three times. It fails as a whole when any one
# index fails (a foreign architecture's, say), while the lists it did fetch
# still serve: after the third failure the install decides. Another apt run
# holding dpkg's lock is waited for.
for attempt in 1 2 3; do
  apt-get update -qq && break
  if [ $attempt -eq 3 ]; then
    echo "apt-get update failed; going on with the package lists it left" >&2
    break
  fi
  echo "apt-get update failed; retrying in 20 s" >&2
  sleep 20
done
DEBIAN_FRONTEND=noninteractive apt-get install -y -qq -o DPkg::Lock::Timeout=300 --no-install-recommends $missing
