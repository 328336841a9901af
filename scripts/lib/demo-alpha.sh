# shellcheck shell=bash
# The demo's part on alpha and colour: a subject before a green screen, keyed back out of it.

alpha_screen=00b140
alpha_size=1000x900
alpha_edges=200:150:560:130 # of the shot: width, height, left, top

# alpha_merge <below> <above> <mask> <result>: the mask shows what is above.
alpha_merge() {
  ffmpeg_quietly -i "$out/$1.png" -i "$out/$2.png" -i "$out/$3.png" -filter_complex \
    "[0]format=gbrp[a];[1]format=gbrp[b];[2]format=gbrp[m];[a][b][m]maskedmerge" \
    -pix_fmt rgb24 "$out/$4.png"
}

# alpha_psnr <picture> <truth> [mask]: decibels, of what the mask shows if one is given.
alpha_psnr() {
  local inside="[0]format=gbrp[a]" share=1
  local inputs=(-i "$out/$1.png" -i "$out/$2.png")
  if (($# > 2)); then
    inputs+=(-i "$out/$3.png")
    inside="[1]format=gbrp[t];[0]format=gbrp[p];[2]format=gbrp[m];[t][p][m]maskedmerge[a]"
    share=$(alpha_mean "$3")
  fi
  ffmpeg -nostdin -v info "${inputs[@]}" -filter_complex \
    "$inside;[1]format=gbrp[b];[a][b]psnr" -f null - 2>&1 |
    sed -n 's/.*PSNR.*average:\([0-9.inf]*\).*/\1/p' |
    awk -v share="$share" '{ printf "%.1f\n", $1 + 10 * log(share) / log(10) }'
}

# alpha_mean <picture>: of a grey one, 1 for white.
alpha_mean() {
  ffmpeg -nostdin -v error -i "$out/$1.png" -vf \
    format=gray,signalstats,metadata=print:key=lavfi.signalstats.YAVG:file=- -f null - |
    sed -n 's/.*YAVG=//p' | awk '{ print $1 / 255 }'
}

# The flower, cut out by its brightness: the truth that the key has to find again.
alpha_make_pictures() {
  local brightest="clip((max(r(X,Y),max(g(X,Y),b(X,Y)))-150)*5,0,255)"
  local grow shrink
  grow=$(printf 'dilation,%.0s' 1 2 3 4 5)
  shrink=$(printf 'erosion,%.0s' 1 2 3 4 5)
  ffmpeg_quietly -i "$out/photograph.png" -vf "crop=${alpha_size/x/:}:980:330" \
    -pix_fmt rgb24 "$out/key-subject.png"
  ffmpeg_quietly -i "$out/key-subject.png" -vf \
    "format=gbrp,geq=r='$brightest':g='$brightest':b='$brightest',$grow$shrink""gblur=sigma=1.2" \
    -pix_fmt rgb24 "$out/key-true-mask.png"
  ffmpeg_quietly -i "$out/key-true-mask.png" -vf \
    "format=gray,lutyuv=y='if(gt(val,0)*lt(val,255),255,0)'" -pix_fmt gray "$out/key-edges.png"
  ffmpeg_quietly -f lavfi -i "color=0x$alpha_screen:s=$alpha_size,format=gbrp" -frames:v 1 \
    -pix_fmt rgb24 "$out/key-screen.png"
  ffmpeg_quietly \
    -i /usr/share/libjxl-testdata/external/wesaturate/500px/cvo9xd_keong_macan_srgb8.png \
    -vf "scale=1000:1000:flags=lanczos,crop=${alpha_size/x/:}" -pix_fmt rgb24 "$out/key-behind.png"
  ffmpeg_quietly -i "$out/key-subject.png" -i "$out/key-screen.png" -filter_complex \
    "[0]format=gbrp[a];[1]format=gbrp[b];[a][b]blend=all_expr='A*0.94+B*0.06'" \
    -pix_fmt rgb24 "$out/key-spilt.png"
  alpha_merge key-screen key-spilt key-true-mask key-shot
  alpha_merge key-behind key-subject key-true-mask key-truth
}

# alpha_row <caption> <name>...: small views of pictures, each of which links to the whole.
alpha_row() {
  local caption name
  echo '<div class="row">'
  while (($# > 0)); do
    caption=$1 name=$2
    shift 2
    page_small "$out" "$name"
    page_figure "$caption" "$name-small.jpg" "$name.png"
  done
  echo '</div>'
}

alpha_show_key() {
  local key=("$kvl" key --colour "$alpha_screen" --low 8 --high 30 --spill 60)
  local name
  alpha_make_pictures
  "${key[@]}" --mask "$out/key-shot.png" "$out/key-mask.png"
  local time
  time=$(timed "${key[@]}" --time --repeat 15 "$out/key-shot.png" "$out/key-behind.png" \
    "$out/key-composite.png")
  ffmpeg_quietly -i "$out/key-mask.png" -i "$out/key-true-mask.png" -filter_complex \
    "[0]format=gbrp[a];[1]format=gbrp[b];[a][b]blend=all_mode=difference" -pix_fmt rgb24 \
    "$out/key-mask-error.png"
  ffmpeg_quietly -i "$out/key-composite.png" -i "$out/key-truth.png" -filter_complex \
    "[0]format=gbrp[a];[1]format=gbrp[b];[a][b]blend=all_mode=difference,\
lutrgb=r=val*$gain:g=val*$gain:b=val*$gain" -pix_fmt rgb24 "$out/key-composite-error.png"
  for name in key-shot key-composite key-truth; do
    ffmpeg_quietly -i "$out/$name.png" -vf "crop=$alpha_edges,scale=iw*4:-2:flags=neighbor" \
      "$out/$name-edge.png"
  done
  # The loss of a composite that is keyed without a soft edge and without care for spill.
  "$kvl" key --colour "$alpha_screen" --low 30 --high 30 --spill 0 "$out/key-shot.png" \
    "$out/key-behind.png" "$out/key-hard.png"

  echo '<h2 id="key">Colour key with spill suppression</h2>'
  echo "<p>The flower of the photograph, cut out with a soft edge, stands before a green screen that
casts 6 per cent of its colour on it. The key finds the mask again, takes the green out and puts the
flower over another photograph; the true composite shows what should come out.</p>"
  echo "<pre>$(escape_html "${key[*]} $out/key-shot.png $out/key-behind.png $out/key-composite.png")
$(escape_html "$time")</pre>"
  alpha_row "Before the screen" key-shot "Over another background" key-composite \
    "The true composite" key-truth
  alpha_row "The mask" key-mask "The true mask" key-true-mask "Their difference" key-mask-error
  echo '<div class="row">'
  page_figure "Edges before the screen" key-shot-edge.png key-shot.png
  page_figure "Edges of the composite" key-composite-edge.png key-composite.png
  page_figure "Edges of the true composite" key-truth-edge.png key-truth.png
  echo '</div>'
  cat << HTML
<table>
<tr><th>Compared with the truth<th>all pixels<th>soft edges alone
<tr><td>Mask, mean error<td>$(alpha_mean key-mask-error |
    awk '{ printf "%.1f %%", 100 * $1 }')<td>
<tr><td>Mask, PSNR<td>$(alpha_psnr key-mask key-true-mask) dB<td>$(alpha_psnr key-mask \
    key-true-mask key-edges) dB
<tr><td>Composite, PSNR<td>$(alpha_psnr key-composite key-truth) dB<td>$(alpha_psnr key-composite \
    key-truth key-edges) dB
<tr><td>Composite of a hard key that keeps the spill, PSNR<td>$(alpha_psnr key-hard \
    key-truth) dB<td>$(alpha_psnr key-hard key-truth key-edges) dB
</table>
HTML
}

# The shot drifts past a background that stands still.
alpha_show_key_clip() {
  local key=("$kvl" key --colour "$alpha_screen" --low 8 --high 30 --spill 60)
  ffmpeg_quietly -loop 1 -framerate 25 -t 3 -i "$out/key-shot.png" \
    -vf "crop=640:360:(in_w-out_w)*t/3:(in_h-out_h)*t/3" -c:v libx264 -preset veryfast -crf 12 \
    -pix_fmt yuv444p "$out/key-clip-shot.mp4"
  ffmpeg_quietly -i "$out/key-behind.png" -vf crop=640:360 -pix_fmt rgb24 \
    "$out/key-clip-behind.png"
  ffmpeg_quietly -i "$out/key-clip-shot.mp4" -pix_fmt yuv420p "$out/key-clip-before.mp4"
  timed "${key[@]}" --time "$out/key-clip-shot.mp4" "$out/key-clip-behind.png" \
    "$out/key-clip.mp4" > /dev/null
  echo '<div class="row">'
  page_video "A clip before the screen" key-clip-before.mp4
  page_video "Over another background" key-clip.mp4
  echo '</div>'
}

alpha_show_premultiply() {
  ffmpeg_quietly -i "$out/key-subject.png" -i "$out/key-true-mask.png" -filter_complex \
    "[0]format=rgba[a];[1]format=gray[m];[a][m]alphamerge" -pix_fmt rgba "$out/cut-out.png"
  "$kvl" premultiply "$out/cut-out.png" "$out/premultiplied.png"
  "$kvl" unpremultiply "$out/premultiplied.png" "$out/unpremultiplied.png"
  local name
  for name in cut-out premultiplied unpremultiplied; do
    ffmpeg_quietly -i "$out/$name.png" -pix_fmt rgb24 "$out/$name-colour.png"
  done
  echo '<h2 id="premultiply">Premultiplied alpha and back</h2>'
  echo "<pre>$(escape_html "$kvl premultiply $out/cut-out.png $out/premultiplied.png
$kvl unpremultiply $out/premultiplied.png $out/unpremultiplied.png")</pre>"
  alpha_row "The colour of the cut-out, alpha aside" cut-out-colour \
    "Premultiplied" premultiplied-colour "And back" unpremultiplied-colour
}

demo_alpha() {
  alpha_show_key
  alpha_show_key_clip
  alpha_show_premultiply
}
