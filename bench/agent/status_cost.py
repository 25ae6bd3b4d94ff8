#!/usr/bin/env python3
"""What it costs the worker to tell of frames while nobody looks.

Has whole_path_bench of a build with that and of one without (-DPPPOEIA_STATUS=OFF) take short turns, so that whatever
else the machine does meets both: with a client a port, which repeats itself, a thousand of them, and ever new ones.
Prints medians of CPU time a frame, the median of the pairs' ratios with its standard error, and the frames that were
lost in front of each. Needs root.

Usage: status_cost.py WITH WITHOUT [PAIRS [SECONDS]]    the two whole_path_bench; 500 pairs of turns of 0.05 s
"""
import statistics
import subprocess
import sys

LOADS = (  # clients on 64 ports, frames a second (0: as fast as it goes), words
    (64, 0, 'a client a port, full speed'),
    (1000, 0, '1,000 clients, full speed'),
    (1_000_000, 0, 'ever new clients, full speed'),
    (10_000, 300_000, '10,000 clients, 300,000 frames a second'),
)


class Worker:
    def __init__(self, bench, clients, rate, seconds):
        self.process = subprocess.Popen([bench, '--worker', str(clients), '--rate', str(rate), '--seconds', str(seconds)],
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, bufsize=1)

    def turn(self):
        """CPU time a frame in ns, and the frames that were lost."""
        self.process.stdin.write('\n')
        told = self.process.stdout.readline().split()
        return float(told[0]), int(told[2])

    def end(self):
        self.process.communicate()


def compare(builds, pairs, seconds, clients, rate, words):
    workers = [Worker(build, clients, rate, seconds) for build in builds]
    for worker in workers:
        worker.turn()  # warm from here on
    figures = [[], []]
    for pair in range(pairs):
        for build in (0, 1) if pair % 2 else (1, 0):
            figures[build].append(workers[build].turn())
    for worker in workers:
        worker.end()
    times = [[cpu for cpu, _ in of] for of in figures]
    lost = [sum(frames for _, frames in of) for of in figures]
    ratios = [a / b for a, b in zip(*times) if a > 0 and b > 0]  # 0: what else went on kept the worker off its core
    error = 1.25 * statistics.stdev(ratios) / len(ratios) ** 0.5
    print(f'{words:42} {statistics.median(times[0]):7.1f} ns beside {statistics.median(times[1]):7.1f}: '
          f'{statistics.median(ratios):.3f} (+-{error:.3f}); lost {lost[0]} beside {lost[1]}', flush=True)


def main():
    if not 3 <= len(sys.argv) <= 5:
        sys.exit(__doc__)
    pairs = int(sys.argv[3]) if len(sys.argv) > 3 else 500
    seconds = float(sys.argv[4]) if len(sys.argv) > 4 else 0.05
    for load in LOADS:
        compare(sys.argv[1:3], pairs, seconds, *load)


main()
