#!/usr/bin/env python3
"""Includes run only downward: layers.py SRC. Each folder under SRC is a layer
of its tier; a file may include its own layer and any layer of a lower tier,
never one of its own tier or above."""
import pathlib
import re
import sys

TIERS = [["fs"], ["version"], ["components"], ["dataset"], ["startup"],
         ["kavdata/zones", "kavdata/walks"], ["kavdata/device"], ["kavdata/archives"],
         ["kavdata/judgement"], ["kavdata/writers", "kavdata/reports", "kavdata/building"],
         ["kavdata"]]
TIER = {layer: rank for rank, layers in enumerate(TIERS) for layer in layers}


def layer(path):
    return str(path.parent) if str(path.parent) in TIER else None


def main(src):
    src, wrong = pathlib.Path(src), []
    for file in sorted(src.rglob("*.[ch]*")):
        own = layer(file.relative_to(src))
        if own is None:
            wrong.append(f"{file}: in no layer")
            continue
        for included in re.findall(r'^#include "([^"]+)"', file.read_text(), re.M):
            other = layer(pathlib.Path(included))
            if other != own and (other is None or TIER[other] >= TIER[own]):
                wrong.append(f"{file.relative_to(src)} ({own}) includes {included}")
    print(*wrong, sep="\n")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
