#!/usr/bin/env bash
# Peak memory of one chart run over many 4000x3000 pairs, against the pair
# count: renders 10 pairs (JPEG captures), writes N pairs as copies that each
# differ by a small noise patch in one image corner (the tool refuses a
# repeated pair), and runs qlm-calib chart over the first 20, 100 and N
# through a pair list, printing the peak resident set size and the time of
# each run.
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
for n in 20 100 "$pairs"; do
  head -n "$n" "$work/pairs.txt" > "$work/pairs_$n.txt"
  /usr/bin/time -f "pairs $n: peak RSS %M KB, %e s" "$tool" chart --params "$work/params.txt" \
    --pairs "$work/pairs_$n.txt" --pictures-dir "$work/pics" 2>&1 > "$work/run_$n.log" | tail -1
done
