#!/bin/bash
# Usage: test_convert.sh PATH_OF_KVL
# Runs kvl convert on pictures that ffmpeg makes, and lets ffmpeg read the raw frames.
set -u -o pipefail
shopt -s nullglob dotglob

kvl=$(realpath "$1") || exit 1
subcommand=convert
. "$(dirname "$0")/checks.sh"

# LOWEST FILE ARGUMENTS: the average PSNR of what ffmpeg makes of FILE with ARGUMENTS, against the
# picture in.png.
similar() {
  local lowest=$1 file=$2 decibels
  shift 2
  decibels=$(ffmpeg -nostdin "$@" -i "$file" -i "$picture" -lavfi \
    "[0]format=gbrp[a];[1]format=gbrp[b];[a][b]psnr" -frames:v 1 -f null - 2>&1 |
    sed -n 's/.*average:\([0-9.inf]*\) .*/\1/p')
  awk -v got="$decibels" -v low="$lowest" \
    'BEGIN { exit !(got == "inf" || got + 0 >= low) }' || fail "$file: $decibels dB, below $lowest"
}

layouts="yuy2:yuyv422:2
uyvy:uyvy422:2
i420:yuv420p:1.5
yv12::1.5
nv12:nv12:1.5
yuv422p:yuv422p:2
yuv444p:yuv444p:3"

# Smooth colours, so that little is lost where two pixels share them. FFmpeg does not read an odd
# width of every layout alike; the library's own way back does.
even_size() {
  picture=in.png
  make_media -f lavfi -i gradients=s=74x50:c0=0x3060C0:c1=0xE0A020:x0=0:y0=0:x1=73:y1=49 \
    -frames:v 1 -pix_fmt rgb24 in.png
  local layout format bytes
  while IFS=: read -r layout format bytes; do
    run --to "$layout" in.png frame.raw
    equal "bytes of $layout" "$(awk -v b="$bytes" 'BEGIN { print 74 * 50 * b }')" \
      "$(stat -c %s frame.raw)"
    [[ -z $format ]] || similar 38 frame.raw -f rawvideo -video_size 74x50 -pix_fmt "$format"
    run --from "$layout" --size 74x50 frame.raw back.png
    similar 38 back.png
  done <<<"$layouts"
  run --to rgb32 in.png frame.raw
  similar inf frame.raw -f rawvideo -video_size 74x50 -pix_fmt bgr0
  run --to y --range full in.png frame.raw
  make_media -i in.png -pix_fmt gray grey.png
  picture=grey.png similar 45 frame.raw -f rawvideo -video_size 74x50 -pix_fmt gray
}

odd_size() {
  picture=odd.png
  make_media -i in.png -vf crop=33:17:0:0 -pix_fmt rgb24 odd.png
  local layout format bytes
  while IFS=: read -r layout format bytes; do
    run --to "$layout" odd.png frame.raw
    run --from "$layout" --size 33x17 frame.raw back.png
    similar 38 back.png
  done <<<"$layouts"
  run --to i420 odd.png frame.raw
  equal "bytes of an odd size" $((33 * 17 + 2 * 17 * 9)) "$(stat -c %s frame.raw)"
  similar 38 frame.raw -f rawvideo -video_size 33x17 -pix_fmt yuv420p
}

# Grey has chroma of 128 in every byte, whatever the width, but for the carries of bright luma.
grey_is_grey() {
  local width layout
  make_media -f lavfi -i color=0x606060:s=64x8,format=rgb24 -frames:v 1 -pix_fmt rgb24 grey.png
  for width in 1 2 15 17 34 63; do
    make_media -i grey.png -vf crop=$width:5:0:0 -pix_fmt rgb24 narrow.png
    for layout in yuy2 i420 yuv422p yuv444p nv12 yv12; do
      run --to $layout narrow.png frame.raw
      equal "samples of grey in $layout, $width wide" "99 128 " \
        "$(od -An -v -w1 -tu1 frame.raw | sort -un | awk '{ printf "%d ", $1 }')"
    done
  done
}

matrices() {
  picture=in.png
  local matrix range digests="" number
  for matrix in bt601 bt709 bt2020; do
    for range in studio full; do
      run --to yuv444p --matrix $matrix --range $range in.png frame.raw
      digests+="$(md5sum <frame.raw)"$'\n'
      run --from yuv444p --size 74x50 --matrix $matrix --range $range frame.raw back.png
      similar 42 back.png
    done
  done
  number=$(sort -u <<<"$digests" | grep -c .)
  equal "matrices and ranges that differ" 6 "$number"
  run --to uyvy --matrix bt709 in.png frame.raw
  similar 38 frame.raw -f rawvideo -video_size 74x50 -pix_fmt uyvy422 -colorspace bt709
}

threads_and_streams() {
  local threads
  for threads in 1 3; do run --threads $threads in.png threads$threads.raw; done
  cmp threads1.raw threads3.raw || fail "1 and 3 threads differ"
  "$kvl" convert in.png - >piped.raw 2>err || fail "to standard output: $(cat err)"
  cmp threads1.raw piped.raw || fail "a stream and a file differ"
  "$kvl" convert --from i420 --size 74x50 - back.ppm <piped.raw 2>err || fail "from -: $(cat err)"
  make_media -loop 1 -i in.png -frames:v 3 -c:v ffv1 -pix_fmt bgr0 clip.mkv
  run clip.mkv clip.raw
  cat threads1.raw threads1.raw threads1.raw | cmp - clip.raw || fail "a clip is not its frames"
  "$kvl" convert in.png - 2>err >/dev/full
  equal "exit status for a full device" 1 $?
}

bad_calls() {
  refuse 2 "--to: 'rgb' is not one of" --to rgb in.png out/a.raw
  refuse 2 "--from: 'y' is not one of" --from y --size 4x4 in.png out/a.png
  refuse 2 "--matrix: 'bt470'" --matrix bt470 in.png out/a.raw
  refuse 2 "--size: is needed" --from i420 threads1.raw out/a.png
  refuse 2 "--matrix: the library makes uyvy" --to uyvy --matrix bt2020 in.png out/a.raw
  refuse 2 "--range: the library makes yuy2" --to yuy2 --range full in.png out/a.raw
  local size
  for size in 0x4 4x 4 x4 -4x4 4x4x4 32769x1; do
    refuse 2 "--size: '$size'" --from i420 --size=$size threads1.raw out/a.png
  done
  refuse 1 "threads1.raw: is not one frame" --from i420 --size 74x52 threads1.raw out/a.png
  refuse 1 "threads1.raw: is not one frame" --from i420 --size 74x48 threads1.raw out/a.png
  refuse 1 "missing.raw" --from i420 --size 74x50 missing.raw out/a.png
  refuse 1 "missing.png" missing.png out/a.raw
  refuse 2 "a raw frame is a picture" --from i420 --size 74x50 threads1.raw out/a.mp4
  refuse 1 "nowhere/a.raw: the output folder" in.png nowhere/a.raw
  head -c 300 in.png >cut.png
  refuse 1 "cut.png" cut.png out/a.raw
}

run_groups even_size odd_size grey_is_grey matrices threads_and_streams bad_calls
