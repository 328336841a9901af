#!/usr/bin/env bash
# Usage: jpeg_decode.sh FOLDER. JPEG files of every kind: whole small ones, the beginning of large
# ones, and details of the photograph.
set -euo pipefail
photographs=/usr/share/libjxl-testdata/jxl
for file in "$photographs"/flower/*.jpg "$photographs"/jpeg_reconstruction/*.jpg; do
  size=$(stat -c %s "$file")
  head -c "$((size > 65000 ? 6000 : size))" "$file" > "$1/${file##*/}"
done
for format in yuvj420p yuvj422p yuvj440p yuvj444p gray; do
  ffmpeg -nostdin -v error -y -i "$photographs/flower/flower.png" \
    -vf "crop=101:75:1210:750,scale=out_range=full,format=$format" -frames:v 1 -update 1 \
    "$1/detail-$format.jpg"
done
