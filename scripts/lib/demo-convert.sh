# shellcheck shell=bash
# Raw frames: the planes as pictures, and how close they come to another conversion.

# layout | FFmpeg's name | options of kvl convert | options of FFmpeg's conversion
convert_layouts() {
  cat << 'TABLE'
yuy2 | yuyv422 | |
uyvy | uyvy422 | |
y | gray | --range full |
i420 | yuv420p | |
nv12 | nv12 | |
yuv422p | yuv422p | |
yuv444p | yuv444p | |
yuv444p | yuv444p | --matrix bt709 | out_color_matrix=bt709
yuv444p | yuv444p | --range full | out_range=full
rgb32 | bgr0 | |
TABLE
}

# convert_psnr <file> <options of its input>...: "y:.. u:.. v:.." of two raw frames.
convert_psnr() {
  local ours=$1 theirs=$2
  shift 2
  ffmpeg -nostdin "$@" -i "$ours" "$@" -i "$theirs" -lavfi psnr -f null - 2>&1 |
    sed -n 's/.*PSNR \(.*average:[^ ]*\).*/\1/p'
}

demo_convert() {
  local size layout format ours theirs words
  size=$(ffprobe -v error -show_entries stream=width,height -of csv=p=0:s=x "$out/photograph.png")
  echo '<h2 id="convert">Raw frames</h2>'
  echo '<p>Each frame opens in the ffmpeg program. Beside it, the PSNR in dB of its samples against
swscale'\''s conversion of the same photograph. The chroma differs in where it is taken from: swscale
filters, kvl takes the even columns in yuv422p, the mean of two pixels in yuy2 and uyvy, and that of
four in 4:2:0. yuy2 and uyvy have the carries of bright luma in their chroma.</p>'
  echo '<table><tr><th>command<th>opens with<th>PSNR'
  while IFS='|' read -r layout format ours theirs; do
    layout=${layout// /}
    format=${format// /}
    read -ra words <<< "$ours"
    local command=("$kvl" convert --to "$layout" "${words[@]}" "$out/photograph.png" "$out/$layout.raw")
    "${command[@]}"
    ffmpeg_quietly -i "$out/photograph.png" -vf "scale=flags=accurate_rnd:${theirs// /}" \
      -pix_fmt "$format" -f rawvideo "$out/swscale.raw"
    echo "<tr><td><code>$(escape_html "${command[*]}")</code><td>-pix_fmt $format<td>"
    convert_psnr "$out/$layout.raw" "$out/swscale.raw" -f rawvideo -video_size "$size" \
      -pix_fmt "$format"
  done < <(convert_layouts)
  echo '</table>'

  "$kvl" convert --to i420 "$out/photograph.png" "$out/i420.raw"
  "$kvl" convert --from i420 --size "$size" "$out/i420.raw" "$out/convert-back.png"
  page_small "$out" convert-back
  echo '<p>The planes of i420, chroma of half the size both ways, and the picture made of them
again:</p><div class="row">'
  local plane
  for plane in y u v; do
    ffmpeg_quietly -f rawvideo -video_size "$size" -pix_fmt yuv420p -i "$out/i420.raw" \
      -vf "extractplanes=$plane" -pix_fmt gray -update 1 "$out/convert-$plane.png"
    page_small "$out" "convert-$plane"
    page_figure "${plane^^}" "convert-$plane-small.jpg" "convert-$plane.png"
  done
  page_figure "back again" convert-back-small.jpg convert-back.png
  echo '</div>'
  rm "$out"/*.raw
}
