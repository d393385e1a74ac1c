#!/usr/bin/env python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""Lines and branches that the tests run, for each part of the tree, and whether they are as many as they were.

    release/coverage.py SUMMARY.json        as gcovr --json-summary writes it

A floor is what was reached: a change that goes below it wants a test. Exit status 1 when one is missed.
"""
import json
import re
import sys

# Name, the files, and the per cent of lines and of branches below which it may not fall. What no test reaches: guards behind
# libucsi's own checks, starts that are stopped while they wait for the lock, the CRC_32 for other processors, exhausted memory
# of the C++ library. Where threads race it differs from run to run by a few tenths.
PARTS = [
    ("readers", r"Src/(orva_si_(bytes|loops)|dvbtables/orva_si_(codec|descr|tablelinks))[._]", 100, 99),
    ("dispatcher", r"Src/orva_si_(model|modelhelper)\.", 100, 99),
    ("stores", r"Src/orva_si_(modellistimpl|tableindex|recordindex|eitsummary|list|alloc|limits)[._]", 100, 96.5),
    ("getters", r"Src/dvbtables/", 99.9, 97),
    ("filters", r"Src/orva_si_sectflt", 98.5, 92.8),
    ("the library", r"Src/", 99.4, 96),
    ("demultiplexer", r"demux/", 97.5, 91),
    ("platform", r"platform/", 96, 87),
    ("tool", r"tools/orva-si/", 96, 81),
]


def share(files, what):
    covered = sum(each[f"{what}_covered"] for each in files)
    total = sum(each[f"{what}_total"] for each in files)
    return covered, total, 100 * covered / total if total else 100.0


def main():
    with open(sys.argv[1], encoding="utf-8") as summary:
        files = json.load(summary)["files"]
    missed = []
    sums = []
    print(f"{'':15}{'lines':>20}{'floor':>8}{'branches':>22}{'floor':>8}")
    for name, pattern, line_floor, branch_floor in PARTS:
        those = [each for each in files if re.match(pattern, each["filename"])]
        if not those:
            missed.append(f"{name}: no files")
            continue
        lines, all_lines, of_lines = share(those, "line")
        branches, all_branches, of_branches = share(those, "branch")
        print(f"{name:15}{of_lines:7.2f} % {f'({lines}/{all_lines})':>11}{line_floor:8}"
              f"{of_branches:9.2f} % {f'({branches}/{all_branches})':>11}{branch_floor:8}")
        if of_lines < line_floor or of_branches < branch_floor:
            missed.append(f"{name}: below its floor")
        sums.append(f"{name} {of_lines:.1f}/{of_branches:.1f}")
    print("; ".join(missed or sums))
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
