#!/usr/bin/env bash
# Usage: short_run.sh PROGRAM COPIES, for a fuzz target that was linked with short_run.cpp.
set -euo pipefail
program=$1
name=${program##*/fuzz_}
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
bash "$(dirname "${BASH_SOURCE[0]}")/seeds/$name.sh" "$folder"
"$program" "$2" "$folder"
