# chroma_pass2_aarch64.py - generates the assembly of the aarch64 chroma pass 2 inner steps (pass2InnerA64): 16 outputs a step.
#
# The step is written out in program order with fixed registers; a list scheduler then orders it
# for an in-order core (latencies of the core model named by MODEL, one NEON instruction and one
# load or integer instruction per cycle), keeping every register and memory dependency. The
# output is the text of the asm statement in src/filters/arm/chroma_neon.cpp:
#   python3 chroma_pass2_aarch64.py c
# Without "c" it prints plain assembly, which llvm-mca takes once the operands are named.
import os, re, sys
PART = os.environ.get("PART", "A")
prog = []
def n(t): prog.append((t, 'n'))
def s(t): prog.append((t, 's'))

SETS = [dict(t=("v0", "v1", "v2", "v3", "v4", "v5"), u="v6", v="v7"),
        dict(t=("v13", "v14", "v15", "v29", "v30", "v31"), u="v11", v="v22")]
def tap(k, lu, lv, ly, atzero=False):
    S = SETS[k % 2]
    a, b, c, d, e, f = S["t"]; tU, tV = S["u"], S["v"]
    n(lu.format(r=tU[1:])); n(lv.format(r=tV[1:]))
    n(f"uabd {a}.16b, v9.16b, {tU}.16b")
    n(f"uabd {b}.16b, v10.16b, {tV}.16b")
    n(f"tbl {d}.16b, {{v16.16b, v17.16b, v18.16b, v19.16b}}, {a}.16b")
    n(f"sub {a}.16b, {a}.16b, v23.16b")
    n(f"tbl {e}.16b, {{v16.16b, v17.16b, v18.16b, v19.16b}}, {b}.16b")
    n(f"sub {b}.16b, {b}.16b, v23.16b")
    if atzero:
        wy = "v21"
    else:
        n(ly.format(r=c[1:]))
        n(f"uabd {c}.16b, v12.16b, {c}.16b")
        n(f"tbl {f}.16b, {{v16.16b, v17.16b, v18.16b, v19.16b}}, {c}.16b")
        n(f"sub {c}.16b, {c}.16b, v23.16b")
        n(f"tbx {f}.16b, {{v20.16b}}, {c}.16b")
        wy = f
    n(f"tbx {d}.16b, {{v20.16b}}, {a}.16b")
    n(f"tbx {e}.16b, {{v20.16b}}, {b}.16b")
    n(f"umull {a}.8h, {e}.8b, {d}.8b"); n(f"umull2 {b}.8h, {e}.16b, {d}.16b")
    n(f"uzp2 {a}.16b, {a}.16b, {b}.16b")
    n(f"umull {b}.8h, {a}.8b, {wy}.8b"); n(f"umull2 {d}.8h, {a}.16b, {wy}.16b")
    n(f"uzp2 {b}.16b, {b}.16b, {d}.16b")
    n(f"ushr {a}.16b, {b}.16b, #3"); n(f"usra {a}.16b, {b}.16b, #4")
    n(f"add v24.16b, v24.16b, {a}.16b")
    o1, o2 = ("umull", "umull2") if k == 0 else ("umlal", "umlal2")
    n(f"{o1} v25.8h, {a}.8b, {tU}.8b"); n(f"{o2} v26.8h, {a}.16b, {tU}.16b")
    n(f"{o1} v27.8h, {a}.8b, {tV}.8b"); n(f"{o2} v28.8h, {a}.16b, {tV}.16b")

n("ld2 {v9.16b, v10.16b}, [XsrcU], #32")
n("ld2 {v10.16b, v11.16b}, [XsrcV], #32")
n("ldr q12, [XlMid, XX]")
n("movi v24.16b, #1")
tap(0, "ldr q{r}, [XuUp, XX]", "ldr q{r}, [XvUp, XX]", "ldr q{r}, [XlUp, XX]")
tap(1, "ldr q{r}, [XuL, XX]", "ldr q{r}, [XvL, XX]", "ldr q{r}, [XlL, XX]")
tap(2, "ldr q{r}, [XuMid, XX]", "ldr q{r}, [XvMid, XX]", None, atzero=True)
tap(3, "ldr q{r}, [XuR, XX]", "ldr q{r}, [XvR, XX]", "ldr q{r}, [XlR, XX]")
tap(4, "ldr q{r}, [XuDown, XX]", "ldr q{r}, [XvDown, XX]", "ldr q{r}, [XlDown, XX]")
# means: reciprocals v0-v3 (lanes 0-3 .. 12-15)
n("uxtl v4.8h, v24.8b"); n("uxtl2 v5.8h, v24.16b")
n("uxtl v0.4s, v4.4h"); n("uxtl2 v1.4s, v4.8h"); n("uxtl v2.4s, v5.4h"); n("uxtl2 v3.4s, v5.8h")
for q in range(4):
    n(f"ucvtf v{q}.4s, v{q}.4s"); n(f"fdiv v{q}.4s, v8.4s, v{q}.4s")
for (lo, hi, o, F) in (("v25", "v26", "v13", ("v4", "v5", "v6", "v7")), ("v27", "v28", "v14", ("v29", "v30", "v31", "v15"))):
    n(f"uxtl {F[0]}.4s, {lo}.4h"); n(f"uxtl2 {F[1]}.4s, {lo}.8h")
    n(f"uxtl {F[2]}.4s, {hi}.4h"); n(f"uxtl2 {F[3]}.4s, {hi}.8h")
    for q in range(4):
        n(f"ucvtf {F[q]}.4s, {F[q]}.4s"); n(f"fmul {F[q]}.4s, {F[q]}.4s, v{q}.4s"); n(f"fcvtnu {F[q]}.4s, {F[q]}.4s")
    n(f"uzp1 {F[0]}.8h, {F[0]}.8h, {F[1]}.8h"); n(f"uzp1 {F[2]}.8h, {F[2]}.8h, {F[3]}.8h")
    n(f"uzp1 {o}.16b, {F[0]}.16b, {F[2]}.16b")
n("str q13, [XoutU, XX]")
n("str q14, [XoutV, XX]")
s("add XX, XX, #16")

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from aarch64_sched import emit  # noqa: E402

emit(prog)
