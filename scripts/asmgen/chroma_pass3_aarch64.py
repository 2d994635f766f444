# chroma_pass3_aarch64.py - generates the assembly of the aarch64 chroma pass 3 inner steps (pass3InnerA64): 16 half-size columns, both parities.
#
# The step is written out in program order with fixed registers; a list scheduler then orders it
# for an in-order core (latencies of the core model named by MODEL, one NEON instruction and one
# load or integer instruction per cycle), keeping every register and memory dependency. The
# output is the text of the asm statement in src/filters/arm/chroma_neon.cpp:
#   PART=A python3 chroma_pass3_aarch64.py c     # the sums loop
#   PART=B2P python3 chroma_pass3_aarch64.py c   # the means loop's prologue (step 0's divisions)
#   PART=B python3 chroma_pass3_aarch64.py c     # the means loop, two steps per iteration
# Without "c" it prints plain assembly, which llvm-mca takes once the operands are named.
import os, re, sys
PART = os.environ.get("PART", "A")
prog = []
def n(t): prog.append((t, 'n'))
def s(t): prog.append((t, 's'))

P = [dict(cu="v8", cv="v10", cy="v12", w="v13", ul="v24", uh="v25", vl="v28", vh="v29"),
     dict(cu="v9", cv="v11", cy="v14", w="v15", ul="v26", uh="v27", vl="v30", vh="v31")]

if PART == "A":
    RQ = 2064
    n(f"ldr q8, [XP, #{5 * RQ}]"); n(f"ldr q9, [XP, #{6 * RQ}]")
    n(f"ldr q10, [XP, #{7 * RQ}]"); n(f"ldr q11, [XP, #{8 * RQ}]")
    n("uxtl v24.8h, v8.8b"); n("uxtl2 v25.8h, v8.16b")
    n("uxtl v26.8h, v9.8b"); n("uxtl2 v27.8h, v9.16b")
    n("uxtl v28.8h, v10.8b"); n("uxtl2 v29.8h, v10.16b")
    n("uxtl v30.8h, v11.8b"); n("uxtl2 v31.8h, v11.16b")
    n("movi v14.16b, #1"); n("movi v15.16b, #1")
    PR = [dict(par=0, w="v14", ul="v24", uh="v25", vl="v28", vh="v29", t=("v1", "v2", "v3", "v4", "v5")),
          dict(par=1, w="v15", ul="v26", uh="v27", vl="v30", vh="v31", t=("v8", "v9", "v10", "v11", "v12"))]
    taps = [("ldr q6, [XuUp, XX]", "ldr q7, [XvUp, XX]", f"ldr q0, [XP, #{2 * RQ}]"),
            ("ldur q6, [XuMid, #-1]", "ldur q7, [XvMid, #-1]", "ldur q0, [XPm, #-1]"),
            ("ldr q6, [XuMid]", "ldr q7, [XvMid]", "ldr q0, [XPm]"),
            ("ldur q6, [XuMid, #1]", "ldur q7, [XvMid, #1]", "ldur q0, [XPm, #1]"),
            ("ldr q6, [XuDown, XX]", "ldr q7, [XvDown, XX]", f"ldr q0, [XP, #{4 * RQ}]")]
    for k, (lu, lv, ll) in enumerate(taps):
        n(lu); n(lv); n(ll)
        for p in PR:
            a, b, c, d, e = p["t"]
            n(f"ldr q{a[1:]}, [XP, #{(5 + p['par']) * RQ}]")
            n(f"ldr q{b[1:]}, [XP, #{(7 + p['par']) * RQ}]")
            n(f"ldr q{c[1:]}, [XP, #{p['par'] * RQ}]")
            n(f"uabd {a}.16b, {a}.16b, v6.16b")
            n(f"uabd {b}.16b, {b}.16b, v7.16b")
            n(f"uabd {c}.16b, {c}.16b, v0.16b")
            n(f"tbl {d}.16b, {{v16.16b, v17.16b, v18.16b, v19.16b}}, {a}.16b")
            n(f"sub {a}.16b, {a}.16b, v23.16b")
            n(f"tbl {e}.16b, {{v16.16b, v17.16b, v18.16b, v19.16b}}, {b}.16b")
            n(f"sub {b}.16b, {b}.16b, v23.16b")
            n(f"tbl {c}.16b, {{v21.16b, v22.16b}}, {c}.16b")
            n(f"tbx {d}.16b, {{v20.16b}}, {a}.16b")
            n(f"tbx {e}.16b, {{v20.16b}}, {b}.16b")
            n(f"umull {a}.8h, {d}.8b, {e}.8b")
            n(f"umull2 {b}.8h, {d}.16b, {e}.16b")
            n(f"uzp2 {a}.16b, {a}.16b, {b}.16b")
            n(f"umull {b}.8h, {a}.8b, {c}.8b")
            n(f"umull2 {d}.8h, {a}.16b, {c}.16b")
            n(f"uzp2 {b}.16b, {b}.16b, {d}.16b")
            n(f"ushr {a}.16b, {b}.16b, #3")
            n(f"usra {a}.16b, {b}.16b, #4")
            n(f"add {p['w']}.16b, {p['w']}.16b, {a}.16b")
            n(f"umlal {p['ul']}.8h, {a}.8b, v6.8b")
            n(f"umlal2 {p['uh']}.8h, {a}.16b, v6.16b")
            n(f"umlal {p['vl']}.8h, {a}.8b, v7.8b")
            n(f"umlal2 {p['vh']}.8h, {a}.16b, v7.16b")
        if k == 3:
            s("add XuMid, XuMid, #16"); s("add XvMid, XvMid, #16"); s("add XPm, XPm, #16")
    s("add XP, XP, #16"); s("add XX, XX, #16")
    n("st1 {v14.16b, v15.16b}, [XS], #32")
    n("st1 {v24.8h, v25.8h, v26.8h, v27.8h}, [XS], #64")
    n("st1 {v28.8h, v29.8h, v30.8h, v31.8h}, [XS], #64")
elif PART == "B2P":
    # prologue: reciprocals of step 0 into v0-v7
    n("ld1 {v12.16b, v13.16b}, [XS]")
    for w, base in (("v12", 0), ("v13", 4)):
        a, b = f"v{base}", f"v{base+2}"
        n(f"uxtl {a}.8h, {w}.8b"); n(f"uxtl2 {b}.8h, {w}.16b")
        n(f"uxtl2 v{base+1}.4s, {a}.8h"); n(f"uxtl {a}.4s, {a}.4h")
        n(f"uxtl2 v{base+3}.4s, {b}.8h"); n(f"uxtl {b}.4s, {b}.4h")
        for q in range(4):
            n(f"ucvtf v{base+q}.4s, v{base+q}.4s")
            n(f"fdiv v{base+q}.4s, v15.4s, v{base+q}.4s")
else:
    # two steps: the first with reciprocals in v0-v7 while those of the
    # second are made in v16-v23, the second with v16-v23 while the next
    # pair's first ones are made in v0-v7
    for half, (cur, nxt) in enumerate(((0, 16), (16, 0))):
        n("ld1 {v24.8h, v25.8h, v26.8h, v27.8h}, [XS], #64".replace("[XS], #64", "[XS]") if False else f"add XS, XS, #32")
        prog.pop()
        s("add XS, XS, #32")
        n("ld1 {v24.8h, v25.8h, v26.8h, v27.8h}, [XS], #64")
        n("ld1 {v28.8h, v29.8h, v30.8h, v31.8h}, [XS], #64")
        n("ld1 {v12.16b, v13.16b}, [XS]")
        for w, base in (("v12", nxt), ("v13", nxt + 4)):
            a, b = f"v{base}", f"v{base+2}"
            n(f"uxtl {a}.8h, {w}.8b"); n(f"uxtl2 {b}.8h, {w}.16b")
            n(f"uxtl2 v{base+1}.4s, {a}.8h"); n(f"uxtl {a}.4s, {a}.4h")
            n(f"uxtl2 v{base+3}.4s, {b}.8h"); n(f"uxtl {b}.4s, {b}.4h")
            for q in range(4):
                n(f"ucvtf v{base+q}.4s, v{base+q}.4s")
                n(f"fdiv v{base+q}.4s, v15.4s, v{base+q}.4s")
        F = ("v8", "v9", "v10", "v11")
        for plane, regs in (("u", ("v24", "v25", "v26", "v27")), ("v", ("v28", "v29", "v30", "v31"))):
            for par in (0, 1):
                lo, hi = regs[2 * par], regs[2 * par + 1]
                r = [f"v{cur + 4 * par + q}" for q in range(4)]
                n(f"uxtl {F[0]}.4s, {lo}.4h"); n(f"uxtl2 {F[1]}.4s, {lo}.8h")
                n(f"uxtl {F[2]}.4s, {hi}.4h"); n(f"uxtl2 {F[3]}.4s, {hi}.8h")
                for k in range(4):
                    n(f"ucvtf {F[k]}.4s, {F[k]}.4s")
                    n(f"fmul {F[k]}.4s, {F[k]}.4s, {r[k]}.4s")
                    n(f"fcvtnu {F[k]}.4s, {F[k]}.4s")
                n(f"uzp1 {lo}.8h, {F[0]}.8h, {F[1]}.8h")
                n(f"uzp1 {hi}.8h, {F[2]}.8h, {F[3]}.8h")
        n("uzp1 v8.16b, v24.16b, v25.16b"); n("uzp1 v9.16b, v26.16b, v27.16b")
        n("uzp1 v10.16b, v28.16b, v29.16b"); n("uzp1 v11.16b, v30.16b, v31.16b")
        n("st2 {v8.16b, v9.16b}, [XoutU], #32")
        n("st2 {v10.16b, v11.16b}, [XoutV], #32")

# ------------------------------------------------------------------ scheduling
def regs_of(tok):
    tok = tok.strip()
    m = re.match(r"v(\d+)", tok)
    return [f"v{m.group(1)}"] if m else []

def parse(text):
    op, rest = text.split(None, 1)
    reads, writes = set(), set()
    mem = None
    lst = re.search(r"\{([^}]*)\}", rest)
    listregs = []
    if lst:
        for t in lst.group(1).split(","): listregs += regs_of(t)
    br = re.search(r"\[([^\]]*)\]", rest)
    ops = [t.strip() for t in re.sub(r"\{[^}]*\}|\[[^\]]*\](, #-?\d+)?", "LIST", rest).split(",")]
    base = None
    if br:
        base = br.group(1).split(",")[0].strip(); reads.add(base)
        for tok in br.group(1).split(",")[1:]:
            if tok.strip().startswith("X"): reads.add(tok.strip())
        if re.search(r"\], #", rest): writes.add(base)
    if op in ("ld1", "ld2", "ld4", "ldr", "ldur"):
        if op in ("ldr", "ldur"): writes.update(regs_of(ops[0].replace("q", "v")))
        else: writes.update(listregs)
        mem = ("load", base)
    elif op in ("st1", "st2"):
        reads.update(listregs); mem = ("store", base)
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

Pp = [parse(t) + (k,) for t, k in prog]
N = len(Pp)
deps = [[] for _ in range(N)]
lastw, lastr = {}, {}
for i, (op, rd, wr, mem, k) in enumerate(Pp):
    for r in rd:
        if r in lastw: deps[i].append((lastw[r], lat(Pp[lastw[r]][0])))
    for r in wr:
        if r in lastw: deps[i].append((lastw[r], 1))
        for j in lastr.get(r, []): deps[i].append((j, 0))
    for r in rd: lastr.setdefault(r, []).append(i)
    for r in wr: lastw[r] = i; lastr[r] = []
# in place: the output stores after every load
for i, (op, rd, wr, mem, k) in enumerate(Pp):
    if mem and mem[0] == "store" and mem[1] in ("XoutU", "XoutV"):
        for j in range(i):
            if Pp[j][3] and Pp[j][3][0] == "load": deps[i].append((j, 0))
succ = [[] for _ in range(N)]
for i in range(N):
    for j, l in deps[i]: succ[j].append((i, l))
height = [0] * N
for i in reversed(range(N)):
    height[i] = max([l + height[j] for j, l in succ[i]] + [lat(Pp[i][0])])
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
NAMES = ["XPm", "XP", "XX", "XB", "XsrcU", "XsrcV", "XlumaC", "XuUp", "XvUp", "XuMid", "XvMid", "XuDown", "XvDown", "XlUp",
         "XlL", "XlM", "XlR", "XlDown", "XoutU", "XoutV", "XS"]
def fin(x):
    for nm in sorted(NAMES, key=len, reverse=True):
        x = x.replace(nm, "%[" + nm[1:] + "]")
    return x
for x in out:
    print(f'        "{fin(x)}\\n\\t"' if len(sys.argv) > 1 and sys.argv[1] == "c" else fin(x))
