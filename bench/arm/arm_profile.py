#!/usr/bin/env python3
"""arm_profile.py - helpers of scripts/bench-arm.sh around the counting plugin's block profile.

  arm_profile.py functions PROFILE BINARY [--nm NM] [--top N]
      instructions per function (the profile's blocks mapped onto BINARY's symbols), largest first
  arm_profile.py mca PROFILE BINARY --objdump OBJDUMP --triple T --cpus C1,C2
                 --kernel LABEL[:PIXELS]=SYMBOL [--kernel ...] --pixels P [--mca llvm-mca]
      for each kernel: the hot loops of the hottest function whose name contains SYMBOL (or one
      of several, SYMBOL1|SYMBOL2: a row's loops may lie in helpers the compiler kept apart; the
      innermost backward branch around its hottest block, then around the hottest block outside
      the loops found so far, while such a loop executes at least 15 % of the function's
      instructions), each fed to llvm-mca for each cpu; prints each loop's instructions,
      iterations (from the profile) and cycles per iteration, and the cycles of all of them
      together per output pixel of the PIXELS (default P) pixels the stage made, with the share
      of the function's executed instructions that the loops hold.

The binary is a static, non-PIE executable, so the profile's guest addresses are its symbol
addresses as they stand. Thumb functions' symbols carry bit 0, which is cleared.
"""
import argparse
import bisect
import collections
import re
import subprocess
import sys


def read_profile(path):
    blocks = collections.defaultdict(lambda: [0, 0])  # vaddr -> [insns per run, executions]
    with open(path) as f:
        for line in f:
            a, n, e = line.split()
            b = blocks[int(a, 16)]
            b[0] = int(n)
            b[1] += int(e)
    return blocks


def read_symbols(binary, nm):
    out = subprocess.run([nm, "-C", "--defined-only", "-S", binary], capture_output=True,
                         text=True, check=True).stdout
    syms = []
    for line in out.splitlines():
        parts = line.split(None, 3)
        if len(parts) < 4 or parts[2] not in "tTwW":
            continue
        addr = int(parts[0], 16) & ~1
        size = int(parts[1], 16)
        syms.append((addr, size, parts[3]))
    syms.sort()
    return syms


def owner(syms, starts, addr):
    i = bisect.bisect_right(starts, addr) - 1
    if i >= 0 and addr < syms[i][0] + max(syms[i][1], 1):
        return syms[i]
    return None


def short(name):
    # Template arguments and parameter lists make the names long; keep the readable part.
    name = re.sub(r"\(anonymous namespace\)::", "", name)
    depth, out = 0, []
    for ch in name:
        if ch in "(":
            if depth == 0:
                break
        out.append(ch)
    return "".join(out)[:110]


def cmd_functions(args):
    blocks = read_profile(args.profile)
    syms = read_symbols(args.binary, args.nm)
    starts = [s[0] for s in syms]
    per = collections.Counter()
    total = 0
    for addr, (n, e) in blocks.items():
        s = owner(syms, starts, addr)
        per[short(s[2]) if s else "?"] += n * e
        total += n * e
    for name, c in per.most_common(args.top):
        print(f"{c / 1e6:10.2f} M  {100.0 * c / total:5.1f} %  {name}")
    print(f"{total / 1e6:10.2f} M  total")


BRANCH = re.compile(r"^\s*([0-9a-f]+):\s+(\S.*)$")


def disassemble(objdump, binary, start, end):
    out = subprocess.run([objdump, "-d", "--no-show-raw-insn", f"--start-address={start:#x}",
                          f"--stop-address={end:#x}", binary], capture_output=True, text=True,
                         check=True).stdout
    insns = []
    for line in out.splitlines():
        m = BRANCH.match(line)
        if m:
            insns.append((int(m.group(1), 16), m.group(2).split("//")[0].split(";")[0].strip()))
    return insns


def branch_target(text):
    # "b.ne 4a2c <f+0x40>", "bne.n 1234 <...>", "cbnz x1, 4a2c <...>", "tbnz w0, #3, 1234 <...>"
    m = re.search(r"\b([0-9a-f]+) <", text)
    return int(m.group(1), 16) if m else None


def is_branch(text):
    op = text.split()[0] if text else ""
    return op.startswith("b") and not op.startswith(("bic", "bif", "bit", "bsl", "bfi", "bfx",
                                                     "bfm", "bfc")) or op.startswith(("cb", "tb"))


def hot_loops(blocks, syms, pattern, objdump, binary, share=0.1):
    """The innermost loops of the hottest function matching pattern that each execute at least
    `share` of its instructions (at most 4, none enclosing another), hottest first:
    (function, [(body, iterations), ...], share of the function's instructions they hold)."""
    cands = [s for s in syms if any(p in s[2] for p in pattern.split("|"))]
    per_fn = []
    for s in cands:
        inside = {a: ne for a, ne in blocks.items() if s[0] <= a < s[0] + s[1]}
        per_fn.append((sum(n * e for n, e in inside.values()), s, inside))
    if not per_fn:
        return None
    total, s, inside = max(per_fn, key=lambda t: t[0])
    if total == 0:
        return None
    insns = disassemble(objdump, binary, s[0], s[0] + s[1])
    backs = []
    for addr, text in insns:
        t = branch_target(text) if is_branch(text) else None
        if t is not None and t <= addr:
            backs.append((t, addr))
    loops, taken = [], []
    for addr, (n, e) in sorted(inside.items(), key=lambda kv: -kv[1][0] * kv[1][1]):
        if any(lo <= addr <= hi for lo, hi in taken):
            continue
        around = [(t, b) for t, b in backs if t <= addr <= b]
        if not around:
            continue
        lo, hi = min(around, key=lambda tb: tb[1] - tb[0])
        if any(lo <= b and a <= hi for a, b in taken):
            continue  # encloses (or overlaps) a loop already taken
        executed = sum(n2 * e2 for a2, (n2, e2) in inside.items() if lo <= a2 <= hi)
        if executed < share * total or len(loops) == 4:
            break
        taken.append((lo, hi))
        body = [text for a2, text in insns if lo <= a2 <= hi]
        runs = inside.get(lo, [0, 0])[1] or e
        loops.append((body, runs, executed))
    covered = sum(x for _, _, x in loops)
    return short(s[2]), [(b, r) for b, r, _ in loops], covered / total


INVERSE = {"eq": "ne", "ne": "eq", "cs": "cc", "hs": "lo", "cc": "cs", "lo": "hs", "mi": "pl",
           "pl": "mi", "vs": "vc", "vc": "vs", "hi": "ls", "ls": "hi", "ge": "lt", "lt": "ge",
           "gt": "le", "le": "gt"}


def to_mca(body, thumb):
    """The loop as llvm-mca input. llvm-mca does not follow branches, so each branch becomes one
    to a local label (objdump's targets are not assembler syntax); in Thumb code, whose branches
    llvm-mca's assembler cannot resolve, branches are left out, and IT blocks become their
    instructions without the condition (llvm-mca takes no IT instruction). Calls, and the register
    saves of a function's entry or exit that a loop may hold, are left out."""
    lines = ["1:"]
    conds = []  # conditions of the instructions still inside an IT block
    for text in body:
        parts = text.split(None, 1)
        op = parts[0] if parts else ""
        m = re.fullmatch(r"it([te]{0,3})", op)
        if m and len(parts) > 1:
            c = parts[1].strip()
            conds = [c] + [c if x == "t" else INVERSE.get(c, c) for x in m.group(1)]
            continue
        if conds:
            c = conds.pop(0)
            op = re.sub(rf"^(\w+?){c}(\.\w+)?$", r"\1\2", op)
            text = op + (" " + parts[1] if len(parts) > 1 else "")
        if op in ("bl", "blx", "push", "pop", "vpush", "vpop") or op.startswith(("cbz", "cbnz")):
            continue
        if is_branch(text) and branch_target(text) is not None:
            if thumb:
                continue
            text = re.sub(r"\b[0-9a-f]+ <[^>]*>", "1b", text)
        if thumb:
            # Width suffixes go (the assembler picks an encoding); LLVM 14's Cortex-A9 model
            # crashes on some explicitly wide loads and stores with writeback.
            text = re.sub(r"^(\w+)\.w\b", r"\1", text)
        # GNU register ranges {d16-d17} as LLVM writes them, {d16, d17}.
        text = re.sub(r"\{d(\d+)-d(\d+)\}",
                      lambda m: "{" + ", ".join(f"d{i}" for i in range(int(m.group(1)),
                                                                      int(m.group(2)) + 1)) + "}",
                      text)
        m = re.fullmatch(r"vswp(\.\w+)?\s+(\w+),\s*(\w+)", text.strip())
        if m:
            # LLVM 14's Cortex-A9 model takes no vswp: modelled as the two register moves it does.
            lines.append(f"\tvorr\t{m.group(2)}, {m.group(3)}, {m.group(3)}")
            text = f"vorr\t{m.group(3)}, {m.group(2)}, {m.group(2)}"
        lines.append("\t" + text)
    return "\n".join(lines) + "\n"


def cmd_mca(args):
    blocks = read_profile(args.profile)
    syms = read_symbols(args.binary, args.nm)
    starts = [s[0] for s in syms]
    cpus = args.cpus.split(",")
    thumb = args.triple.startswith("thumb")
    if not args.no_header:
        print(f"{'row':30} {'insns':>11} {'iterations':>15} {'held':>5}" +
              "".join(f" {c:>24}" for c in cpus))
    for entry in args.kernel:
        label, pattern = entry.split("=", 1)
        pixels = args.pixels
        if ":" in label:
            label, px = label.split(":", 1)
            pixels = float(px)
        found = hot_loops(blocks, syms, pattern, args.objdump, args.binary)
        if found is None or not found[1]:
            print(f"{label:34} (no loop found for {pattern})")
            continue
        name, loops, coverage = found
        cells = []
        for cpu in cpus:
            total, failed = 0.0, False
            per_iter = []
            for body, runs in loops:
                cmd = [args.mca, f"-mtriple={args.triple}", f"-mcpu={cpu}", "-iterations=200"]
                if args.mattr:
                    cmd.append(f"-mattr={args.mattr}")
                r = subprocess.run(cmd, input=to_mca(body, thumb), capture_output=True,
                                   text=True)
                m = re.search(r"Total Cycles:\s+(\d+)", r.stdout)
                if r.returncode != 0 or not m:
                    failed = True
                    if args.verbose:
                        sys.stderr.write(r.stderr[:2000])
                    break
                per_iter.append(int(m.group(1)) / 200.0)
                total += per_iter[-1] * runs
            if failed:
                cells.append(f" {'(mca failed)':>18}")
            else:
                its = "+".join(f"{c:.0f}" for c in per_iter)
                cells.append(f" {its + 'c':>10} {total / pixels:6.2f}c/px")
        sizes = "+".join(str(len(b)) for b, _ in loops)
        runs = "+".join(str(r) for _, r in loops)
        print(f"{label:30} {sizes:>11} {runs:>15} {100 * coverage:4.0f}%" + "".join(cells))
        if args.verbose:
            for body, _ in loops:
                sys.stderr.write(f"== {label}: {name}\n{to_mca(body, thumb)}")


def main():
    p = argparse.ArgumentParser()
    sub = p.add_subparsers(dest="cmd", required=True)
    f = sub.add_parser("functions")
    f.add_argument("profile")
    f.add_argument("binary")
    f.add_argument("--nm", default="nm")
    f.add_argument("--top", type=int, default=25)
    m = sub.add_parser("mca")
    m.add_argument("profile")
    m.add_argument("binary")
    m.add_argument("--nm", default="nm")
    m.add_argument("--objdump", required=True)
    m.add_argument("--mca", default="llvm-mca")
    m.add_argument("--triple", required=True)
    m.add_argument("--cpus", required=True)
    m.add_argument("--kernel", action="append", default=[])
    m.add_argument("--pixels", type=float, required=True)
    m.add_argument("--mattr", default="")
    m.add_argument("--no-header", action="store_true")
    m.add_argument("--verbose", action="store_true")
    args = p.parse_args()
    if args.cmd == "functions":
        cmd_functions(args)
    else:
        cmd_mca(args)


if __name__ == "__main__":
    main()
