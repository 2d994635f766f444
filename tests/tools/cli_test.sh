#!/usr/bin/env bash
# Runs the built kqupscale tool on good and bad input and checks exit codes,
# error lines, output sizes, and that no partial output is left behind.
# Usage: cli_test.sh <path to kqupscale> <scratch folder> <path to make_test_jpeg>
set -u
tool=$1
work=$2
make_jpeg=$3
unset KQ_LOG KQ_STAGE_TIMING
rm -rf "$work" && mkdir -p "$work" && cd "$work" || exit 1
passed=0
failed=0

ok() { passed=$((passed + 1)); }
bad() { failed=$((failed + 1)); echo "FAIL: $*"; }

# PNG width and height from the IHDR chunk.
png_size() { od -An -tu1 -j16 -N8 "$1" | awk '{printf "%dx%d", $1*16777216+$2*65536+$3*256+$4, $5*16777216+$6*65536+$7*256+$8}'; }

# Unsigned byte at an offset of a file.
byte_at() { od -An -tu1 -j"$2" -N1 "$1" | tr -d ' '; }

# Good runs from standard input, one a line: a check, evaluated once the
# tool has succeeded; the arguments (run with -q).
expect_outputs() {
  local check args
  while IFS=';' read -r check args; do
    # shellcheck disable=SC2086
    "$tool" $args -q </dev/null && eval "$check" && ok || bad "$args: $check"
  done
}

# Bad runs from standard input, one a line: name | output glob | what the
# error line must say (may be empty) | arguments. Each must exit non-zero
# with exactly one stderr line starting with "kqupscale: error:", and leave
# nothing matching the glob (nor a temporary file).
expect_errors() {
  local name glob says args
  while IFS='|' read -r name glob says args; do
    # shellcheck disable=SC2086
    if "$tool" $args </dev/null >stdout.txt 2>stderr.txt; then bad "$name: exit status 0"
    elif [[ $(wc -l <stderr.txt) -ne 1 ]] || ! grep -q '^kqupscale: error: ' stderr.txt ||
         ! grep -q -- "$says" stderr.txt; then bad "$name: wrong error line: $(cat stderr.txt)"
    elif compgen -G "$glob" >/dev/null || compgen -G "*.tmp-*" >/dev/null; then
      bad "$name: left output behind: $(ls | tr '\n' ' ')"
    else ok; fi
  done
}

# --- good runs ------------------------------------------------------------
if "$tool" --help | grep -q "Examples:"; then ok; else bad "--help shows no examples"; fi

if "$tool" --demo --demo-dir demo --threads 2 >demo.txt 2>&1 &&
   [[ $(png_size demo/demo_input.png) == 640x480 ]] &&
   [[ $(png_size demo/demo_output.png) == 2560x1920 ]] && [[ -s demo/demo_compare.png ]] &&
   grep -q "output MP/s" demo.txt && grep -q "^ *0  input planes split" demo.txt; then ok
else bad "demo: $(cat demo.txt)"; fi

# JPEG inputs the tool cannot write: odd sizes are enlarged whole (641x481
# at 2x is 1282x962, not 1280x960; at 3x 1923x1443 rounds up to 1924x1444),
# CMYK comes out in its colours.
cp demo/demo_input.png in.png
"$make_jpeg" odd.jpg 641 481 rgb && "$make_jpeg" cmyk.jpg 64 48 cmyk || bad "make_test_jpeg"
expect_outputs <<'EOF'
[[ $(png_size out2.png) == 1280x960 ]];in.png -o out2.png --scale 2
[[ $(head -c 3 out.jpg | od -An -tx1 | tr -d ' ') == ffd8ff ]];in.png -o out.jpg --out-size 800x600
[[ $(png_size back.png) == 1200x900 ]];out.jpg -o back.png --scale 1.5
[[ $(stat -c %s frame.nv21) -eq $((640 * 480 * 3 / 2)) ]];in.png -o frame.nv21 --roi 0,0,320,240 --scale 2
[[ $(stat -c %s big.nv12) -eq $((1280 * 720 * 3 / 2)) ]];frame.nv21 --size 640x480 -o big.nv12 --out-size 1280x720
[[ $(png_size odd.png) == 1282x962 ]];odd.jpg -o odd.png
[[ $(png_size odd3.png) == 1924x1444 ]];odd.jpg -o odd3.png --scale 3
[[ $(png_size odd15.png) == 962x722 ]];odd.jpg -o odd15.png --scale 1.5
[[ $(png_size odd_fixed.png) == 800x600 ]];odd.jpg -o odd_fixed.png --out-size 800x600
[[ -s photo.jpg ]];demo/demo_output.png -o photo.jpg --scale 1
EOF
# A padded raw input (stride 704) gives the same result as the packed one.
if python3 -c 'd = open("frame.nv21", "rb").read()
open("padded.nv21", "wb").write(b"".join(d[i * 640:i * 640 + 640] + b"\x11" * 64 for i in range(720)))'
then
  expect_outputs <<'EOF'
[[ -s q.nv21 ]];frame.nv21 --size 640x480 -o q.nv21 --scale 1.5
cmp -s p.nv21 q.nv21;padded.nv21 --size 640x480 --stride 704 -o p.nv21 --scale 1.5
EOF
fi
mkdir -p outdir
"$tool" in.png out2.png -o outdir/ --scale 0.5 >multi.txt 2>&1 &&
  [[ -f outdir/in_kq.png && -f outdir/out2_kq.png ]] && grep -q '\[2/2\]' multi.txt &&
  grep -q ' -> outdir/in_kq.png: 320x240 ' multi.txt && ok || bad "several inputs: $(cat multi.txt)"

# A region with an odd left or top keeps its colours: the tool moves the
# corner to even (an odd left would exchange U and V, red turning blue).
# Picture: red, green, blue and yellow quadrants. The chroma at the middle of
# each quadrant of the output must be that colour's (V,U) in BT.601 limited
# range, within 24. Table: name | --roi | raw output (its byte order).
"$make_jpeg" quad.jpg 64 48 quad || bad "make_test_jpeg quad"
colours=("237,90" "34,54" "110,237" "143,16")  # (V,U) of red, green, blue, yellow
while IFS='|' read -r name roi out; do
  if ! "$tool" quad.jpg --roi "$roi" -o "$out" --format "${out##*.}" -q; then
    bad "colours, $name: refused"
    continue
  fi
  IFS=, read -r _ _ rw rh <<<"$roi"
  w=$(((rw & ~3) * 2)) h=$(((rh & ~3) * 2)) seen="" wrong=0
  for q in 0 1 2 3; do
    x=$(((q % 2 * 2 + 1) * w / 4)) y=$(((q / 2 * 2 + 1) * h / 4))
    read -r v u < <(od -An -tu1 -j$((w * h + y / 2 * w + x / 2 * 2)) -N2 "$out")
    [[ $out == *.nv12 ]] && read -r v u <<<"$u $v"
    IFS=, read -r wv wu <<<"${colours[q]}"
    seen+=" $v,$u"
    ((v - wv > 24 || wv - v > 24 || u - wu > 24 || wu - u > 24)) && wrong=1
  done
  ((wrong == 0)) && ok || bad "colours, $name: (V,U)$seen; want ${colours[*]}"
done <<'EOF'
even corner|0,0,64,48|c1.nv21
odd left|1,0,60,48|c2.nv21
odd top|0,1,64,44|c3.nv21
odd left and top|1,1,60,44|c4.nv21
odd left and top, NV12|3,5,56,40|c5.nv12
odd left, region to the right edge|1,0,63,48|c6.nv21
EOF
# The corner moves to even and the region keeps its size: the same bytes as
# asking for the even corner, and a line says so.
"$tool" quad.jpg --roi 1,1,60,44 -o c7.nv21 >/dev/null 2>moved.txt &&
  "$tool" quad.jpg --roi 0,0,60,44 -o c8.nv21 -q && cmp -s c7.nv21 c8.nv21 &&
  grep -q "region 1,1,60,44 starts at 0,0" moved.txt && ok || bad "odd corner: $(cat moved.txt)"

# Several inputs. Table: name | arguments | exit status | files that must
# exist | paths that must not | what the last line on standard error says
# (may be empty). The folders b1-b8 are removed before each case.
cp in.png ok1.png && cp in.png ok2.png && printf 'not a picture' >junk.png
mkdir -p a b && cp in.png a/x.png && cp in.png b/x.png
while IFS='|' read -r name args status present absent says; do
  rm -rf b1 b2 b3 b4 b5 b6 b7 b8
  # shellcheck disable=SC2086
  "$tool" $args </dev/null >batch.out 2>batch.err
  got=$? miss=""
  for f in $present; do [[ -f $f ]] || miss+=" $f missing"; done
  for f in $absent; do [[ ! -e $f ]] || miss+=" $f present"; done
  compgen -G "b?/*.tmp-*" >/dev/null && miss+=" temporary file left"
  if [[ $got -ne $status ]]; then bad "batch, $name: exit status $got: $(cat batch.err)"
  elif [[ -n $miss ]]; then bad "batch, $name:$miss"
  elif [[ -n $says ]] && ! tail -n 1 batch.err | grep -q -- "$says"; then
    bad "batch, $name: last line: $(tail -n 1 batch.err)"
  else ok; fi
done <<'EOF'
missing folders are created|ok1.png ok2.png -o b1/new/ --scale 0.5|0|b1/new/ok1_kq.png b1/new/ok2_kq.png||^kqupscale: 2 of 2 inputs written to b1/new/$
one input into a new folder|ok1.png -o b2/ --scale 0.5 -q|0|b2/ok1_kq.png||
several inputs, one file|ok1.png ok2.png -o b3.png|1||b3.png|error: 2 inputs need an output folder, and 'b3.png' is not one
several inputs, no slash|ok1.png ok2.png -o b4|1||b4|error: 2 inputs need an output folder, and 'b4' is not one
a failing input is skipped|ok1.png junk.png ok2.png -o b5/ --scale 0.5|1|b5/ok1_kq.png b5/ok2_kq.png|b5/junk_kq.png|^kqupscale: error: 1 of 3 inputs failed: junk.png; the other 2 written to b5/$
every input failing|junk.png nofile.png -o b6/ -q|1||b6/junk_kq.png b6/nofile_kq.png|^kqupscale: error: 2 of 2 inputs failed: junk.png, nofile.png$
no folder made when refused|a/x.png b/x.png -o b7/|1||b7|would both be written
folder below a file|ok1.png ok2.png -o in.png/b8/|1||in.png/b8|cannot create the output folder 'in.png/b8/'
EOF
# The failing input's own error line names it, before the summary.
"$tool" ok1.png junk.png -o b1/ -q 2>batch.err
[[ $(grep -c "^kqupscale: error: 'junk.png' is not a PNG" batch.err) -eq 1 &&
   $(wc -l <batch.err) -eq 2 ]] && ok || bad "batch error lines: $(cat batch.err)"
# Stages are listed by id with what they do; the library's own labels stay
# inside it.
"$tool" in.png -o timed.png --timing --threads 2 >timing.txt 2>&1 &&
  grep -q "^ *3  chroma warp (nearest sample) " timing.txt &&
  grep -q "^ *22    U and V interleaved" timing.txt && [[ $(grep -c " ms$" timing.txt) -ge 19 ]] &&
  ! grep -qE "warpAll|kqSetUVData|uusi|pilu|kromafiltteri" timing.txt && ok ||
  bad "--timing: $(cat timing.txt)"

# Library lines: none on standard output; the two version lines on standard
# error only with --verbose or KQ_LOG=info, and --quiet silences them.
"$tool" in.png -o log.png >log.out 2>log.err && [[ ! -s log.err ]] && ! grep -q Orvane log.out &&
  "$tool" in.png -o log.png -v >log.out 2>log.err && ! grep -q Orvane log.out &&
  [[ $(grep -c "^I/Orvane: KQ" log.err) -eq 2 ]] &&
  KQ_LOG=info "$tool" in.png -o log.png >/dev/null 2>log.err &&
  [[ $(grep -c "^I/Orvane: KQ" log.err) -eq 2 ]] &&
  KQ_LOG=info "$tool" in.png -o log.png -q >log.out 2>log.err &&
  [[ ! -s log.err && ! -s log.out ]] &&
  ok || bad "library log lines: $(cat log.out log.err)"

# CMYK: left half red (V high), right half blue (U high).
if "$tool" cmyk.jpg -o cmyk.nv21 --scale 1 -q; then
  uv=$((64 * 48 + 12 * 64))  # chroma row 12 of 24, V,U pairs
  [[ $(byte_at cmyk.nv21 $((uv + 16))) -gt 200 && $(byte_at cmyk.nv21 $((uv + 49))) -gt 200 &&
     $(byte_at cmyk.nv21 $((uv + 17))) -lt 128 && $(byte_at cmyk.nv21 $((uv + 48))) -lt 128 ]] &&
    ok || bad "CMYK colours: $(od -An -tu1 -j$uv -N64 cmyk.nv21)"
else bad "CMYK JPEG refused"; fi

# --- bad input ------------------------------------------------------------
# Cut and damaged files: a decoder that fills in grey must not get through.
printf 'this is not an image' >garbage.png
head -c 200 in.png >trunc.png
head -c $(($(stat -c %s in.png) / 2)) in.png >half.png
cp in.png crc.png && printf '\x00' | dd of=crc.png bs=1 seek=5000 conv=notrunc 2>/dev/null
size=$(stat -c %s photo.jpg)
head -c 3000 photo.jpg >trunc.jpg
head -c $((size - 2)) photo.jpg >trunc2.jpg
cp photo.jpg rst.jpg && printf '\xff\xd3' | dd of=rst.jpg bs=1 seek=$((size / 2)) conv=notrunc 2>/dev/null
mkdir -p dup
"$make_jpeg" tiny.jpg 6 4 rgb || bad "make_test_jpeg tiny"
expect_errors <<'EOF'
missing file|o1*||nofile.png -o o1.png
not a PNG|o2*||garbage.png -o o2.png
truncated PNG|o3*||trunc.png -o o3.png
truncated JPEG|o4*|truncated|trunc.jpg -o o4.png
JPEG without its end|o4*|truncated|trunc2.jpg -o o4.png
stray marker in JPEG data|o4*|corrupt|rst.jpg -o o4.png
PNG cut in its image data|o3*||half.png -o o3.png
PNG with a damaged chunk|o3*|corrupt|crc.png -o o3.png
raw length|o5*||frame.nv21 --size 640x478 -o o5.nv21
odd raw size|o6*||frame.nv21 --size 641x480 -o o6.nv21
raw without size|o7*||frame.nv21 -o o7.nv21
region outside|o8*||in.png --roi 600,400,100,100 -o o8.png
region too small|o9*||in.png --roi 0,0,3,3 -o o9.png
beyond memory bound|o10*||in.png --scale 60 -o o10.png
odd output size|o11*||in.png --out-size 801x600 -o o11.png
non-numeric|o12*||in.png --threads many -o o12.png
non-numeric scale|o13*||in.png --scale big -o o13.png
bad affinity|o15*||in.png --affinity zz -o o15.png
no input|o16*||-o o16.png
unknown output type|o14*|output format|nofile.png -o o14.bmp
output below a file|in.png.*|is not a folder|nofile.png -o in.png/x.png
missing folder of a file|nodir*|does not exist|in.png -o nodir/x.png
two inputs, one output name|dup/*|would both be written|a/x.png b/x.png -o dup/
several inputs, one output file|o19*|need an output folder|in.png out2.png -o o19.png
output the library refuses|o20*|refused by the library|in.png --out-size 2560x8 -o o20.png
scale too small|o21*|too small to enlarge|tiny.jpg --scale 0.5 -o o21.png
EOF
# A write that fails part way (a file size limit, its signal ignored so that
# write() reports EFBIG) leaves neither the output nor its temporary file.
printf '#!/usr/bin/env bash\nulimit -f 16; trap "" XFSZ; exec "%s" "$@"\n' "$tool" >limited.sh
chmod +x limited.sh
tool_saved=$tool tool=./limited.sh
expect_errors <<<'write error|o18*|cannot write|in.png --scale 2 -o o18.png'
tool=$tool_saved
# Values that are not usable numbers or sizes, and switches that contradict.
n=0
expect_errors < <(for args in "--scale nan" "--scale -nan" "--scale inf" "--scale 1e999" "--scale 0x10" \
            "--sharpen nan" "--sharpen -inf" "--out-size -640x-480" "--out-size 0x480" \
            "--out-size 99999999999x480" "--size -64x48" "--roi 0,0,8,8,8" "-q -v"; do
  n=$((n + 1))
  echo "bad value: $args|o17_$n.*||in.png $args -o o17_$n.png"
done)

echo "cli: $passed passed, $failed failed"
[[ $failed -eq 0 ]]
