#!/bin/bash
# Usage: test_jpeg.sh PATH_OF_KVL
# Runs kvl jpeg encode and decode on pictures that ffmpeg makes and on photographs, beside ffmpeg.
set -u -o pipefail
shopt -s nullglob dotglob

kvl=$(realpath "$1") || exit 1
flower=/usr/share/libjxl-testdata/jxl/flower
subcommand=jpeg
. "$(dirname "$0")/checks.sh"

# The PSNR of two pictures of one size, all components together; inf for equal ones.
psnr() {
  ffmpeg -v error -nostdin -i "$1" -i "$2" \
    -lavfi "[0]format=gbrp[a];[1]format=gbrp[b];[a][b]psnr=stats_file=psnr" -f null - || return
  sed -n 's/.*psnr_avg:\([^ ]*\).*/\1/p' psnr
}

at_least() { # WHAT WANTED GOT
  [[ "$3" == inf ]] || awk -v w="$2" -v g="$3" 'BEGIN { exit !(g >= w) }' || fail "$1: $3 dB"
}

encoding() {
  local sampling format
  for sampling in 444 422 420; do
    run encode --sampling $sampling --quality 92 "$flower/flower.png" photo$sampling.jpg
    equal "sampling $sampling" "mjpeg,2268,1512,yuvj${sampling}p" \
      "$(stream photo$sampling.jpg codec_name,width,height,pix_fmt)"
    at_least "photograph in $sampling" 34 "$(psnr "$flower/flower.png" photo$sampling.jpg)"
  done
  run encode --threads 1 --band 8 "$flower/flower.png" one.jpg
  run encode --threads 3 --band 100 "$flower/flower.png" three.jpg
  cmp one.jpg three.jpg || fail "1 and 3 threads differ"
  run encode --quality 20 "$flower/flower.png" small.jpg
  (($(stat -c %s small.jpg) * 2 < $(stat -c %s one.jpg))) || fail "--quality goes unheard"
  run encode --progressive "$flower/flower.png" progressive.jpg
  run decode progressive.jpg progressive.ppm
  run decode one.jpg one.ppm
  cmp progressive.ppm one.ppm || fail "a progressive file holds another picture"
  ffmpeg -v error -nostdin -f lavfi -i testsrc2=s=64x64 -vf format=rgb24,crop=33:17 -frames:v 1 \
    -pix_fmt rgb24 in.png
  run encode --grey in.png grey.jpg
  equal "--grey" "33,17,gray" "$(stream grey.jpg width,height,pix_fmt)"
  "$kvl" jpeg encode in.png - >piped.jpg 2>err || fail "to standard output: $(cat err)"
  run encode in.png file.jpg
  cmp piped.jpg file.jpg || fail "a stream and a file differ"
  run encode --time --repeat 3 in.png timed.jpg
  grep -Eq '^kvl: jpeg-encode 33x17 1 frames [0-9.]+ ms/frame [0-9.]+ MP/s [0-9]+ threads$' err ||
    fail "--time printed '$(cat err)'"
}

decoding() {
  local file
  for file in "$flower"/*.jpg; do
    run decode "$file" one.ppm
    run decode --threads 3 "$file" three.ppm
    cmp one.ppm three.ppm || fail "$file: 1 and 3 threads differ"
    # Other rounding, the same picture.
    [[ $file != *_420_progr.jpg && $file != *_small*444_n* ]] ||
      at_least "$file beside ffmpeg" 36 "$(psnr "$file" one.ppm)"
  done
  file=$flower/flower_cropped.jpg
  run decode "$file" whole.png
  run decode --crop 101,203,333,77 "$file" crop.png
  ffmpeg -v error -nostdin -y -i whole.png -vf crop=333:77:101:203:exact=1 -pix_fmt rgb24 cut.png
  equal "crop" inf "$(psnr cut.png crop.png)"
  run decode --crop 1000,1000,100,100 "$file" corner.png
  equal "crop that reaches beyond the picture" 40,40 "$(stream corner.png width,height)"
  run decode --grey "$file" grey.png
  at_least "--grey" 50 "$(psnr grey.png <(ffmpeg -v error -nostdin -i "$file" -vf extractplanes=y \
    -f image2pipe -c:v pgm -))"
  "$kvl" jpeg decode - piped.png <"$file" 2>err || fail "from standard input: $(cat err)"
  cmp piped.png whole.png || fail "a stream and a file differ"
  run decode --time "$file" timed.png
  grep -Eq '^kvl: jpeg-decode 1040x1040 1 frames [0-9.]+ ms/frame' err || fail "--time: $(cat err)"
}

bad_calls() {
  local file=$flower/flower_cropped.jpg
  head -c 100000 "$file" >cut.jpg
  echo "plain text" >text.jpg
  ffmpeg -v error -nostdin -f lavfi -i testsrc2=s=64x48 -frames:v 3 clip.mkv
  refuse 1 "cut.jpg: Premature end" decode cut.jpg out/a.png
  refuse 1 "text.jpg: Not a JPEG file" decode text.jpg out/a.png
  refuse 1 "missing.jpg: No such file" decode missing.jpg out/a.png
  refuse 1 "standard input" decode - out/a.png
  refuse 1 "rectangle lies outside" decode --crop 1040,0,5,5 "$file" out/a.png
  refuse 2 "out/a.xyz: unknown output extension" decode "$file" out/a.xyz
  refuse 2 "out/a.mkv: is to be a picture" decode "$file" out/a.mkv
  refuse 2 "--crop: '1,2,3'" decode --crop 1,2,3 "$file" out/a.png
  refuse 1 "missing.png" encode missing.png out/a.jpg
  refuse 2 "clip.mkv: is a clip" encode clip.mkv out/a.jpg
  refuse 1 "nowhere/a.jpg: the output folder" encode "$flower/flower.png" nowhere/a.jpg
  refuse 2 "--quality: '101'" encode --quality 101 in.png out/a.jpg
  refuse 2 "--sampling: '411' is not one of 444|422|420" encode --sampling 411 in.png out/a.jpg
  refuse 2 "subcommand"
  "$kvl" jpeg encode in.png - 2>err >/dev/full
  equal "exit status for a full device" 1 $?
}

help() {
  local command line
  for command in encode decode; do
    "$kvl" jpeg $command --help >stdout || fail "jpeg $command --help failed"
    while read -r line; do
      [[ $line =~ \[[a-z]+,\ .+,\ default\ .+\]$ ]] ||
        fail "jpeg $command --help: no unit, range and default in '$line'"
    done < <(grep -E '^ +--' stdout)
  done
}

run_groups encoding decoding bad_calls help
