#!/usr/bin/env python3
"""Measures `quil rpc`: pipelined requests a second, resident memory as requests go by, and the round trip of one request
beside that of the same line through `cat`.

    bench/rpc_bench.py [QUIL]       the program; by default build/release/quil beside this folder
"""

import json
import os
import statistics
import subprocess
import sys
import threading
import time

BATCH = 100_000
LONG_RUN = 1_000_000
ROUND_TRIPS = 5_000
REQUEST = {"jsonrpc": "2.0", "id": 1, "method": "call", "params": {"name": "NoSuchFunction", "parameter": "short"}}
PLUME = {"jsonrpc": "2.0", "id": 1, "method": "call",
         "params": {"name": "VSTACalculatePlumeDistance",
                    "parameter": "SCREEN|0.0087|G|OPEN|3.35|MPH|150|LBS|100|F||||||10|MINUTES|||MI"}}


def line_of(request):
    return (json.dumps(request, separators=(",", ":")) + "\n").encode()


def start(command):
    return subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, bufsize=0)


def round_trip(process, line):
    os.write(process.stdin.fileno(), line)
    answer = b""
    while not answer.endswith(b"\n"):
        answer += os.read(process.stdout.fileno(), 1 << 16)
    return answer


def pipelined(process, line, count):
    """Seconds that `count` requests take when nobody waits for answers before the next request."""
    block = line * 1000

    def write():
        for _ in range(count // 1000):
            view = memoryview(block)
            while view:
                view = view[os.write(process.stdin.fileno(), view):]

    begin = time.perf_counter()
    writer = threading.Thread(target=write)
    writer.start()
    answers = 0
    while answers < count:
        answers += os.read(process.stdout.fileno(), 1 << 20).count(b"\n")
    writer.join()
    return time.perf_counter() - begin


def resident_kib(process):
    with open(f"/proc/{process.pid}/status", encoding="ascii") as status:
        return next(int(row.split()[1]) for row in status if row.startswith("VmRSS:"))


def check(process, request, wanted):
    answer = json.loads(round_trip(process, line_of(request)))
    if answer.get("result", {}).get("text") != wanted:
        sys.exit(f"unexpected answer: {answer}")


def main():
    beside = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "build", "release", "quil")
    program = sys.argv[1] if len(sys.argv) > 1 else beside
    rpc = start([program, "rpc"])
    cat = start(["cat"])
    round_trip(rpc, line_of({"jsonrpc": "2.0", "id": 1, "method": "initialize"}))
    check(rpc, REQUEST, "Function name does not match a supported function.")
    check(rpc, PLUME, "1.9")

    line = line_of(REQUEST)
    best = min(pipelined(rpc, line, BATCH) for _ in range(5))
    print(f"pipelined call:            {BATCH / best:12,.0f} requests/s")
    best = min(pipelined(rpc, line_of(PLUME), BATCH // 10) for _ in range(3))
    print(f"pipelined plume distance:  {BATCH / 10 / best:12,.0f} requests/s")

    fresh = start([program, "rpc"])
    round_trip(fresh, line_of({"jsonrpc": "2.0", "id": 1, "method": "initialize"}))
    pipelined(fresh, line, BATCH)
    early = resident_kib(fresh)
    pipelined(fresh, line, LONG_RUN - BATCH)
    print(f"resident after {BATCH:9,}:  {early:12,} KiB")
    print(f"resident after {LONG_RUN:9,}:  {resident_kib(fresh):12,} KiB")

    # On one processor the figures are the programs' own; on all of them the system's choice of one adds to both.
    every = os.sched_getaffinity(0)
    for title, processors in (("one processor", {min(every)}), ("all processors", every)):
        for pid in (0, rpc.pid, cat.pid):
            os.sched_setaffinity(pid, processors)
        times = {"quil rpc": [], "cat": []}
        for _ in range(ROUND_TRIPS):  # in turns, so that both meet the same load
            for name, process in (("quil rpc", rpc), ("cat", cat)):
                begin = time.perf_counter()
                round_trip(process, line)
                times[name].append(time.perf_counter() - begin)
        ours, theirs = (statistics.median(times[name]) * 1e6 for name in ("quil rpc", "cat"))
        print(f"round trip, {title}: quil rpc {ours:.1f} us, cat {theirs:.1f} us (medians), {ours / theirs:.2f} times")
    for process in (rpc, cat, fresh):
        process.stdin.close()
        process.wait()


main()
