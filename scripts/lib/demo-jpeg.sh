# shellcheck shell=bash
# The demo's section on JPEG: files of several samplings and qualities, and what they cost.

# jpeg_psnr <picture> <picture>: of all components together, in dB.
jpeg_psnr() {
  ffmpeg_quietly -i "$1" -i "$2" \
    -lavfi "[0]format=gbrp[a];[1]format=gbrp[b];[a][b]psnr=stats_file=$out/psnr.txt" -f null -
  sed -n 's/.*psnr_avg:\([^ ]*\).*/\1/p' "$out/psnr.txt"
}

# jpeg_milliseconds <command>...
jpeg_milliseconds() {
  local time
  read -r _ _ _ _ _ time _ <<< "$(timed "$@")"
  echo "$time"
}

# jpeg_row <name> <options>: writes the photograph as NAME.jpg, reads it back as NAME.png.
jpeg_row() {
  local name=$1 encode decode one two
  shift
  encode=("$kvl" jpeg encode "$@" --time --repeat 9)
  decode=("$kvl" jpeg decode --time --repeat 9)
  one=$(jpeg_milliseconds "${encode[@]}" --threads 1 "$out/photograph.png" "$out/$name.jpg")
  two=$(jpeg_milliseconds "${encode[@]}" "$out/photograph.png" "$out/$name.jpg")
  echo "<tr><td><a href=\"$name.jpg\">$(escape_html "$*")</a><td>$(stat -c %s "$out/$name.jpg")"
  echo "<td>$one<td>$two"
  one=$(jpeg_milliseconds "${decode[@]}" --threads 1 "$out/$name.jpg" "$out/$name.png")
  two=$(jpeg_milliseconds "${decode[@]}" "$out/$name.jpg" "$out/$name.png")
  echo "<td>$one<td>$two<td>$(jpeg_psnr "$out/photograph.png" "$out/$name.png")"
}

demo_jpeg() {
  local name
  echo '<h2 id="jpeg">JPEG files</h2>'
  echo "<pre>$(escape_html "$kvl jpeg encode --quality 90 --sampling 420 in.png out.jpg
$kvl jpeg decode out.jpg back.png")</pre>"
  echo "<p>The photograph written and read back: milliseconds inside library and coder, with one
thread and with the library's own choice, and how far the result is from the photograph.</p>"
  echo '<table><tr><th>Options<th>bytes<th>write, 1 thread<th>write<th>read, 1 thread<th>read'
  echo '<th>PSNR, dB'
  jpeg_row jpeg-444 --sampling 444 --quality 95
  jpeg_row jpeg-422 --sampling 422 --quality 90
  jpeg_row jpeg-420 --sampling 420 --quality 90
  jpeg_row jpeg-low --sampling 420 --quality 15
  jpeg_row jpeg-grey --grey --quality 90
  echo '</table>'
  for name in jpeg-420 jpeg-low; do
    page_small "$out" "$name"
    page_difference "$out" photograph "$name"
    page_detail "$out" "$name"
    page_detail "$out" "$name-difference"
    echo '<div class="row">'
    page_figure "Before" photograph-detail.png photograph.png
    page_figure "$name.jpg" "$name-detail.png" "$name.png"
    page_figure "Difference, $gain times" "$name-difference-detail.png" "$name-difference.png"
    echo '</div>'
  done
  "$kvl" jpeg decode --crop 1210,750,240,160 "$out/jpeg-420.jpg" "$out/jpeg-crop.png"
  echo "<pre>$(escape_html "$kvl jpeg decode --crop 1210,750,240,160 out.jpg crop.png")</pre>"
  echo '<div class="row">'
  page_figure "A rectangle of the file" jpeg-crop.png jpeg-crop.png
  page_figure "The grey file" jpeg-grey.png jpeg-grey.jpg
  echo '</div>'
}
