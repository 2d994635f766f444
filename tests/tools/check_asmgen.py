#!/usr/bin/env python3
# check_asmgen.py - the chroma filter's assembly loops are the text their generators print.
#
# Each generator in scripts/asmgen/ prints one loop's asm statement lines; the loop must stand in
# src/filters/arm/chroma_neon.cpp line for line (indentation aside), so that a change to either
# side that the other does not follow fails here rather than being found by the next person who
# regenerates a loop. Also checks that every loop of the source is one that a generator prints.
#   check_asmgen.py SOURCE_ROOT
import os
import re
import subprocess
import sys

# (generator, environment) for every loop, in the order the loops stand in the source
LOOPS = [
    ("chroma_pass3_armv7.py", dict(PART="B", MODEL="a57", PRI="h")),
    ("chroma_pass3_armv7.py", dict(PART="A", MODEL="a57", PRI="h")),
    ("chroma_pass3_armv7.py", dict(PART="AL", MODEL="a57", PRI="h")),
    ("chroma_pass3_armv7.py", dict(PART="AF", MODEL="a57", PRI="h")),
    ("chroma_pass3_armv7.py", dict(PART="LE", MODEL="a57", PRI="h")),
    ("chroma_pass3_armv7.py", dict(PART="L", MODEL="a57", PRI="h")),
    ("chroma_pass3_aarch64.py", dict(PART="A")),
    ("chroma_pass3_aarch64.py", dict(PART="B2P")),
    ("chroma_pass3_aarch64.py", dict(PART="B")),
    ("chroma_pass2_armv7.py", dict(PART="B", MODEL="a57", PRI="h")),
    ("chroma_pass2_armv7.py", dict(PART="A", MODEL="a57", PRI="h")),
    ("chroma_pass2_armv7.py", dict(PART="AL", MODEL="a57", PRI="h")),
    ("chroma_pass2_armv7.py", dict(PART="AF", MODEL="a57", PRI="h")),
    ("chroma_pass2_armv7.py", dict(PART="L", MODEL="a57", PRI="h")),
    ("chroma_pass2_armv7.py", dict(PART="LF", MODEL="a57", PRI="h")),
    ("chroma_pass1_armv7.py", dict(PART="B", MODEL="a57", PRI="h")),
    ("chroma_pass1_armv7.py", dict(PART="A", MODEL="a57", PRI="h")),
    ("chroma_pass1_armv7.py", dict(PART="AL", MODEL="a57", PRI="h")),
    ("chroma_pass1_armv7.py", dict(PART="AS", MODEL="a57", PRI="h")),
    ("chroma_pass1_armv7.py", dict(PART="L", MODEL="a57", PRI="h")),
    ("chroma_pass1_armv7.py", dict(PART="LF", MODEL="a57", PRI="h")),
    ("chroma_pass2_aarch64.py", dict()),
    ("chroma_pass1_aarch64.py", dict()),
]


# Loops written by hand: a handful of loads and stores with nothing to schedule.
HAND_WRITTEN = {"takeQuarters"}  # every fourth byte of three luma rows (armv7)


def find(lines, block, start):
    """Index of the first occurrence of block in lines from start, or -1."""
    for i in range(start, len(lines) - len(block) + 1):
        if lines[i:i + len(block)] == block:
            return i
    return -1


def main():
    root = sys.argv[1]
    gen = os.path.join(root, "scripts", "asmgen")
    source = [l.strip() for l in open(os.path.join(root, "src", "filters", "arm", "chroma_neon.cpp"))]
    failures = 0
    at = 0
    covered = set()
    for script, env in LOOPS:
        name = f"{script} {' '.join(f'{k}={v}' for k, v in env.items())}".strip()
        run = subprocess.run([sys.executable, os.path.join(gen, script), "c"], capture_output=True,
                             text=True, env={**os.environ, **env})
        if run.returncode != 0:
            print(f"FAIL {name}: the generator failed\n{run.stderr}")
            failures += 1
            continue
        block = [l.strip() for l in run.stdout.splitlines() if l.strip()]
        if len(block) < 20:
            print(f"FAIL {name}: only {len(block)} lines printed")
            failures += 1
            continue
        i = find(source, block, at)
        if i < 0:
            print(f"FAIL {name}: its {len(block)} lines do not stand in chroma_neon.cpp after line {at}")
            failures += 1
            continue
        print(f"ok   {name}: lines {i + 1}-{i + len(block)}")
        covered.update(range(i, i + len(block)))
        at = i + len(block)
    # Every loop of an asm statement in the source starts with a generated block, but for the
    # short copying loops of the functions in HAND_WRITTEN.
    raw = open(os.path.join(root, "src", "filters", "arm", "chroma_neon.cpp")).read().splitlines()

    def function_of(i):
        for j in range(i, -1, -1):
            m = re.match(r"[A-Za-z].*?\b(\w+)\(", raw[j])
            if m and not raw[j].startswith(("template", "struct", "namespace")):
                return m.group(1)
        return None

    labels = [i for i, l in enumerate(source) if l == '"1:\\n\\t"']
    hand = [i for i in labels if i + 1 not in covered and function_of(i) in HAND_WRITTEN]
    labels = [i for i in labels if i not in hand]
    loose = [i + 1 for i in labels if i + 1 not in covered]
    if len(labels) != len(LOOPS) - 1 or loose:  # pass 3's means prologue has no loop
        print(f"FAIL the source has {len(labels)} loops, the list {len(LOOPS) - 1}; "
              f"loops with no generator after lines {loose}")
        failures += 1
    print(f"{len(LOOPS) - failures} of {len(LOOPS)} loops as generated" if not failures else
          f"{failures} failures")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
