#!/usr/bin/env python3
"""Two units calibrated at once by two Python threads against one after the other.

Renders two 8-pair chessboard sets of the example rig (seeds 1 and 2, 4000 x 3000 by default), calibrates each with
qlm.calibrate_chart on its own, then both from two threads at once, and prints the times and their ratio (at once
over one after the other; 0.5 would be two processors fully used). Each unit is calibrated --repeat times in a row
to lift the times above the noise. A control runs the same comparison on SHA-256 hashing, which also releases the
GIL: its ratio says how many processors the machine had free at the time.

    PYTHONPATH=build/python /usr/bin/python3 scripts/python-two-units.py [--size 4000x3000] [--pairs 8] [--repeat 3]
"""
import argparse
import hashlib
import os
import tempfile
import threading
import time

import qlm


def at_once_and_in_turn(work):
    """Times of work(0) then work(1), of both in two threads at once, and the processors the process used
    meanwhile (its processor time over the time taken)."""
    start = time.perf_counter()
    work(0)
    work(1)
    in_turn = time.perf_counter() - start
    threads = [threading.Thread(target=work, args=(k,)) for k in (0, 1)]
    start, processor = time.perf_counter(), time.process_time()
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    at_once = time.perf_counter() - start
    return in_turn, at_once, (time.process_time() - processor) / at_once


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--size", default="4000x3000")
    parser.add_argument("--pairs", type=int, default=8)
    parser.add_argument("--repeat", type=int, default=3)
    options = parser.parse_args()
    size = tuple(int(side) for side in options.size.split("x"))
    units = [qlm.synth_chart(pairs=options.pairs, size=size, seed=seed) for seed in (1, 2)]
    data = bytes(256 << 20)
    control = at_once_and_in_turn(lambda k: hashlib.sha256(data).digest())
    failures = []
    with tempfile.TemporaryDirectory() as folder:
        params = os.path.join(folder, "params.txt")
        with open(params, "w") as file:
            file.write(units[0].params)

        def calibrate(k):
            for _ in range(options.repeat):
                result = qlm.calibrate_chart(units[k].pairs, params=params,
                                             pictures_dir=os.path.join(folder, f"unit{k}"))
                if not result.calibrated:
                    failures.append(k)

        in_turn, at_once, used = at_once_and_in_turn(calibrate)
    if failures:
        raise SystemExit(f"units {sorted(set(failures))} did not calibrate")
    print(f"two units of {options.pairs} pairs at {options.size}, each calibrated {options.repeat} times, "
          f"on {os.cpu_count()} processors")
    print(f"one after the other: {in_turn:.2f} s")
    print(f"two threads at once: {at_once:.2f} s ({used:.2f} processors used)")
    print(f"ratio:               {at_once / in_turn:.3f}")
    print(f"control (SHA-256, GIL released): {control[0]:.2f} s in turn, {control[1]:.2f} s at once, "
          f"ratio {control[1] / control[0]:.3f} ({control[2]:.2f} processors used)")


if __name__ == "__main__":
    main()
