#!/bin/sh
# configure.sh PRESET [-DNAME=VALUE...]: configures a preset where that is needed, quietly.
# A build that is configured already with these values regenerates itself.
set -eu
cd "$(dirname "$0")/.."
preset=$1
shift
cache="build/$preset/CMakeCache.txt"
log="build/$preset/configure.log"
current=yes
[ -f "$cache" ] && [ -f "build/$preset/build.ninja" ] || current=no
for setting in "$@"; do
  [ $current = no ] || grep -qE "^${setting#-D}\$" "$cache.wanted" 2>/dev/null || current=no
done
[ $current = no ] || exit 0
mkdir -p "build/$preset"
if ! cmake --preset "$preset" "$@" >"$log" 2>&1; then
  cat "$log" >&2
  exit 1
fi
printf '%s\n' "$@" | sed 's/^-D//' >"$cache.wanted"
