# chroma_pass1_aarch64.py - generates the assembly of the aarch64 chroma pass 1 inner steps (pass1InnerA64): 16 outputs a step.
#
# The step is written out in program order with fixed registers; a list scheduler then orders it
# for an in-order core (latencies of the core model named by MODEL, one NEON instruction and one
# load or integer instruction per cycle), keeping every register and memory dependency. The
# output is the text of the asm statement in src/filters/arm/chroma_neon.cpp:
#   python3 chroma_pass1_aarch64.py c
# Without "c" it prints plain assembly, which llvm-mca takes once the operands are named.
#
# Registers: v16-v19 and v20 the weights of differences 0-63 and 64-79, v21 the constant 64,
# v22 v23 the block's and far taps' weight sums (u8), v24-v27 the block's U and V sums, v28-v31
# the far taps' (u16, low and high halves). The taps take v0-v7 and v8-v15 in turn; each reloads
# the centres (U, V, luma of the step's row, taken out into rows RQ bytes apart: U even and odd
# columns, V even and odd, luma bytes 0 and 2 of every 4) instead of holding them.
import os, sys
prog = []
def n(t): prog.append((t, 'n'))
def s(t): prog.append((t, 's'))

RQ = 2064
LUT = "{v16.16b, v17.16b, v18.16b, v19.16b}"
# (tU, tV, tY, temps a..e) per set
SETS = [dict(u="v0", v="v1", y="v2", t=("v3", "v4", "v5", "v6", "v7")),
        dict(u="v9", v="v10", y="v11", t=("v8", "v12", "v13", "v14", "v15"))]
BLOCK = dict(w="v22", ul="v24", uh="v25", vl="v26", vh="v27")
FAR = dict(w="v23", ul="v28", uh="v29", vl="v30", vh="v31")


def weigh(dst, idx):
    n(f"tbl {dst}.16b, {LUT}, {idx}.16b")
    n(f"sub {idx}.16b, {idx}.16b, v21.16b")
    n(f"tbx {dst}.16b, {{v20.16b}}, {idx}.16b")


def tap(k, loads, acc, first=False):
    S = SETS[k % 2]
    tU, tV, tY = S["u"], S["v"], S["y"]
    a, b, c, d, e = S["t"]
    for l in loads: n(l.format(u=tU[1:], v=tV[1:], y=tY[1:], **{f"r{i}": r[1:] for i, r in enumerate(S["t"])}))
    n(f"ldr q{a[1:]}, [XP]")
    n(f"ldr q{b[1:]}, [XP, #{2 * RQ}]")
    n(f"ldr q{c[1:]}, [XP, #{4 * RQ}]")
    n(f"uabd {a}.16b, {a}.16b, {tU}.16b")
    n(f"uabd {b}.16b, {b}.16b, {tV}.16b")
    n(f"uabd {c}.16b, {c}.16b, {tY}.16b")
    weigh(d, a)
    weigh(e, b)
    n(f"umull {a}.8h, {d}.8b, {e}.8b")
    n(f"umull2 {b}.8h, {d}.16b, {e}.16b")
    n(f"uzp2 {a}.16b, {a}.16b, {b}.16b")
    weigh(d, c)
    n(f"umull {b}.8h, {a}.8b, {d}.8b")
    n(f"umull2 {c}.8h, {a}.16b, {d}.16b")
    n(f"uzp2 {b}.16b, {b}.16b, {c}.16b")
    w = acc["w"] if first else a
    n(f"ushr {w}.16b, {b}.16b, #3")
    n(f"usra {w}.16b, {b}.16b, #4")
    if not first: n(f"add {acc['w']}.16b, {acc['w']}.16b, {a}.16b")
    o1, o2 = ("umull", "umull2") if first else ("umlal", "umlal2")
    n(f"{o1} {acc['ul']}.8h, {w}.8b, {tU}.8b"); n(f"{o2} {acc['uh']}.8h, {w}.16b, {tU}.16b")
    n(f"{o1} {acc['vl']}.8h, {w}.8b, {tV}.8b"); n(f"{o2} {acc['vh']}.8h, {w}.16b, {tV}.16b")


# The centre tap: weight w0 (the table's weight of 0) on the centre's own U and V.
n("ld1r {v8.16b}, [Xw0]")
n("ld1r {v22.16b}, [Xw1]")
n("ldr q12, [XP]")
n(f"ldr q13, [XP, #{2 * RQ}]")
n("umull v24.8h, v8.8b, v12.8b"); n("umull2 v25.8h, v8.16b, v12.16b")
n("umull v26.8h, v8.8b, v13.8b"); n("umull2 v27.8h, v8.16b, v13.16b")
# Block taps (X, Y + 1) and (X + 1, Y + 1) from rows Y + 1 and 2Y + 2: the even columns land in
# set 0's first registers, the odd ones (loaded again) in set 1's.
tap(0, ["ld2 {{v{u}.16b, v{v}.16b}}, [XuY1]", "ld2 {{v{v}.16b, v{y}.16b}}, [XvY1]",
        "ld4 {{v{y}.16b, v{r0}.16b, v{r1}.16b, v{r2}.16b}}, [XlY1]"], BLOCK)
tap(1, ["ld4 {{v{u}.16b, v{v}.16b, v{y}.16b, v{r1}.16b}}, [XlY1], #64",
        "ld2 {{v{u}.16b, v{v}.16b}}, [XvY1], #32", "ld2 {{v{r0}.16b, v{u}.16b}}, [XuY1], #32"], BLOCK)
# Far tap up (first of the far taps), block tap (X + 1, Y), far taps down, left, right.
tap(2, ["ld2 {{v{u}.16b, v{v}.16b}}, [XuUp], #32", "ld2 {{v{v}.16b, v{y}.16b}}, [XvUp], #32",
        "ld4 {{v{y}.16b, v{r0}.16b, v{r1}.16b, v{r2}.16b}}, [XlUp], #64"], FAR, first=True)
tap(3, [f"ldr q{{u}}, [XP, #{RQ}]", f"ldr q{{v}}, [XP, #{3 * RQ}]", f"ldr q{{y}}, [XP, #{5 * RQ}]"], BLOCK)
tap(4, ["ld2 {{v{u}.16b, v{v}.16b}}, [XuDown], #32", "ld2 {{v{v}.16b, v{y}.16b}}, [XvDown], #32",
        "ld4 {{v{y}.16b, v{r0}.16b, v{r1}.16b, v{r2}.16b}}, [XlDown], #64"], FAR)
tap(5, ["ldr q{u}, [XPL]", f"ldr q{{v}}, [XPL, #{2 * RQ}]", f"ldr q{{y}}, [XPL, #{4 * RQ}]"], FAR)
tap(6, ["ldr q{u}, [XPR]", f"ldr q{{v}}, [XPR, #{2 * RQ}]", f"ldr q{{y}}, [XPR, #{4 * RQ}]"], FAR)
s("add XP, XP, #16"); s("add XPL, XPL, #16"); s("add XPR, XPR, #16")
# Means: weights wB + wF (u16), their reciprocals (1 + 2^-19) / w in v2-v5, sums of block and far
# taps in 32 bits.
n("uaddl v0.8h, v22.8b, v23.8b"); n("uaddl2 v1.8h, v22.16b, v23.16b")
n("uxtl v2.4s, v0.4h"); n("uxtl2 v3.4s, v0.8h"); n("uxtl v4.4s, v1.4h"); n("uxtl2 v5.4s, v1.8h")
n("ld1r {v6.4s}, [Xnum]")
for q in range(4):
    n(f"ucvtf v{2 + q}.4s, v{2 + q}.4s"); n(f"fdiv v{2 + q}.4s, v6.4s, v{2 + q}.4s")
for (bl, bh, fl, fh, F, out) in (("v24", "v25", "v28", "v29", ("v7", "v8", "v9", "v10"), "XoutU"),
                                  ("v26", "v27", "v30", "v31", ("v11", "v12", "v13", "v14"), "XoutV")):
    n(f"uaddl {F[0]}.4s, {bl}.4h, {fl}.4h"); n(f"uaddl2 {F[1]}.4s, {bl}.8h, {fl}.8h")
    n(f"uaddl {F[2]}.4s, {bh}.4h, {fh}.4h"); n(f"uaddl2 {F[3]}.4s, {bh}.8h, {fh}.8h")
    for q in range(4):
        n(f"ucvtf {F[q]}.4s, {F[q]}.4s"); n(f"fmul {F[q]}.4s, {F[q]}.4s, v{2 + q}.4s")
        n(f"fcvtnu {F[q]}.4s, {F[q]}.4s")
    n(f"uzp1 {F[0]}.8h, {F[0]}.8h, {F[1]}.8h"); n(f"uzp1 {F[2]}.8h, {F[2]}.8h, {F[3]}.8h")
    n(f"uzp1 {F[0]}.16b, {F[0]}.16b, {F[2]}.16b")
    n(f"str q{F[0][1:]}, [{out}], #16")

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from aarch64_sched import emit  # noqa: E402

# The rows' pointers that ld2/ld4 step are in fixed registers (the asm statement would otherwise
# pass more than 30 operands).
emit(prog, names=dict(uY1="x9", vY1="x10", lY1="x11", uUp="x12", vUp="x13", lUp="x14",
                      uDown="x15", vDown="x16", lDown="x17"))
