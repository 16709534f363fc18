#!/usr/bin/env bash
# Memory of one chart run over many 4000x3000 pairs, against the pair count:
# renders 10 pairs (JPEG captures), writes N pairs as copies that each differ
# by a small noise patch in one image corner (the tool refuses a repeated
# pair), and runs qlm-calib chart over the first 20, 100 and N through a pair
# list. Each run prints its peak resident set size while the pairs are read
# and searched, and the whole run's peak and time; the calibration of
# hundreds of views is OpenCV's dense solver, whose memory grows with the
# views, so runs of more than 100 pairs stop once every pair is searched.
#   scripts/memory-over-pairs.sh [N] [WORKDIR]    (defaults 1000, /tmp/qlm-memory)
set -euo pipefail
cd "$(dirname "$0")/.."
pairs=${1:-1000}
work=${2:-/tmp/qlm-memory}
tool=build/tools/qlm-calib

bash scripts/install-deps.sh
if ! dpkg -s python3-pil python3-numpy > /dev/null 2>&1; then
  sudo_cmd=()
  [[ $(id -u) -eq 0 ]] || sudo_cmd=(sudo)
  "${sudo_cmd[@]}" apt-get install -y python3-pil python3-numpy
fi
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
cmake --build build --target qlm-calib

# The pairs of an earlier run of the same size are used again.
if [[ ! -f "$work/pairs.txt" || $(wc -l < "$work/pairs.txt") -ne $pairs ]]; then
rm -rf "$work"
mkdir -p "$work"
"$tool" synth chart --out "$work/base" --pairs 10 --size 4000x3000 --jpeg 90 --seed 17 > /dev/null
/usr/bin/python3 - "$work" "$pairs" <<'EOF'
import sys
import numpy
from PIL import Image
work, count = sys.argv[1], int(sys.argv[2])
bases = [[numpy.array(Image.open(f"{work}/base/pair_{k}_{camera}.jpg")) for camera in ("main", "second")]
         for k in range(10)]
random = numpy.random.default_rng(17)
with open(f"{work}/pairs.txt", "w") as listing:
    for n in range(count):
        for camera, image in zip(("main", "second"), bases[n % 10]):
            copy = image.copy()
            copy[:8, :8] = random.integers(0, 256, (8, 8), dtype=numpy.uint8)
            Image.fromarray(copy).save(f"{work}/p{n}_{camera}.jpg", quality=95)
        listing.write(f"p{n}_main.jpg p{n}_second.jpg\n")
EOF
cp "$work/base/params.txt" "$work/params.txt"
fi
peak_kb() { awk '/VmHWM/ {print $2}' "/proc/$1/status" 2>/dev/null || echo 0; }
for n in 20 100 "$pairs"; do
  head -n "$n" "$work/pairs.txt" > "$work/pairs_$n.txt"
  start=$SECONDS
  "$tool" chart --params "$work/params.txt" --pairs "$work/pairs_$n.txt" --pictures-dir "$work/pics" \
    > "$work/run_$n.log" 2>&1 &
  run=$!
  intake=0
  while kill -0 "$run" 2> /dev/null; do
    peak=$(peak_kb "$run")
    if [[ $intake -eq 0 ]] && grep -q "^pair $n: " "$work/run_$n.log"; then
      intake=$peak
      echo "pairs $n: peak RSS $intake KB while reading and searching the pairs, $((SECONDS - start)) s"
      if [[ $n -gt 100 ]]; then kill "$run"; fi
    fi
    last=$peak
    sleep 0.5
  done
  wait "$run" || true
  [[ $n -gt 100 ]] || echo "pairs $n: peak RSS ${last} KB over the whole run, $((SECONDS - start)) s"
done
