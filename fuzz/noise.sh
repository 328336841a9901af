#!/usr/bin/env bash
# Usage: noise.sh FOLDER. Files of noise, always the same, which stand for numbers and contents.
set -euo pipefail
for ((i = 1; i <= 60; ++i)); do
  LC_ALL=C awk -v seed="$i" -v size="$((20 + i * i / 4))" \
    'BEGIN { srand(seed); for (k = 0; k < size; ++k) printf "%c", int(rand() * 256) }' > "$1/noise-$i"
done
