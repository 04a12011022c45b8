#!/usr/bin/env python3
"""Checks which folder uses which against the table "What includes what" of docs/architecture.md."""
import argparse
import graphlib
import os
import re
import subprocess
import sys
import tempfile

TABLE = "docs/architecture.md"
OUTSIDE = ("tests", "bench", "fuzz", "examples")  # may use all, nobody uses them


def tracked(*patterns):
    """The files of the working tree, new ones too."""
    listed = subprocess.run(["git", "ls-files", "--cached", "--others", "--exclude-standard", *patterns],
                            check=True, capture_output=True, text=True).stdout.split()
    return [path for path in listed if os.path.exists(path)]


def text_of(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def is_outside(path):
    return any(path == folder or path.startswith(folder + "/") for folder in OUTSIDE)


def listing(folders):
    return ", ".join(f"`{folder}`" for folder in sorted(folders)) or "nothing"


def included_files():
    """Header or source: the headers of this tree that it includes. A header that CMake makes of
    NAME.h.in counts as one that is there."""
    sources = {path.removesuffix(".in"): path for path in tracked("*.h", "*.cpp", "*.h.in")}
    return {name: [used for used in re.findall(r'^#include "([^"]+)"', text_of(path), re.MULTILINE)
                   if used in sources]
            for name, path in sources.items()}


def circle_of(files):
    """The first circle of units; a header and its source are one unit."""
    units = {}
    for user, used in files.items():
        unit = os.path.splitext(user)[0]
        names = {os.path.splitext(name)[0] for name in used} - {unit}
        units.setdefault(unit, set()).update(names)
    try:
        graphlib.TopologicalSorter(units).prepare()
    except graphlib.CycleError as error:
        return error.args[1]
    return None


def folders_of(files):
    """Folder: the folders that it includes, each with an example."""
    folders = {}
    for user, used in files.items():
        folder = os.path.dirname(user)
        examples = folders.setdefault(folder, {})
        for name in used:
            if os.path.dirname(name) != folder:
                examples.setdefault(os.path.dirname(name), f"{user} includes {name}")
    return {folder: used for folder, used in folders.items() if not is_outside(folder)}


def table():
    """Folder: the folders that its row names."""
    section = re.search(r"^## What includes what$(.*?)^## ", text_of(TABLE), re.MULTILINE | re.DOTALL)
    if not section:
        sys.exit(f"{TABLE} has no section \"What includes what\"")
    rows = {}
    for left, right in re.findall(r"^\|(.*)\|(.*)\|$", section[1], re.MULTILINE):
        for folder in re.findall(r"`([^`]+)`", left):
            rows[folder] = set(re.findall(r"`([^`]+)`", right))
    return rows


def differences(rows, folders):
    for folder in sorted(folders.keys() - rows.keys()):
        yield f"`{folder}` has no row; it includes {listing(folders[folder])}"
    for folder in sorted(rows.keys() - folders.keys()):
        yield f"the row of `{folder}` is of no folder with sources"
    for folder in sorted(rows.keys() & folders.keys()):
        for used in sorted(folders[folder].keys() - rows[folder]):
            yield f"the row of `{folder}` lacks `{used}`: {folders[folder][used]}"
        for used in sorted(rows[folder] - folders[folder].keys()):
            yield f"the row of `{folder}` names `{used}`, which it does not include"


def targets():
    """Library or program: the folder whose CMakeLists.txt declares it."""
    declared = {}
    for path in tracked("*CMakeLists.txt"):
        names = re.findall(r"^ *(?:va_library|add_library|add_executable)\((\w+)", text_of(path),
                           re.MULTILINE)
        declared.update({name: os.path.dirname(path) for name in names})
    return declared


def links(build):
    """The links as CMake sees them: pairs of targets. What a library hands on for others alone
    (INTERFACE) is what stands behind its headers, as the stand-in behind those of platform."""
    with tempfile.TemporaryDirectory() as folder:
        graph = os.path.join(folder, "links.dot")
        done = subprocess.run(["cmake", f"--graphviz={graph}", build], capture_output=True, text=True,
                              check=False)
        if done.returncode:
            sys.exit(f"cmake: {done.stderr}")
        edges = re.findall(r"-> \S+(.*)// (\S+) -> (\S+)$", text_of(graph), re.MULTILINE)
    return [(user, used) for style, user, used in edges if "dashed" not in style]


def wrong_links(build, rows):
    declared = targets()
    found = links(build)
    seen = {name for link in found for name in link}
    for name, folder in sorted(declared.items()):
        if not is_outside(folder) and name not in seen:
            yield (f"{build} lacks {name} of `{folder}`; configure it with all that is optional, "
                   "-DVA_MQTT=ON -DVA_VIDEO=ON")
    for user, used in found:
        folder, other = declared.get(user), declared.get(used)
        if folder not in rows or other is None or folder == other:
            continue
        if other not in rows[folder]:
            yield f"CMake links {user} of `{folder}` to {used} of `{other}`, which its row does not name"


def main():
    parser = argparse.ArgumentParser(description=__doc__, epilog=
        "No headers and sources include each other in a circle, a header and its source counting as "
        "one; a folder's row in the table names the folders that it includes, no more and no fewer; "
        "with BUILD, its libraries and programs are linked to those of these folders alone.")
    parser.add_argument("build", nargs="?", metavar="BUILD",
                        help="a configured build with all that is optional, whose links are checked")
    parser.add_argument("--graph", action="store_true", help="print the table's rows as they should be")
    options = parser.parse_args()
    files = included_files()
    folders = folders_of(files)
    if options.graph:
        for folder, used in sorted(folders.items()):
            print(f"| `{folder}` | {listing(used)} |")
        return
    rows = table()
    findings = [f"{TABLE}: {finding}" for finding in differences(rows, folders)]
    circle = circle_of(files)
    if circle:
        findings.append("a circle: " + " -> ".join(circle))
    if options.build:
        findings.extend(wrong_links(options.build, rows))
    if findings:
        sys.exit("\n".join(f"check-includes.py: {finding}" for finding in findings))


main()
