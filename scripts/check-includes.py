#!/usr/bin/env python3
"""Fails when files include each other in a circle; a header and its source count as one.

With --graph it prints which folder includes which, as docs/architecture.md has it."""
import graphlib
import os
import re
import subprocess
import sys


def unit(path):
    return os.path.splitext(path)[0]


def includes():
    """unit: the units that it includes"""
    files = subprocess.run(["git", "ls-files", "*.h", "*.cpp"], check=True, capture_output=True,
                           text=True).stdout.split()
    found = {}
    for path in files:
        with open(path, encoding="utf-8") as file:
            names = re.findall(r'^#include "([^"]+)"', file.read(), re.MULTILINE)
        known = {unit(name) for name in names if name in files}
        found.setdefault(unit(path), set()).update(known - {unit(path)})
    return found


def main():
    graph = includes()
    try:
        graphlib.TopologicalSorter(graph).prepare()
    except graphlib.CycleError as error:
        sys.exit("check-includes.py: a circle: " + " -> ".join(error.args[1]))
    if sys.argv[1:] == ["--graph"]:
        folders = {}
        for user, used in graph.items():
            mine = os.path.dirname(user)
            folders.setdefault(mine, set()).update(
                {os.path.dirname(name) for name in used} - {mine})
        for folder, used in sorted(folders.items()):
            if used:
                print(f"{folder:18} {', '.join(sorted(used))}")


main()
