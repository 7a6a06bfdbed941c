#!/usr/bin/env python3
"""Asks the plug-in how far a release of chlorine reaches, and shows what a user would have seen for a wrong input.

The program `quil` is looked up in the environment variable QUIL, else on the path.
"""

import json
import os
import subprocess
import sys

FIELDS = "SCREEN|0.0087|G|OPEN|3.35|MPH|{amount}|LBS|100|F||||||10|MINUTES|||{unit}"


class Quil:
    """One session: a plug-in on a scripted machine."""

    def __init__(self):
        self.last_id = 0
        self.process = subprocess.Popen(
            [os.environ.get("QUIL", "quil"), "rpc"], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
            encoding="utf-8")

    def request(self, method, **params):
        self.last_id += 1
        request = {"jsonrpc": "2.0", "id": self.last_id, "method": method, "params": params}
        self.process.stdin.write(json.dumps(request) + "\n")
        self.process.stdin.flush()
        line = self.process.stdout.readline()
        if not line:
            sys.exit("quil rpc ended before it answered")
        answer = json.loads(line)
        if "error" in answer:
            sys.exit(f"{method}: {answer['error']['message']}")
        return answer["result"]

    def close(self):
        self.process.stdin.close()
        return self.process.wait()


quil = Quil()
if quil.request("initialize")["code"] != 52:
    sys.exit("the plug-in did not start")

for unit in ("MI", "KM"):
    answer = quil.request("call", name="VSTACalculatePlumeDistance", parameter=FIELDS.format(amount=150, unit=unit))
    print(f"{answer['text']} {unit.lower()}")

# A wrong input is told to the user in an alert; the machine presses its button and reports what it said.
answer = quil.request("call", name="VSTACalculatePlumeDistance", parameter=FIELDS.format(amount="", unit="MI"))
print(answer["text"])
for alert in answer["alerts"]:
    print("alert:", alert["message"])

quil.request("shutdown")
sys.exit(quil.close())
