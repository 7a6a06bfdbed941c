#!/usr/bin/env python3
"""Adds up the results of one run of the suite.

    tally.py RESULTS-FOLDER EXECUTABLE...

RESULTS-FOLDER holds one GoogleTest XML file for each executable that came to its end. An executable without one crashed or
ran out of time, and counts as one failure. Prints, for people, the failed and the skipped cases, and on the last line the
numbers "PASSED FAILED SKIPPED".
"""
import os
import sys
import xml.etree.ElementTree as ElementTree


def main():
    folder, executables = sys.argv[1], sys.argv[2:]
    passed = failed = skipped = 0
    for executable in executables:
        try:
            root = ElementTree.parse(os.path.join(folder, executable + ".xml")).getroot()
        except (OSError, ElementTree.ParseError):
            failed += 1
            print(f"    FAILED {executable}: it did not come to its end")
            continue
        for case in root.iter("testcase"):
            name = f"{executable} {case.get('classname')}.{case.get('name')}"
            if case.find("failure") is not None:
                failed += 1
                print(f"    FAILED {name}")
            elif case.get("status") == "notrun" or case.get("result") == "suppressed":
                continue  # left out by the filter
            elif case.get("result") == "skipped" or case.find("skipped") is not None:
                skipped += 1
                reason = case.find("skipped")
                text = "" if reason is None else " ".join((reason.get("message") or reason.text or "").split())
                print(f"    skipped {name}: {text or 'no reason given'}")
            else:
                passed += 1
    print(passed, failed, skipped)


main()
