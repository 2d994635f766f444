# chroma_pass1_armv7.py - generates the assembly of the armv7 chroma pass 1 inner steps (pass1InnerArmv7): 8 outputs a step, U and V in the halves of one q register.
#
# The step is written out in program order with fixed registers; a list scheduler then orders it
# for an in-order core (latencies of the core model named by MODEL, one NEON instruction and one
# load or integer instruction per cycle), keeping every register and memory dependency. The
# output is the text of the asm statement in src/filters/arm/chroma_neon.cpp:
#   PART=A MODEL=a57 PRI=h python3 chroma_pass1_armv7.py c   # the sums loop
#   PART=B MODEL=a57 PRI=h python3 chroma_pass1_armv7.py c   # the means loop
#   PART=L MODEL=a57 PRI=h python3 chroma_pass1_armv7.py c   # look-ups: the luma weights loop
#   PART=LF MODEL=a57 PRI=h python3 chroma_pass1_armv7.py c  # look-ups below 64: luma weights
#   PART=AS MODEL=a57 PRI=h python3 chroma_pass1_armv7.py c  # look-ups below 64, shared left taps
#   PART=AL MODEL=a57 PRI=h python3 chroma_pass1_armv7.py c  # look-ups: the sums loop
# Without "c" it prints plain assembly, which llvm-mca takes once the operands are named.
import os, sys
PART = os.environ.get("PART", "A")
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from armv7_steps import gather, lookup, lookupD, n, prog, reciprocalQ31, s, walker  # noqa: E402
# The sums loop's pointers: RP0 the U and V rows (2 columns per output), RP1 the luma (4 per
# output); the means loop stores through RO0 (U) and RO1 (V). The look-up form's luma weights
# loop (PART L) holds its walk's six steps in registers (RH0-RH5), its sums loop (AL) the step
# from each row's U to its V (RH0), the same for every row (the planes' distance).
LUMA = ["lY", "lY1", "lUp", "lL", "lR", "lDown"]
addr = walker([("RP0", 16, ["uY", "vY", "uY1", "vY1", "uUp", "vUp", "uL", "vL", "uR", "vR",
                           "uDown", "vDown"]),
              ("RP1", 32, LUMA)],
              held={l: f"RH{i}" for i, l in enumerate(LUMA)} if PART in ("L", "LF") else
              {u: "RH0" for u in ("uY", "uY1", "uUp", "uL", "uR", "uDown")}
              if PART in ("AL", "AS") else None)

def tap(qt, dt, dy, w, u, v, first=False, T=None):
    # qt: the tap's q (U | V), dt: its (U, V) d halves, dy: tap luma
    D, K, S_, P, P2 = T["D"], T["K"], T["S"], T["P"], T["P2"]
    def lo(q): return f"d{2*int(q[1:])}"
    def hi(q): return f"d{2*int(q[1:])+1}"
    n(f"vabd.u8 {D}, q15, {qt}")
    n(f"vshr.u8 {K}, {D}, #SH"); n(f"vshl.i8 {D}, {D}, #RE")
    n(f"vtbl.8 {lo(S_)}, {{d18, d19}}, {lo(K)}"); n(f"vtbl.8 {hi(S_)}, {{d18, d19}}, {hi(K)}")
    n(f"vtbl.8 {lo(K)}, {{d16, d17}}, {lo(K)}"); n(f"vtbl.8 {hi(K)}, {{d16, d17}}, {hi(K)}")
    n(f"vmull.u8 {P}, {lo(S_)}, {lo(D)}"); n(f"vrshrn.i16 {lo(S_)}, {P}, #8")
    n(f"vmull.u8 {P2}, {hi(S_)}, {hi(D)}"); n(f"vrshrn.i16 {hi(S_)}, {P2}, #8")
    n(f"vsub.i8 {K}, {K}, {S_}")          # lo: wU, hi: wV
    # luma, in D's and S's registers
    dE, dF, dG = lo(D), hi(D), lo(S_)
    n(f"vabd.u8 {dE}, d15, {dy}")
    n(f"vshr.u8 {dF}, {dE}, #SH"); n(f"vshl.i8 {dE}, {dE}, #RE")
    n(f"vtbl.8 {dG}, {{d18, d19}}, {dF}"); n(f"vtbl.8 {dF}, {{d16, d17}}, {dF}")
    n(f"vmull.u8 {P}, {dG}, {dE}"); n(f"vrshrn.i16 {dG}, {P}, #8")
    n(f"vsub.i8 {dF}, {dF}, {dG}")       # wY
    n(f"vmull.u8 {P2}, {hi(K)}, {lo(K)}"); n(f"vshrn.i16 {dE}, {P2}, #8")   # uv
    n(f"vmull.u8 {P}, {dE}, {dF}"); n(f"vshrn.i16 {dG}, {P}, #8")           # h
    n(f"vshr.u8 {dE}, {dG}, #3"); n(f"vsra.u8 {dE}, {dG}, #4")              # w
    n(f"vadd.i8 {w}, {w}, {dE}")
    op = "vmull.u8" if first else "vmlal.u8"
    n(f"{op} {u}, {dE}, {dt[0]}"); n(f"{op} {v}, {dE}, {dt[1]}")

def lookupTap(t, wacc, su, sv, first, look, atUV=None, uv="d6", start=None, own=False):
    """A tap of the look-up loops: the differences of q{t} (U | V of 8 outputs) from the centres
    q15, their weights by look(), which leaves them in q3 (wU | wV) from the differences in q2;
    uv in the register uv (atUV() then sees it), wY from RY, w into d7, added to wacc (to start
    instead, where given, into wacc; own: w goes into wacc itself, the first of its taps) and,
    times the tap's U and V, to su and sv."""
    n(f"vabd.u8 q2, q15, q{t}")
    look()                                               # wU | wV
    n("vmull.u8 q2, d6, d7")
    n("vld1.64 {d7}, [RY:64]!")                          # wY
    n(f"vshrn.i16 {uv}, q2, #8")                         # uv
    if atUV:
        atUV()
    n(f"vmull.u8 q2, {uv}, d7")
    n("vshrn.i16 d6, q2, #8")                            # h
    w = wacc if own else "d7"
    n(f"vshr.u8 {w}, d6, #3"); n(f"vsra.u8 {w}, d6, #4")     # w
    if not own:
        n(f"vadd.i8 {wacc}, {start or wacc}, d7")
    op = "vmull.u8" if first else "vmlal.u8"
    n(f"{op} {su}, {w}, d{2 * t}"); n(f"{op} {sv}, {w}, d{2 * t + 1}")


def blockTaps(tapL, start=None):
    """The look-up loops' three taps of the 2 x 2 block after its centre: (X+1, Y) from q1, then
    row Y + 1's (X, Y+1) and (X+1, Y+1), into the block's weights d28 (from start, where given)
    and sums q4, q5."""
    tapL(1, "d28", "q4", "q5", **({"start": start} if start else {}))   # (X+1, Y)
    a = addr("uY1"); n(f"vld2.8 {{d0, d2}}, {a}")
    a = addr("vY1"); n(f"vld2.8 {{d1, d3}}, {a}")
    tapL(0, "d28", "q4", "q5")                               # (X, Y+1)
    tapL(1, "d28", "q4", "q5")                               # (X+1, Y+1)


TA = dict(D="q2", K="q3", S="q4", P="q5", P2="q6")
if PART == "A":
    a = addr("uY"); n(f"vld2.8 {{d0, d2}}, {a}")
    a = addr("vY"); n(f"vld2.8 {{d1, d3}}, {a}")
    a = addr("lY"); n(f"vld4.8 {{d8, d9, d10, d11}}, {a}")
    n("vorr q15, q0, q0")
    n("vorr d15, d8, d8")
    n("vorr d14, d10, d10")
    n("vdup.8 d20, RCW1")
    n("vdup.8 d12, RCW")
    n("vmull.u8 q11, d30, d12")
    n("vmull.u8 q12, d31, d12")
    n("vmov.i8 d21, #0")
    # (X+1, Y): q1, luma d14
    tap("q1", ("d2", "d3"), "d14", "d20", "q11", "q12", T=TA)
    a = addr("uY1"); n(f"vld2.8 {{d0, d2}}, {a}")
    a = addr("vY1"); n(f"vld2.8 {{d1, d3}}, {a}")
    a = addr("lY1"); n(f"vld4.8 {{d8, d9, d10, d11}}, {a}")
    n("vorr d14, d10, d10")
    n("vorr d13, d8, d8")
    tap("q0", ("d0", "d1"), "d13", "d20", "q11", "q12", T=dict(D="q2", K="q3", S="q4", P="q5", P2="q5"))
    tap("q1", ("d2", "d3"), "d14", "d20", "q11", "q12", T=TA)
    for k, (u, v, l) in enumerate((("uUp", "vUp", "lUp"), ("uL", "vL", "lL"), ("uR", "vR", "lR"), ("uDown", "vDown", "lDown"))):
        a = addr(u); n(f"vld2.8 {{d0, d2}}, {a}")
        a = addr(v); n(f"vld2.8 {{d1, d3}}, {a}")
        a = addr(l); n(f"vld4.8 {{d8, d9, d10, d11}}, {a}")
        n("vorr d14, d8, d8")
        tap("q0", ("d0", "d1"), "d14", "d21", "q13", "q14", first=(k == 0), T=TA)
    n("vst1.64 {d20, d21}, [RS:128]!")
    n("vst1.64 {d22, d23, d24, d25}, [RS:128]!")
    n("vst1.64 {d26, d27, d28, d29}, [RS:128]!")
elif PART in ("L", "LF"):
    # Look-ups of the whole weight table (every difference from 80 on weighs as 0), first the
    # luma weights of a chunk's steps: wY of the seven taps after the centre, 8 bytes each in
    # the sums loop's order, into the buffer RY. T0-T31 in d16-d19, T32-T63 in d20-d23, T64-T79
    # in d24 d25, d26 32 in every lane; d8 the centres, d0-d6 the weights.
    # LF: the same where every luma difference of the chunk is below 64, from the table's first
    # 64 entries: a difference of 64 or more looks up 0, which no other does where the table's
    # entry 63 is not 0. d24 keeps the least weight of the chunk's steps; a chunk with a 0 in it
    # is made again by PART=L.
    def look(dst, i):
        if PART == "L":
            lookupD(dst, i, "d26", "d24, d25")
            return
        n(f"vtbl.8 {dst}, {{d16, d17, d18, d19}}, {i}")
        n(f"vsub.i8 {i}, {i}, d26")
        n(f"vtbx.8 {dst}, {{d20, d21, d22, d23}}, {i}")
        n(f"vmin.u8 d24, d24, {dst}")

    a = addr("lY"); n(f"vld4.8 {{d8, d9, d10, d11}}, {a}")       # centres, (X+1, Y): d10
    a = addr("lY1"); n(f"vld4.8 {{d12, d13, d14, d15}}, {a}")    # (X, Y+1): d12, (X+1, Y+1): d14
    idx = ("d7", "d9", "d11", "d27")
    for k, src in enumerate(("d10", "d12", "d14")):
        n(f"vabd.u8 {idx[k % 4]}, d8, {src}")
        look(f"d{k}", idx[k % 4])
    for k, l in enumerate(("lUp", "lL", "lR", "lDown")):
        g = (28, 12)[k % 2]
        a = addr(l); n(f"vld4.8 {{d{g}, d{g + 1}, d{g + 2}, d{g + 3}}}, {a}")
        n(f"vabd.u8 {idx[(k + 3) % 4]}, d8, d{g}")
        look(f"d{k + 3}", idx[(k + 3) % 4])
    n("vst1.64 {d0, d1, d2, d3}, [RY:64]!")
    n("vst1.64 {d4, d5, d6}, [RY:64]!")

elif PART == "AL":
    # The sums with the weight table's look-ups: T0-T31 in d16-d19, T32-T63 in d20-d23, T64-T79
    # in d24 d25, q13 32 in every lane; q15 the centres' U and V, q0 and q1 a row's taps (U and
    # V of columns X and X + 1), q2 their differences, q3 their weights (wU | wV), d28 and d29
    # the block's and the far taps' weights, q4 and q5 the block's U and V sums, q6 and q7 the
    # far taps'; wY from RY.
    def tapL(t, wacc, su, sv, first=False):
        lookupTap(t, wacc, su, sv, first, lambda: lookup(3, 2, k32=13, t2="d24, d25"))

    a = addr("uY"); n(f"vld2.8 {{d0, d2}}, {a}")
    a = addr("vY"); n(f"vld2.8 {{d1, d3}}, {a}")
    n("vorr q15, q0, q0")
    n("vdup.8 d28, RCW1")
    n("vdup.8 d4, RCW")
    n("vmull.u8 q4, d30, d4"); n("vmull.u8 q5, d31, d4")
    n("vmov.i8 d29, #0")
    blockTaps(tapL)
    for k, (u, v) in enumerate((("uUp", "vUp"), ("uL", "vL"), ("uR", "vR"), ("uDown", "vDown"))):
        a = addr(u); n(f"vld2.8 {{d0, d2}}, {a}")
        a = addr(v); n(f"vld2.8 {{d1, d3}}, {a}")
        tapL(0, "d29", "q6", "q7", first=(k == 0))
        if u == "uR":
            n("vst1.8 {d7}, [RWR]!")                         # the right tap's w, for PART=AS
    n("vst1.64 {d28, d29}, [RS:128]!")
    n("vst1.64 {d8, d9, d10, d11}, [RS:128]!")
    n("vst1.64 {d12, d13, d14, d15}, [RS:128]!")

elif PART == "AS":
    # The sums where every difference of the step is below 64, from the table's first 64 entries
    # (T0-T31 in d16-d19, T32-T63 in d20-d23; q13 32 in every lane): a difference of 64 or more
    # looks up 0 and so makes uv 0, which nothing else does where the table's entry 63 is at least
    # 16. The least uv of the step's taps (d24) goes to RF as 4 bytes; a step with a 0 among them
    # is made again by the whole table's loop. The far left tap weighs as the far right tap of the
    # output 13 columns to its left (the same two pixels): its w comes from the row of right taps'
    # weights (RWL, 13 outputs behind RWR, where each step puts its right tap's); its wY is
    # stepped over. d25 holds the centre's weight + 1 (cw1). q15 the centres' U and V, q0 and q1
    # a row's taps (U and V of columns X and X + 1), q2 their differences, q3 their weights
    # (wU | wV), d28 and d29 the block's and the far taps' weights, q4 and q5 the block's U and V
    # sums, q6 and q7 the far taps'; wY from RY.
    first_uv = [True]

    def look64():
        n("vtbl.8 d6, {d16, d17, d18, d19}, d4"); n("vtbl.8 d7, {d16, d17, d18, d19}, d5")
        n("vsub.i8 q2, q2, q13")
        n("vtbx.8 d6, {d20, d21, d22, d23}, d4"); n("vtbx.8 d7, {d20, d21, d22, d23}, d5")

    def tapL(t, wacc, su, sv, first=False, **kw):
        if first_uv[0]:             # the first tap's uv starts the least (d24) itself
            first_uv[0] = False
            lookupTap(t, wacc, su, sv, first, look64, uv="d24", **kw)
        else:
            lookupTap(t, wacc, su, sv, first, look64, lambda: n("vmin.u8 d24, d24, d6"), **kw)

    a = addr("uY"); n(f"vld2.8 {{d0, d2}}, {a}")
    a = addr("vY"); n(f"vld2.8 {{d1, d3}}, {a}")
    n("vorr q15, q0, q0")
    n("vmull.u8 q4, d30, d25"); n("vmull.u8 q5, d31, d25")
    n("vsubw.u8 q4, q4, d30"); n("vsubw.u8 q5, q5, d31")   # cw U, cw V
    blockTaps(tapL, start="d25")                             # the block's weights from cw1
    for k, (u, v) in enumerate((("uUp", "vUp"), ("uL", "vL"), ("uR", "vR"), ("uDown", "vDown"))):
        a = addr(u); n(f"vld2.8 {{d0, d2}}, {a}")
        a = addr(v); n(f"vld2.8 {{d1, d3}}, {a}")
        if u == "uL":
            n("vld1.8 {d7}, [RWL]!")                         # w of the left tap
            n("add RY, RY, #8")
            n("vadd.i8 d29, d29, d7")
            n("vmlal.u8 q6, d7, d0"); n("vmlal.u8 q7, d7, d1")
            continue
        tapL(0, "d29", "q6", "q7", first=(k == 0), own=(k == 0))
        if u == "uR":
            n("vst1.8 {d7}, [RWR]!")
    n("vst1.64 {d28, d29}, [RS:128]!")
    n("vst1.64 {d8, d9, d10, d11}, [RS:128]!")
    n("vst1.64 {d12, d13, d14, d15}, [RS:128]!")
    n("vpmin.u8 d0, d24, d24")
    n("vst1.32 {d0[0]}, [RF]!")

else:
    n("vld1.64 {d20, d21}, [RS:128]!")
    n("vld1.64 {d22, d23, d24, d25}, [RS:128]!")
    n("vld1.64 {d26, d27, d28, d29}, [RS:128]!")
    n("vaddl.u8 q0, d20, d21")
    n("vmovl.u16 q1, d0"); n("vmovl.u16 q2, d1")
    n("vcvt.f32.u32 q1, q1"); n("vcvt.f32.u32 q2, q2")
    reciprocalQ31(1, 15, 3, 4)
    reciprocalQ31(2, 15, 5, 6)
    # U: (d22 + d26) lanes 0-3, (d23 + d27) 4-7; V: (d24 + d28), (d25 + d29); vqrdmulh by the
    # reciprocals as in means16, then the low bytes: U into d6, V into d7
    for (b0, f0, b1, f1, t0, t1) in (("d22", "d26", "d23", "d27", 3, 4), ("d24", "d28", "d25", "d29", 5, 6)):
        n(f"vaddl.u16 q{t0}, {b0}, {f0}"); n(f"vaddl.u16 q{t1}, {b1}, {f1}")
        n(f"vqrdmulh.s32 q{t0}, q{t0}, q1"); n(f"vqrdmulh.s32 q{t1}, q{t1}, q2")
    gather(3, 4, 5, 6)
    n("vst1.8 {d6}, [RO0]!")
    n("vst1.8 {d7}, [RO1]!")
from armv7_sched import emit  # noqa: E402

emit(prog)
