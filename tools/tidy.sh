#!/bin/sh
# tidy.sh all|changed [BASE]: clang-tidy over every source, or over those changed since BASE.
set -eu
cd "$(dirname "$0")/.."
which=${1:-changed}
base=${2:-origin/main}
if [ "$which" = changed ] && git rev-parse -q --verify "$base^{commit}" >/dev/null; then
  files=$( (git diff --name-only --diff-filter=d "$base" -- '*.cpp'
    git ls-files --others --exclude-standard -- '*.cpp') | sort -u)
else
  files=$(git ls-files -- '*.cpp')
fi
# Only what the clang build compiles: clang-tidy needs its command line.
database=build/clang/compile_commands.json
for file in $files; do
  grep -qF "\"$PWD/$file\"" "$database" && printf '%s\n' "$file"
done | xargs -r -P "$(nproc)" -n 4 clang-tidy --quiet -p build/clang --warnings-as-errors='*'
