# aarch64_sched.py - the list scheduler of the aarch64 assembly generators: dependencies from
# the v registers, pointer operands (X...) and memory each instruction reads and writes, Cortex-A55
# latencies and pipe occupancy (ld4 holds the load pipe 8 cycles, fdiv the divider 10), up to two
# instructions per cycle: one NEON, one load, one integer. Operand names X... become the asm
# statement's named operands.
import os
import re
import sys

from sched_common import heights, operands, register_deps

def regs_of(tok):
    tok = tok.strip()
    m = re.match(r"v(\d+)", tok)
    return [f"v{m.group(1)}"] if m else []

def parse(text):
    op, rest, listregs, br, ops = operands(text, regs_of, r"\[[^\]]*\](, #-?\d+)?")
    reads, writes = set(), set()
    mem = None
    base = None
    if br is not None:
        base = br.split(",")[0].strip(); reads.add(base)
        for tok in br.split(",")[1:]:
            if tok.strip().startswith("X"): reads.add(tok.strip())
        if re.search(r"\], #", rest): writes.add(base)
    if op in ("ld1", "ld1r", "ld2", "ld4", "ldr", "ldur"):
        if op in ("ldr", "ldur"): writes.update(regs_of(ops[0].replace("q", "v")))
        else: writes.update(listregs)
        mem = ("load", base)
    elif op in ("st1", "st2"):
        reads.update(listregs); mem = ("store", base)
    elif op == "str":
        reads.update(regs_of(ops[0].replace("q", "v"))); mem = ("store", base)
    elif op in ("tbl", "tbx"):
        writes.update(regs_of(ops[0])); reads.update(listregs); reads.update(regs_of(ops[2]))
        if op == "tbx": reads.update(regs_of(ops[0]))
    elif op == "add" and ops[0].startswith("X"):
        writes.add(ops[0]); reads.add(ops[1])
    else:
        writes.update(regs_of(ops[0]))
        for o in ops[1:]: reads.update(regs_of(o))
        if op in ("umlal", "umlal2", "usra"): reads.update(regs_of(ops[0]))
    return op, reads, writes, mem

def lat(op):
    if op in ("ld4",): return 11
    if op in ("ld2",): return 7
    if op in ("ldr", "ldur", "ld1"): return 3
    if op in ("st1", "st2"): return 1
    if op == "fdiv": return 13
    if op == "add": return 1
    return 4

def occupancy(op):  # cycles an instruction holds its pipe (A55 model)
    if op == "ld4": return 8
    if op == "ld2": return 4
    if op == "fdiv": return 1
    return 1


def emit(prog, names=None):
    """Orders prog [(text, kind)], kind "n" (NEON) or "s" (integer), and prints it; names maps
    operand names X... to fixed registers (the others become named operands)."""
    Pp = [parse(t) + (k,) for t, k in prog]
    N = len(Pp)
    deps = register_deps(Pp, lambda j, r: lat(Pp[j][0]))
    # in place: the output stores after every load
    for i, (op, rd, wr, mem, k) in enumerate(Pp):
        if mem and mem[0] == "store" and mem[1] in ("XoutU", "XoutV"):
            for j in range(i):
                if Pp[j][3] and Pp[j][3][0] == "load": deps[i].append((j, 0))
    height = heights(deps, [lat(Pp[i][0]) for i in range(N)])
    t = [None] * N
    order = []
    cycle = 0
    loadbusy = 0
    divbusy = 0
    while len(order) < N:
        issued = 0
        cands = [i for i in range(N) if t[i] is None and
                 all(t[j] is not None and t[j] + l <= cycle for j, l in deps[i])]
        cands.sort(key=lambda i: (-height[i], i))
        usedload = usedneon = usedint = False
        for i in cands:
            op = Pp[i][0]
            if op == "fdiv" and cycle < divbusy: continue
            isload = Pp[i][3] is not None
            isint = Pp[i][4] == 's'
            if isload:
                if usedload or cycle < loadbusy: continue
                usedload = True; loadbusy = cycle + occupancy(op)
            elif isint:
                if usedint: continue
                usedint = True
            else:
                if usedneon: continue
                usedneon = True
            if op == "fdiv": divbusy = cycle + 10
            t[i] = cycle; order.append(i); issued += 1
            if issued == 2: break
        cycle += 1
    print(f"@ {N} instructions, {cycle} cycles (model)", file=sys.stderr)
    out = [prog[i][0] for i in order] if os.environ.get("NOSCHED") is None else [x[0] for x in prog]
    def fin(x):
        x = re.sub(r"X([A-Za-z]\w*)", lambda m: (names or {}).get(m.group(1), m.group(0)), x)
        return re.sub(r"X([A-Za-z]\w*)", r"%[\1]", x)
    for x in out:
        print(f'        "{fin(x)}\\n\\t"' if len(sys.argv) > 1 and sys.argv[1] == "c" else fin(x))

