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

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from aarch64_sched import emit  # noqa: E402

emit(prog)
