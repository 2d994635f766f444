# armv7_sched.py - the list scheduler of the armv7 assembly generators: dependencies from the
# d/q registers, integer operands (R...) and the centre and sums buffers each instruction reads
# and writes, latencies of the model named by MODEL (a9 or a57), one NEON and one integer
# instruction per cycle, highest first by critical path (PRI=h) or in program order (PRI=o).
# Operand names R... become the asm statement's named operands.
import os
import re
import sys

from sched_common import heights, operands, register_deps

def dregs(tok):
    tok = tok.strip()
    m = re.fullmatch(r"q(\d+)", tok)
    if m: k = int(m.group(1)); return [f"d{2*k}", f"d{2*k+1}"]
    m = re.fullmatch(r"d(\d+)(\[\d*\])?", tok)
    if m: return [f"d{m.group(1)}"]
    return []

def parse(text):
    op, rest, listregs, br, ops = operands(text, dregs)
    reads, writes = set(), set()
    mem = None
    if br is not None:
        base = br.split(":")[0].strip(); reads.add(base)
        if "]!" in rest: writes.add(base)
        post = re.search(r"\]\s*,\s*(R\w+)", rest)  # post-increment by a register
        if post: reads.add(post.group(1)); writes.add(base)
    if op.startswith(("vld", "ldr")):
        if op.startswith("vld"): writes.update(listregs)
        else: writes.add(ops[0])
        mem = ("load", br.split(":")[0].strip() if br is not None else None)
    elif op.startswith("vst"):
        reads.update(listregs); mem = ("store", br.split(":")[0].strip())
    elif op.startswith("vtbl"):
        d = dregs(ops[0]); writes.update(d); reads.update(listregs); reads.update(dregs(ops[2]))
    elif op.startswith(("vuzp", "vzip", "vtrn")):
        d = dregs(ops[0]) + dregs(ops[1]); writes.update(d); reads.update(d)
    elif op in ("add", "movw", "movt"):
        writes.add(ops[0]); reads.update(o for o in ops[1:] if o.startswith("R"))
        if op == "movt": reads.add(ops[0])
    else:
        d = dregs(ops[0]); writes.update(d)
        for o in ops[1:]: reads.update(dregs(o))
        for o in ops[1:]:
            if o.startswith("R"): reads.add(o.split()[0])
        if op.startswith(("vmla", "vmlal", "vsra", "vtbx")): reads.update(d)
    return op, reads, writes, mem

MODEL = os.environ.get("MODEL", "a9")
def lat(op, text):
    if MODEL == "a57":
        if op.startswith("vld4"): return 9
        if op.startswith("vld"): return 5
        if op.startswith("vst"): return 1
        if op == "ldr": return 4
        if op in ("add", "movw", "movt"): return 1
        if op.startswith(("vmull", "vmlal", "vqrdmulh")): return 5
        if op.startswith(("vtbl", "vtbx")): return 3 if text.count(",") <= 3 else 6  # 1-2 / 3-4 registers
        if op.startswith(("vmla.f32",)): return 9
        if op.startswith(("vmul.f32", "vrecps", "vrecpe", "vcvt")): return 5
        if op.startswith(("vsra", "vrshrn")): return 4
        return 3
    if op.startswith("vld4"): return 5
    if op.startswith("vld"): return 4
    if op.startswith("vst"): return 1
    if op in ("ldr",): return 3
    if op in ("add", "movw", "movt"): return 1
    if op.startswith(("vmull", "vmlal", "vsra", "vqrdmulh")): return 6
    if op.startswith(("vmla.f32",)): return 9
    if op.startswith(("vmul.f32", "vrecps", "vrecpe", "vcvt")): return 5
    if op.startswith(("vabd", "vrshrn", "vtbl", "vtbx")): return 4
    return 3


def emit(prog):
    """Orders prog [(text, kind)], kind "n" (NEON) or "s" (integer), and prints it."""
    P = [parse(t) + (k,) for t, k in prog]
    N = len(P)
    def latency(j, r):
        # a walking pointer is written back a cycle after its load issues
        if r.startswith(("RP", "RO")) and P[j][0].startswith(("vld", "vst")): return 1
        return lat(P[j][0], prog[j][0])
    deps = register_deps(P, latency)
    # buffer stores before buffer loads
    laststore = {}
    for i, (op, rd, wr, mem, k) in enumerate(P):
        if mem:
            if mem[0] == "load" and mem[1] in ("RB", "RB16", "RB32"):
                for b, j in laststore.items(): deps[i].append((j, 1))
            if mem[0] == "store":
                laststore[mem[1]] = i
    # stores to the output come after every load of the step (in-place operation)
    for i, (op, rd, wr, mem, k) in enumerate(P):
        if mem and mem[0] == "store" and mem[1] not in ("RB", "RB32"):
            for j in range(i):
                if P[j][3] and P[j][3][0] == "load": deps[i].append((j, 0))
    height = heights(deps, [lat(P[i][0], prog[i][0]) for i in range(N)])

    done = [False] * N
    order = []
    cycle = 0
    sched_time = [None] * N
    while len(order) < N:
        for kind in ('n', 's'):
            cands = [i for i in range(N) if not done[i] and P[i][4] == kind and
                     all(sched_time[j] is not None and sched_time[j] + l <= cycle for j, l in deps[i])]
            if cands:
                i = max(cands, key=(lambda i: (height[i], -i)) if os.environ.get("PRI","h")=="h" else (lambda i: -i))
                done[i] = True; sched_time[i] = cycle; order.append(i)
        cycle += 1
    print(f"@ {N} instructions, {cycle} cycles (model)", file=sys.stderr)
    def fin(t):
        for a, b in (("RWL", "%[wl]"), ("RWR", "%[wr]"), ("RB16", "%[B16]"), ("RB32", "%[B32]"),
                     ("RB", "%[B]"), ("RR", "%[R]"), ("RS", "%[S]"), ("RF", "%[F]"),
                     ("RCW1", "%[cw1]"), ("RCW", "%[cw]"), ("RY", "%[y]"),
                     ("SH", "%c[s]"), ("RE", "%c[r8]")):
            t = t.replace(a, b)
        # scratch Ra-Rd, walking pointers RP0.., output pointers RO0.., held steps RH0..
        t = re.sub(r"\bR([a-d])\b", r"%[\1]", t)
        return re.sub(r"\bR([POH])(\d)\b", lambda m: f"%[{m.group(1).lower()}{m.group(2)}]", t)
    out = [fin(prog[i][0]) for i in (order if os.environ.get("NOSCHED") is None else range(N))]
    if len(sys.argv) > 1 and sys.argv[1] == "c":
        for t in out: print(f'  "{t}\\n\\t"')
    else:
        for t in out: print(t)

