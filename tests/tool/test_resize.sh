#!/bin/bash
# Usage: test_resize.sh PATH_OF_KVL
# Runs kvl resize on pictures and clips that ffmpeg makes.
set -u -o pipefail
shopt -s nullglob dotglob

kvl=$(realpath "$1") || exit 1
subcommand=resize
. "$(dirname "$0")/checks.sh"

pixels() { ffmpeg -v error -nostdin -i "$1" "${@:2}" -pix_fmt rgb24 -f rawvideo - | md5sum; }

size() { ffprobe -v error -count_frames -show_entries stream=width,height,nb_read_frames -of csv=p=0 "$1"; }

# At least this many decibels, printed by --exact.
near_exact() {
  awk -v least="$1" '$2 == "resize" && $3 == "PSNR" { found = $4 >= least } END { exit !found }' err ||
    fail "$2: $(cat err)"
}

make_media -f lavfi -i testsrc2=s=64x48 -vf format=rgb24,scale=101:67 -frames:v 1 -pix_fmt rgb24 in.png

sizes() {
  run --size 40x30 --exact in.png a.ppm
  equal "--size" 40,30,1 "$(size a.ppm)"
  near_exact 50 "--size 40x30"
  run --scale 0.5 in.png a.ppm
  equal "--scale, rounded" 51,34,1 "$(size a.ppm)"
  run --scale 2.5 --exact in.png a.ppm
  equal "--scale" 253,168,1 "$(size a.ppm)"
  near_exact 50 "--scale 2.5"
  run --scale 2 --source 10.5,3,20.5,11 in.png a.ppm
  equal "--scale of a rectangle" 20,16,1 "$(size a.ppm)"
  run --scale 0.0001 in.png a.ppm
  equal "smallest result" 1,1,1 "$(size a.ppm)"
  run in.png a.ppm
  equal "no option" "$(pixels in.png)" "$(pixels a.ppm)"
}

# Positions count from the top left.
rectangles() {
  run --source 20,10,60,40 in.png a.ppm
  equal "--source" "$(pixels in.png -vf crop=40:30:20:10)" "$(pixels a.ppm)"
  run --size 101x67 --source 20,10,60,40 --into 5,6,45,36 in.png a.ppm
  equal "--into" "$(pixels in.png -vf crop=40:30:20:10)" "$(pixels a.ppm -vf crop=40:30:5:6)"
  equal "black outside --into" "$(pixels in.png -vf crop=101:6:0:0,lutrgb=0:0:0)" \
    "$(pixels a.ppm -vf crop=101:6:0:0)"
  run --size 60x50 --source -20,-10,40,40 in.png a.ppm
  equal "source that hangs over" "$(pixels in.png -vf crop=40:40:0:0)" \
    "$(pixels a.ppm -vf crop=40:40:20:10)"
  run --scale 3 --source 20,10,60,40 in.png without.ppm
  run --scale 3 --source 20,10,60,40 --border in.png with.ppm
  cmp -s with.ppm without.ppm && fail "--border changes nothing"
  equal "inner part with and without --border" "$(pixels with.ppm -vf crop=100:70:10:10)" \
    "$(pixels without.ppm -vf crop=100:70:10:10)"
}

clips() {
  make_media -loop 1 -framerate 25 -i in.png -frames:v 12 -c:v ffv1 -pix_fmt bgr0 still.mkv
  run --size 80x60 --source 0,0,101,67 --source-end 30.3,20.1,60.9,41.7 --frames 11 --exact \
    still.mkv zoom.mkv
  equal "frames" 80,60,12 "$(size zoom.mkv)"
  near_exact 50 "zoom"
  awk '/largest jump/ { found = 1; if ($12 > 3 || $17 > 0.3) bad = 1 } END { exit bad || !found }' err ||
    fail "zoom jumps: $(cat err)"
  # The last two frames show the end.
  run --size 80x60 --source 30.3,20.1,60.9,41.7 in.png end.ppm
  make_media -i zoom.mkv -vf "select=gte(n\,10)" -vsync passthrough -pix_fmt rgb24 last%d.png
  equal "frame 11" "$(pixels end.ppm)" "$(pixels last1.png)"
  equal "frame 12" "$(pixels end.ppm)" "$(pixels last2.png)"
  # Runs that only repeat a frame do not move the source.
  run --size 80x60 --source-end 30,20,60,41 --frames 12 still.mkv once.mkv
  run --size 80x60 --source-end 30,20,60,41 --frames 12 --repeat 3 still.mkv thrice.mkv
  equal "--repeat" "$(pixels once.mkv)" "$(pixels thrice.mkv)"
}

bad_usage() {
  local value
  for value in 0x5 5x0 5 5x5x5 -1x5 1.5x2 40000x2; do
    refuse 2 "--size: '$value'" "--size=$value" in.png out/a.png
  done
  for value in 1,2,3 5,0,5,9 0,9,5,9 nan,0,1,1 0,0,1e7,1; do
    refuse 2 "--source: '$value'" --source "$value" in.png out/a.png
  done
  refuse 2 "--scale: '0'" --scale 0 in.png out/a.png
  refuse 2 "--size" --scale 2 --size 4x4 in.png out/a.png
  refuse 1 "--source: lies outside" --source 101,0,200,5 in.png out/a.png
  refuse 2 "--into: needs whole" --into 0,0,5.5,5 in.png out/a.png
  refuse 1 "--into: lies outside" --into 0,0,102,5 in.png out/a.png
  refuse 1 "--scale: the result" --scale 10000 in.png out/a.png
  refuse 1 "--exact: needs" --exact --source -1,0,5,5 in.png out/a.png
}

run_groups sizes rectangles clips bad_usage
