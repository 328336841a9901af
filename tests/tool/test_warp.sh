#!/bin/bash
# Usage: test_warp.sh PATH_OF_KVL PATH_OF_WARP_QUALITY
# Runs kvl warp on pictures and clips that ffmpeg makes, and measures the warp of a photograph.
set -u -o pipefail
shopt -s nullglob dotglob

kvl=$(realpath "$1") || exit 1
quality=$(realpath "$2") || exit 1
photo=$(find /usr/share/libjxl-testdata -name flower.png 2>/dev/null | head -n 1)
subcommand=warp
. "$(dirname "$0")/checks.sh"

# FILE [FILTER]: the decoded bytes of its first frame as 24-bit RGB.
pixels() {
  ffmpeg -v error -nostdin -i "$1" -vf "${2:-null}" -frames:v 1 -pix_fmt rgb24 -f rawvideo - | md5sum
}

# FILE X Y: red, green and blue of a pixel.
pixel() {
  ffmpeg -v error -nostdin -i "$1" -vf "crop=1:1:$2:$3" -frames:v 1 -pix_fmt rgb24 -f rawvideo - |
    od -An -tu1 | tr -s ' '
}

make_media -f lavfi -i testsrc2=s=64x48,format=rgb24 -frames:v 1 -pix_fmt rgb24 in.png
make_media -f lavfi -i color=red:s=40x30,format=rgb24 -frames:v 1 -pix_fmt rgb24 red.png
make_media -f lavfi -i color=blue:s=100x80,format=rgb24 -frames:v 1 -pix_fmt rgb24 blue.png

# What leaves the picture in its place leaves all pixels but those at the rim, however it is said.
places() {
  local wanted options
  wanted=$(pixels in.png crop=62:46:1:1)
  while read -ra options; do
    run "${options[@]}" in.png out.ppm
    equal "warp ${options[*]}" "$wanted" "$(pixels out.ppm crop=62:46:1:1)"
  done <<'LINES'
--rotate-z 0
--corners 0,0,64,0,64,48,0,48
--matrix 1,0,0,0,0,1,0,0,0,0,1,0,0,0,0,1
--matrix 2,0,0,0,0,2,0,0,0,0,2,0,0,0,0,2 --onto in.png
LINES
  # The last row of a matrix moves the picture right and down.
  run --matrix 1,0,0,0,0,1,0,0,0,0,1,0,7,5,0,1 in.png out.ppm
  equal "shift" "$(pixels in.png crop=40:30:1:1)" "$(pixels out.ppm crop=40:30:8:6)"
  # A half turn, and a turn that tips the right side or the top away.
  run --rotate-z 180 --auto-level in.png out.ppm
  equal "half turn" "$(pixels in.png crop=62:46:1:1,hflip,vflip)" "$(pixels out.ppm crop=62:46:1:1)"
  run --rotate-y 40 red.png out.ppm
  equal "left of the right side" " 0 0 0" "$(pixel out.ppm 39 1)"
  run --rotate-z 90 --onto blue.png red.png out.ppm
  equal "size onto a picture" 100x80 "$(ffprobe -v error -show_entries stream=width,height \
    -of csv=p=0:s=x out.ppm)"
}

pins() {
  local threads
  for threads in 1 3; do
    run --threads $threads --corners 20,10,90,20,80,70,10,60 --auto-level --onto blue.png red.png \
      pinned$threads.ppm
  done
  cmp pinned1.ppm pinned3.ppm || fail "1 and 3 threads differ"
  local inside outside
  for inside in "21 12" "50 40" "86 23" "77 66" "12 58"; do
    # shellcheck disable=SC2086
    equal "pixel $inside" " 255 0 0" "$(pixel pinned1.ppm $inside)"
  done
  for outside in "15 10" "92 18" "82 72" "8 62" "0 0" "99 79"; do
    # shellcheck disable=SC2086
    equal "pixel $outside" " 0 0 255" "$(pixel pinned1.ppm $outside)"
  done
  # Without subdivision there are holes at that size.
  run --corners 0,0,100,0,100,80,0,80 --level 0 --onto blue.png red.png sparse.ppm
  run --corners 0,0,100,0,100,80,0,80 --level 2 --onto blue.png red.png dense.ppm
  [[ "$(pixels sparse.ppm)" != "$(pixels dense.ppm)" ]] || fail "the level goes unheard"
}

clips() {
  make_media -f lavfi -i testsrc2=s=64x48:r=25 -frames:v 5 -pix_fmt yuv420p in.mp4
  make_media -f lavfi -i testsrc2=s=64x48:r=25 -frames:v 5 -c:v ffv1 -pix_fmt bgr0 still.mkv
  run --spin 20 --onto blue.png in.mp4 spin.mkv
  equal "frames and size" 100,80,5 \
    "$(ffprobe -v error -count_frames -show_entries stream=width,height,nb_read_frames -of csv=p=0 spin.mkv)"
  run --spin 20 --repeat 2 still.mkv spin.mkv
  make_media -i still.mkv -frames:v 1 -pix_fmt rgb24 first.png
  run --rotate-y 0 first.png still.ppm
  equal "first frame of a spin" "$(pixels still.ppm)" "$(pixels spin.mkv)"
  make_media -i still.mkv -vf "select=eq(n\,3)" -frames:v 1 -pix_fmt rgb24 fourth.png
  run --rotate-y 60 fourth.png still.ppm
  equal "fourth frame of a spin" "$(pixels still.ppm)" "$(pixels spin.mkv "select=eq(n\,3)")"
}

bad_usage() {
  local value
  for value in 1 1,2,3,4,5,6,7 1,2,3,4,5,6,7,8,9 1,2,3,4,5,6,7,nan 0,0,1,0,1,1,0,; do
    refuse 2 "--corners: '$value' is not 8 numbers" --corners "$value" in.png out/a.png
  done
  refuse 2 "--matrix: '1,2' is not 16 numbers" --matrix 1,2 in.png out/a.png
  # Crossed edges, and three corners on a line.
  refuse 2 "--corners: are not those of a convex shape" --corners 0,0,60,0,0,40,60,40 in.png out/a.png
  refuse 2 "--corners: are not those of a convex shape" --corners 0,0,10,10,20,20,30,30 in.png out/a.png
  refuse 2 "exclude each other" --corners 0,0,64,0,64,48,0,48 --rotate-x 3 in.png out/a.png
  refuse 2 "--distance: the turned picture reaches behind" --rotate-y 80 --distance 20 in.png \
    out/a.png
  refuse 1 missing.png --onto missing.png in.png out/a.png
  refuse 2 "--onto: takes a picture, but in.mp4 is a clip" --onto in.mp4 in.png out/a.png
  refuse 2 "--level: '16'" --level 16 in.png out/a.png
}

# What the header tells of the difference from exact arithmetic.
photograph() {
  [[ -n "$photo" ]] || { fail "libjxl-testdata's flower.png is not installed"; return; }
  make_media -i "$photo" -vf crop=1280:720:500:400 -pix_fmt rgb24 photo.ppm
  "$quality" photo.ppm || fail "the quality is not as published"
}

run_groups places pins clips bad_usage photograph
