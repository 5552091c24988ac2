#!/usr/bin/env python3
"""Checks the house rules that a compiler does not: who includes whom, lengths, words that do not belong."""

import os
import re
import sys

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
LONGEST_FILE = {"src": 420, "tests": 850}
LONGEST_LINE = 120
LONGEST_FUNCTION = 75  # in src; rows of data make tests longer

# What the files of a folder may include besides their own folder and the system. The first match counts.
TOOLKIT = ["libpicture", "libprores", "libbus", "libclip", "libmessages", "libconfig", "liborb", "libvanta", "catalogue"]
MAY_INCLUDE = [
    # folder                                 may include
    ("src/toolkit/libpicture",               []),
    ("src/toolkit/libprores",                []),
    ("src/toolkit/libbus",                   ["libpicture"]),
    ("src/toolkit/libclip",                  []),
    ("src/toolkit/libmessages",              []),
    ("src/toolkit/libconfig",                ["libmessages", "catalogue"]),
    ("src/toolkit/liborb",                   ["libpicture", "libprores", "libbus", "libclip"]),
    ("src/toolkit/libvanta",                 ["libclip", "libconfig", "libmessages", "liborb", "catalogue"]),
    ("src/services",                         TOOLKIT + ["services"]),
    ("src/transport",                        TOOLKIT + ["aux"]),
    ("src/aux",                              TOOLKIT + ["transport/vtrstate.h", "transport/vtrspeedflags.h"]),
    ("src/config",                           TOOLKIT),
    ("src/alarms",                           TOOLKIT + ["config", "transport/vtrstate.h"]),
    ("src/media",                            TOOLKIT),
    ("src/app",                              TOOLKIT + ["transport", "aux", "config", "alarms", "media"]),
    ("src/main",                             TOOLKIT + ["transport/vtrstate.h", "app"]),
]
PROJECT_FOLDERS = set(TOOLKIT) | {"transport", "aux", "config", "alarms", "media", "app", "main", "services"}

problems = []


def sources(*tops):
    for top in tops:
        for folder, folders, names in os.walk(os.path.join(ROOT, top)):
            folders[:] = [f for f in folders if f != "__pycache__"]
            for name in names:
                if name.endswith((".h", ".cpp")):
                    yield os.path.relpath(os.path.join(folder, name), ROOT)


def check_includes(path, lines):
    rule = next((r for r in MAY_INCLUDE if path.startswith(r[0] + "/")), None)
    if not rule:
        return
    own = rule[0].removeprefix("src/toolkit/").removeprefix("src/")
    for number, line in enumerate(lines, 1):
        match = re.match(r'#include "([^"]+)"', line)
        if not match or match[1].split("/")[0] not in PROJECT_FOLDERS:
            continue
        target = match[1]
        if target.startswith(own + "/"):
            continue
        if not any(target == allowed or target.startswith(allowed + "/") for allowed in rule[1]):
            problems.append(f"{path}:{number}: may not include {target}")


def check_lengths(path, lines):
    longest = LONGEST_FILE[path.split(os.sep)[0]]
    is_table = sum(line.lstrip().startswith("{") for line in lines) > len(lines) / 2
    if len(lines) > longest and not is_table:
        problems.append(f"{path}: {len(lines)} lines, more than {longest}")
    table = False
    for number, line in enumerate(lines, 1):
        table = "clang-format off" in line or (table and "clang-format on" not in line)
        if len(line) > LONGEST_LINE and not table:
            problems.append(f"{path}:{number}: {len(line)} columns")
    begin = None
    for number, line in enumerate(lines if path.startswith("src") else [], 1):
        if line == "{":
            begin = number
        elif line == "}" and begin:
            if number - begin - 1 > LONGEST_FUNCTION:
                problems.append(f"{path}:{begin}: a function of {number - begin - 1} lines")
            begin = None


def main():
    for path in sources("src", "tests"):
        with open(os.path.join(ROOT, path), encoding="utf-8") as file:
            lines = file.read().split("\n")
        check_lengths(path, lines)
        if path.startswith("src"):
            check_includes(path, lines)
            for number, line in enumerate(lines, 1):
                if "__FILE__" in line:
                    problems.append(f"{path}:{number}: __FILE__; records name their class's file")
                if re.search(r"\b(TODO|FIXME|XXX)\b", line):
                    problems.append(f"{path}:{number}: unfinished")
    for problem in problems:
        print(problem)
    print(f"{len(problems)} problems")
    sys.exit(1 if problems else 0)


if __name__ == "__main__":
    main()
