#!/bin/sh
# sources.sh: lists the C++ files of the tree that git knows or would add.
set -eu
cd "$(dirname "$0")/.."
git ls-files --cached --others --exclude-standard -- '*.cpp' '*.h'
