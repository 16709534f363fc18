#!/usr/bin/env bash
# Whether the standard deviations chart reports for T, the angles and the
# focal lengths (a jackknife of its stereo stage) match how far the results
# really scatter: renders N independent chart sets of one rig (each seed
# places its own boards and draws its own noise), calibrates each, and
# prints per parameter the mean reported standard deviation, the standard
# deviation of (result - truth) over the N runs, and their ratio.
#   scripts/uncertainty-over-renders.sh [N] [WORKDIR]    (defaults 30, /tmp/qlm-uncertainty)
#   QLM_CALIB    the qlm-calib to run (default: build/tools/qlm-calib)
set -euo pipefail
cd "$(dirname "$0")/.."
runs=${1:-30}
work=${2:-/tmp/qlm-uncertainty}
tool=${QLM_CALIB:-$PWD/build/tools/qlm-calib}

bash scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
cmake --build build --target qlm-calib

rm -rf "$work"
mkdir -p "$work"
export QLM_PICTURES_DIR="$work/pictures"
for seed in $(seq 1 "$runs"); do
  "$tool" synth chart --out "$work/set$seed" --seed "$seed" --pairs 12 --placement anywhere > /dev/null
  "$tool" chart --params "$work/set$seed/params.txt" --pairs-dir "$work/set$seed" --json "$work/set$seed.json" \
    > "$work/set$seed.log" || true
done

/usr/bin/python3 - "$work" "$runs" <<'PYTHON'
import json, math, sys
work, runs = sys.argv[1], int(sys.argv[2])
names = ["T x", "T y", "T z", "angle x", "angle y", "angle z", "fx main", "fx second"]
errors = {n: [] for n in names}
reported = {n: [] for n in names}
for seed in range(1, runs + 1):
    result = json.load(open(f"{work}/set{seed}.json"))
    truth = json.load(open(f"{work}/set{seed}/ground_truth.json"))
    if result.get("status") != 1 or "stereo_std_dev" not in result:
        continue
    sd = result["stereo_std_dev"]
    R = truth["R"]
    angles = [math.degrees(math.atan2(R[2][1], R[2][2])),
              math.degrees(math.atan2(-R[2][0], math.hypot(R[0][0], R[1][0]))),
              math.degrees(math.atan2(R[1][0], R[0][0]))]
    values = result["T"] + result["angles_deg"] + [result["K1"][0][0], result["K2"][0][0]]
    truths = truth["T"] + angles + [truth["main_camera"]["K"][0][0], truth["second_camera"]["K"][0][0]]
    sds = sd["T"] + sd["angles_deg"] + [sd["main"]["fx"], sd["second"]["fx"]]
    for n, v, t, s in zip(names, values, truths, sds):
        errors[n].append(v - t)
        reported[n].append(s)
print(f"{'parameter':<10} {'runs':>4} {'reported sd':>12} {'observed sd':>12} {'ratio':>6}")
for n in names:
    e = errors[n]
    mean = sum(e) / len(e)
    observed = math.sqrt(sum((x - mean) ** 2 for x in e) / (len(e) - 1))
    rep = sum(reported[n]) / len(reported[n])
    print(f"{n:<10} {len(e):>4} {rep:>12.5f} {observed:>12.5f} {rep / observed:>6.2f}")
PYTHON
