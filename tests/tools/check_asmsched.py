#!/usr/bin/env python3
# check_asmsched.py - the chroma filter's generated assembly loops keep every dependency of the
# program their generator writes.
#
# Each generator writes a step in program order and a list scheduler reorders it. This check reads
# both orders (NOSCHED=1 prints the program order) and, with its own reading of what each
# instruction reads and writes (registers, flags aside, and memory regions), fails when two
# instructions that touch the same register or memory region, one of them writing, come out in the
# other order. The scheduler's own parser is not used: a register it fails to see (a destination
# that an instruction also reads, a post-increment's step register) is what this catches.
#   check_asmsched.py SOURCE_ROOT
import os
import re
import subprocess
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from check_asmgen import LOOPS  # noqa: E402

# Mnemonics (without their type suffix) whose destination is also an input.
ACCUMULATE = {"vmla", "vmlal", "vmls", "vmlsl", "vaba", "vabal", "vsra", "vrsra", "vsli", "vsri",
              "vtbx", "vbsl", "vbit", "vbif", "umlal", "umlal2", "umlsl", "umlsl2", "usra", "ursra",
              "ssra", "srsra", "tbx", "bsl", "bit", "bif", "mla", "mls", "sli", "sri", "movt"}
# armv7 mnemonics that rewrite both their operands (and read both).
EXCHANGE = {"vuzp", "vzip", "vtrn", "vswp"}
# Base operands that address the loops' own buffers (a region each); every other base is a plane.
BUFFERS = {"B": "centres", "B16": "centres", "B32": "centres", "S": "sums", "y": "lumaW",
           "P": "rows", "PL": "rows", "PR": "rows", "Pm": "rows", "F": "flags", "wl": "right",
           "wr": "right"}


def vregs(tok):
    """The registers a vector operand names: d/q (armv7, q as two d) or v/q/d/s (aarch64)."""
    out = []
    for m in re.finditer(r"\b([dqvs])(\d+)\b(?:-([dq])(\d+))?", tok):
        kind, k = m.group(1), int(m.group(2))
        last = int(m.group(4)) if m.group(4) else k
        for i in range(k, last + 1):
            if ARCH == "armv7":
                out += [f"d{2 * i}", f"d{2 * i + 1}"] if kind == "q" else [f"d{i}"]
            else:
                out.append(f"v{i}")
    return out


def iregs(tok):
    return re.findall(r"%\w+|\b[xw]\d+\b", tok)


def effects(text):
    """(reads, writes, memory) of one instruction; memory is (region, is_store) or None."""
    # Named operands without their brackets: %[a] -> %a, %c[s] (an immediate) -> 0.
    text = re.sub(r"%c\[\w+\]", "0", text)
    text = re.sub(r"%\[(\w+)\]", r"%\1", text)
    op, rest = (text.split(None, 1) + [""])[:2]
    base_op = op.split(".")[0]
    reads, writes = set(), set()
    mem = None
    addr = re.search(r"\[([^\]]*)\](!?)(\s*,\s*(%\w+|#-?\d+))?", rest)
    listm = re.search(r"\{([^}]*)\}", rest)
    plain = re.sub(r"\{[^}]*\}|\[[^\]]*\](!?)(\s*,\s*(%\w+|#-?\d+))?", " ", rest)
    ops = [o.strip() for o in plain.split(",") if o.strip()]
    if addr:
        inside = addr.group(1).split(":")[0]
        names = iregs(inside)
        reads.update(names)
        if addr.group(2) or addr.group(3):   # writeback: pre-index "!" or a post-increment
            writes.add(names[0])
            if addr.group(4) and addr.group(4).startswith("%"):
                reads.add(addr.group(4))
        base = names[0].lstrip("%") if names else ""
        is_store = base_op.startswith(("vst", "st")) or base_op == "str"
        mem = (BUFFERS.get(base, "planes"), is_store)
    if base_op.startswith(("vld", "ld")) and base_op not in ("ldr", "ldur"):
        regs = vregs(listm.group(1))
        writes.update(regs)
        if re.search(r"\[\d+\]", listm.group(1)):   # a lane load keeps the other lanes
            reads.update(regs)
    elif base_op.startswith(("vst", "st")) and base_op != "str":
        reads.update(vregs(listm.group(1)))
    elif base_op in ("ldr", "ldur"):
        writes.update(vregs(ops[0]) or iregs(ops[0]))
    elif base_op == "str":
        reads.update(vregs(ops[0]))
    else:
        dst = vregs(ops[0]) or iregs(ops[0]) if ops else []
        writes.update(dst)
        for o in ops[1:]:
            reads.update(vregs(o) or iregs(o))
        if listm:                                    # table registers
            reads.update(vregs(listm.group(1)))
        if base_op in ACCUMULATE:
            reads.update(dst)
        if base_op in EXCHANGE:
            both = vregs(ops[1])
            writes.update(both)
            reads.update(dst)
    return reads, writes, mem


def order_of(script, env, nosched):
    run = subprocess.run([sys.executable, script], capture_output=True, text=True,
                         env={**os.environ, **env, **({"NOSCHED": "1"} if nosched else {})})
    if run.returncode != 0:
        raise RuntimeError(run.stderr)
    return [l.strip() for l in run.stdout.splitlines() if l.strip()]


def check(program, scheduled):
    """Pairs (program line, program line) that the schedule puts in the other order."""
    if sorted(program) != sorted(scheduled):
        return ["the schedule is not the program's instructions"]
    # The k-th copy of a text in the program is the k-th in the schedule (copies write the same
    # registers, so they keep their order anyway).
    where, seen = {}, {}
    for pos, t in enumerate(scheduled):
        where.setdefault(t, []).append(pos)
    pos = []
    for t in program:
        k = seen.get(t, 0)
        seen[t] = k + 1
        pos.append(where[t][k])
    eff = [effects(t) for t in program]
    bad = []
    for j in range(len(program)):
        rj, wj, mj = eff[j]
        for i in range(j):
            ri, wi, mi = eff[i]
            conflict = (wi & rj) or (ri & wj) or (wi & wj)
            if mi and mj and mi[0] == mj[0] and (mi[1] or mj[1]):
                conflict = True
            if conflict and pos[i] > pos[j]:
                bad.append(f"'{program[i]}' now after '{program[j]}'")
    return bad


def main():
    global ARCH
    gen = os.path.join(sys.argv[1], "scripts", "asmgen")
    failures = 0
    for script, env in LOOPS:
        ARCH = "armv7" if "armv7" in script else "aarch64"
        name = f"{script} {' '.join(f'{k}={v}' for k, v in env.items())}".strip()
        path = os.path.join(gen, script)
        program, scheduled = order_of(path, env, True), order_of(path, env, False)
        bad = check(program, scheduled)
        if len(program) < 20:
            bad.append(f"only {len(program)} instructions")
        if bad:
            failures += 1
            print(f"FAIL {name}: {len(bad)} dependencies reversed, e.g. {bad[0]}")
        else:
            print(f"ok   {name}: {len(program)} instructions, every dependency kept")
    print(f"{len(LOOPS) - failures} of {len(LOOPS)} loops keep their dependencies")
    return 1 if failures else 0


ARCH = "armv7"
if __name__ == "__main__":
    sys.exit(main())
