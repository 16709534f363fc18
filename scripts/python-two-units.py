#!/usr/bin/env python3
"""Two units calibrated at once by two Python threads against one after the other.

Renders two 8-pair chessboard sets of the example rig (seeds 1 and 2, 4000 x 3000 by default), calibrates each with
qlm.calibrate_chart on its own, then both from two threads at once, and prints the times and their ratio (at once
over one after the other; 0.5 would be two processors fully used).

    PYTHONPATH=build/python /usr/bin/python3 scripts/python-two-units.py [--size 4000x3000] [--pairs 8]
"""
import argparse
import os
import tempfile
import threading
import time

import qlm


def calibrate(unit, params, folder, name):
    result = qlm.calibrate_chart(unit, params=params, pictures_dir=os.path.join(folder, name), folds=10)
    if not result.calibrated:
        raise SystemExit(f"{name}: did not calibrate")
    return result


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--size", default="4000x3000")
    parser.add_argument("--pairs", type=int, default=8)
    options = parser.parse_args()
    size = tuple(int(side) for side in options.size.split("x"))
    units = [qlm.synth_chart(pairs=options.pairs, size=size, seed=seed) for seed in (1, 2)]
    with tempfile.TemporaryDirectory() as folder:
        params = os.path.join(folder, "params.txt")
        with open(params, "w") as file:
            file.write(units[0].params)

        start = time.perf_counter()
        for k, unit in enumerate(units):
            calibrate(unit.pairs, params, folder, f"sequential{k}")
        sequential = time.perf_counter() - start

        threads = [threading.Thread(target=calibrate, args=(unit.pairs, params, folder, f"parallel{k}"))
                   for k, unit in enumerate(units)]
        start = time.perf_counter()
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        parallel = time.perf_counter() - start

    print(f"two units of {options.pairs} pairs at {options.size} on {os.cpu_count()} processors")
    print(f"one after the other: {sequential:.2f} s")
    print(f"two threads at once: {parallel:.2f} s")
    print(f"ratio:               {parallel / sequential:.3f}")


if __name__ == "__main__":
    main()
