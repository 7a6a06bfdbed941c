#!/usr/bin/env python3
"""Recomputes the calculator's distances by bisection: check.py [QUIL], over a grid of 10,080 releases of a gas."""
import itertools
import json
import math
import subprocess
import sys

RANGE, TOLERANCE = 16_000, 0.06  # metres: where the model ends; rounding to 0.1 m, and the last step

CURVES = {  # terrain and class: sigma_y = a x / sqrt(1 + b x), sigma_z = c x (1 + d x) ** e
    "OPENA": (.22, 1e-4, .2, 0, 0), "OPENB": (.16, 1e-4, .12, 0, 0), "OPENC": (.11, 1e-4, .08, 2e-4, -.5),
    "OPEND": (.08, 1e-4, .06, .0015, -.5), "OPENE": (.06, 1e-4, .03, 3e-4, -1), "OPENF": (.04, 1e-4, .016, 3e-4, -1),
    "URBANA": (.32, 4e-4, .24, .001, .5), "URBANB": (.32, 4e-4, .24, .001, .5), "URBANC": (.22, 4e-4, .2, 0, 0),
    "URBAND": (.16, 4e-4, .14, 3e-4, -.5), "URBANE": (.11, 4e-4, .08, .0015, -.5), "URBANF": (.11, 4e-4, .08, .0015, -.5)}


def distance(loc, curve, wind, pounds):
    a, b, c, d, e = CURVES[curve]
    rate = pounds / 10 / .132  # over ten minutes, in grams per second
    def excess(x):
        return rate / (math.pi * wind * (a * x / math.sqrt(1 + b * x)) * (c * x * (1 + d * x) ** e)) - loc
    low, high = 1e-9, 1e12
    while high - low > 1e-9 * high:
        middle = (low + high) / 2
        low, high = (middle, high) if excess(middle) > 0 else (low, middle)
    return high


grid = list(itertools.product([1e-4 * 2.5 ** i for i in range(14)], CURVES, [2, 2.25, 2.5, 2.75, 3],
                              [3 ** i for i in range(12)]))
fields = "|{:.12f}|G|{}|{}|MPS|{}|LBS|100|{}||||||10|MINUTES|||KM"
calls = [("initialize", {})] + [("call", {"name": "VSTAGetPlumePoints",
                                          "parameter": fields.format(loc, curve[:-1], wind, pounds, curve[-1])})
                                for loc, curve, wind, pounds in grid]
lines = "".join(json.dumps({"jsonrpc": "2.0", "id": 1, "method": m, "params": p}) + "\n" for m, p in calls)
answers = subprocess.run([*(sys.argv[1:] or ["quil"]), "rpc"], input=lines, text=True, capture_output=True, check=True)
roots = [distance(round(loc, 12), curve, wind, pounds) for loc, curve, wind, pounds in grid]
ours = [float(json.loads(a)["result"]["text"].split("\r")[0]) for a in answers.stdout.splitlines()[1:]]
off = [(root, curve) for x, root, (_, curve, _, _) in zip(ours, roots, grid) if not abs(x - root) <= TOLERANCE]
print(f"{len(grid)} releases, {sum(r <= RANGE for r in roots)} of them reach at most {RANGE} m")
print(f"{len(grid) - len(off)} distances lie within {TOLERANCE} m of the root")
print(f"{len(off)} do not; their roots begin at {min(off, default=(math.inf, ''))[0]:.0f} m")
print("of these by curve:", ", ".join(f"{c} {n}" for c in CURVES if (n := sum(o[1] == c for o in off))))
sys.exit(len(ours) != len(grid) or any(root <= RANGE for root, _ in off))
