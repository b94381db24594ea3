#!/bin/sh
# fuzz.sh BUILD SECONDS: runs every fuzz target of the build for so long; stops at a finding.
set -eu
build=$1
seconds=$2
found=0
for target in "$build"/*_fuzz; do
  [ -x "$target" ] || continue
  found=1
  name=$(basename "$target")
  corpus="$build/corpus/$name"
  mkdir -p "$corpus"
  echo "== $name"
  (cd "$build" && "./$name" -max_total_time="$seconds" -print_final_stats=1 "corpus/$name")
done
[ $found = 1 ] || { echo "fuzz.sh: no *_fuzz program in $build" >&2; exit 1; }
