#!/bin/sh
# Start to end of one `quil call` beside `sqlite3 :memory: 'select 1'`, in turns, best and mean of the rounds.
#
#     bench/startup_bench.sh [BUILD_FOLDER] [ROUNDS]
set -eu
build=${1:-build/release}
rounds=${2:-100}
for program in "$build/quil" sqlite3 python3; do
    command -v "$program" >/dev/null || { echo "startup_bench: $program is missing" >&2; exit 1; }
done
exec python3 - "$build/quil" "$rounds" <<'PYTHON'
import subprocess, sys, time

quil, rounds = sys.argv[1], int(sys.argv[2])
scenario = "SCREEN|0.0087|G|OPEN|3.35|MPH|150|LBS|100|F||||||10|MINUTES|||MI"
commands = {
    "quil call": [quil, "call", "VSTACalculatePlumeDistance", scenario],
    "sqlite3": ["sqlite3", ":memory:", "select 1"],
}
times = {name: [] for name in commands}
for _ in range(rounds):
    for name, command in commands.items():
        start = time.perf_counter()
        subprocess.run(command, check=True, stdout=subprocess.DEVNULL, stdin=subprocess.DEVNULL)
        times[name].append((time.perf_counter() - start) * 1000)
for name, values in times.items():
    values.sort()
    print(f"{name:10} best {values[0]:6.2f} ms  median {values[len(values) // 2]:6.2f} ms")
best = {name: values[0] for name, values in times.items()}
median = {name: values[len(values) // 2] for name, values in times.items()}
print(f"ratio      best {best['quil call'] / best['sqlite3']:6.2f}     median {median['quil call'] / median['sqlite3']:6.2f}"
      "     (at most 5)")
PYTHON
