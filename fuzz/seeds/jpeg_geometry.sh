#!/usr/bin/env bash
# Usage: jpeg_geometry.sh FOLDER. Noise, which stands for numbers.
set -euo pipefail
for ((i = 1; i <= 20; ++i)); do
  awk -v seed="$i" 'BEGIN { srand(seed); for (k = 0; k < 80; ++k) printf "%c", int(rand() * 128) }' \
    > "$1/noise-$i"
done
