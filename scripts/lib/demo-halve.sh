# shellcheck shell=bash
# The page's part on halving and fields.

# halve_file <name> <argument>...: halves the photograph, and its enlarged detail.
halve_file() {
  local name=$1
  shift
  local command=("$kvl" halve "$@" --time --repeat 15 "$out/photograph.png" "$out/$name.png")
  local line
  line=$(timed "${command[@]}")
  echo "  $line" >&2
  # The same part of the picture as in the other sections, which is half as large here.
  ffmpeg_quietly -i "$out/$name.png" \
    -vf "crop=120:80:605:375,scale=iw*6:-2:flags=neighbor" "$out/$name-detail.png"
  echo "<pre>$(escape_html "${command[*]}")
$(escape_html "$line")</pre>"
}

demo_halve() {
  local layout
  echo '<h2 id="halve">Halves of frames</h2>'
  echo '<p>Half of the width and of the height, in the layout of the frame. Three bytes a pixel, the
luma and chroma planes of 4:2:0 averaged, and every second sample of these planes.</p>'
  halve_file halve-rgb24
  halve_file halve-yv12 --layout yv12
  halve_file halve-samples --layout yv12 --samples
  echo '<div class="row">'
  page_figure "RGB24" halve-rgb24-detail.png halve-rgb24.png
  page_figure "YV12, averaged" halve-yv12-detail.png halve-yv12.png
  page_figure "YV12, samples" halve-samples-detail.png halve-samples.png
  echo '</div>'

  echo '<p>The other layouts, and their distance from the RGB24 half:</p><pre>'
  for layout in rgb32 yuy2 yv16 yv24 nv12; do
    "$kvl" halve --layout "$layout" "$out/photograph.png" "$out/halve-$layout.png"
    printf '%-6s %s dB\n' "$layout" "$(halve_psnr "$layout")"
  done
  echo '</pre>'

  echo '<h2 id="fields">Fields</h2>'
  echo '<p>The bottom field of every frame from a clip that is one frame ahead, as an interlaced
camera would have seen it; then halved across the fields, and each field by itself.</p>'
  ffmpeg_quietly -i "$out/clip.mp4" -vf select='gte(n\,1)' -c:v ffv1 -pix_fmt bgr0 "$out/ahead.mkv"
  ffmpeg_quietly -i "$out/clip.mp4" -frames:v 74 -c:v ffv1 -pix_fmt bgr0 "$out/now.mkv"
  local command=("$kvl" fields --with "$out/ahead.mkv" "$out/now.mkv" "$out/fields.mkv")
  "${command[@]}" --time 2> /dev/null
  echo "<pre>$(escape_html "${command[*]}")</pre>"
  ffmpeg_quietly -i "$out/fields.mkv" -frames:v 1 -update 1 "$out/fields.png"
  "$kvl" halve "$out/fields.png" "$out/fields-across.png"
  "$kvl" halve --interlaced "$out/fields.png" "$out/fields-apart.png"
  ffmpeg_quietly -i "$out/fields.png" \
    -vf "crop=160:106:700:330,scale=iw*6:-2:flags=neighbor" "$out/fields-detail.png"
  local name
  for name in fields-across fields-apart; do
    ffmpeg_quietly -i "$out/$name.png" \
      -vf "crop=80:53:350:165,scale=iw*12:-2:flags=neighbor" "$out/$name-detail.png"
  done
  echo '<div class="row">'
  page_figure "Two fields" fields-detail.png fields.png
  page_figure "Halved across them" fields-across-detail.png fields-across.png
  page_figure "Halved with --interlaced" fields-apart-detail.png fields-apart.png
  echo '</div>'
}

halve_psnr() {
  ffmpeg -nostdin -i "$out/halve-$1.png" -i "$out/halve-rgb24.png" -lavfi psnr -f null - 2>&1 |
    sed -n 's/.*average:\([0-9.]*\).*/\1/p'
}
