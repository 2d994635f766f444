# chroma_pass3_armv7.py - generates the assembly of the armv7 chroma pass 3 inner steps (pass3InnerArmv7): 8 half-size columns, both parities in the halves of one q register.
#
# The step is written out in program order with fixed registers; a list scheduler then orders it
# for an in-order core (latencies of the core model named by MODEL, one NEON instruction and one
# load or integer instruction per cycle), keeping every register and memory dependency. The
# output is the text of the asm statement in src/filters/arm/chroma_neon.cpp:
#   PART=A MODEL=a57 PRI=h python3 chroma_pass3_armv7.py c   # the sums loop
#   PART=B MODEL=a57 PRI=h python3 chroma_pass3_armv7.py c   # the means loop
#   PART=L MODEL=a57 PRI=h python3 chroma_pass3_armv7.py c   # look-ups: the luma weights loop
#   PART=LE MODEL=a57 PRI=h python3 chroma_pass3_armv7.py c  # the same for even rows
#   PART=AL MODEL=a57 PRI=h python3 chroma_pass3_armv7.py c  # look-ups: the sums loop
#   PART=AF MODEL=a57 PRI=h python3 chroma_pass3_armv7.py c  # look-ups below 32: the sums loop
# Without "c" it prints plain assembly, which llvm-mca takes once the operands are named.
import os
import sys
PART = os.environ.get("PART", "A")
# armv7 chroma pass 3 step (8 half-size columns, both parities in q halves), scheduled.

S = "SH"     # shift immediate operand
R8 = "RE"   # 8 - shift
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from armv7_steps import lookup, means16, n, prog, s, walker  # noqa: E402

# The sums loop's pointers: RP0 the taps' U and V (half-size columns), RP1 the U and V centres
# (full-size columns, 2 per half-size one), RP2 the luma (4 per half-size column); the means
# loop stores through RO0 (U) and RO1 (V).
# The luma weights loop (PART L) holds its walk's six steps in registers (RH0-RH5); the look-ups'
# sums loop (AL) the step from each tap's U to its V (RH0), the same for every tap (the
# planes' distance).
# PART=LE, the luma weights loop of even rows, does not load the centre tap's luma: in an even
# row Y the tap's sample (4 x, 4 y) is the even outputs' own (4 x, 2 Y).
LUMA = ["lumaC", "lUp", "lL", "lR", "lDown"] if PART == "LE" else ["lumaC", "lUp", "lL", "lM", "lR",
                                                                  "lDown"]
addr = walker([("RP0", 8, ["uUp", "vUp", "uL", "vL", "uM", "vM", "uR", "vR", "uDown", "vDown"]),
              ("RP1", 16, ["srcU", "srcV"]),
              ("RP2", 32, LUMA)],
              held={l: f"RH{i}" for i, l in enumerate(LUMA)} if PART in ("L", "LE") else
              {u: "RH0" for u in ("uUp", "uL", "uM", "uR", "uDown")} if PART in ("AL", "AF") else
              None)

def addTap(w):
    """The tap's weight from h = ((wU * wV) >> 8) * wY >> 8 in q2 (both parities): w = (h >> 3) +
    (h >> 4) into q0, added to the weights q{w} and, times the tap's U (d12) and V (d13), to the
    sums q12-q15."""
    n("vshr.u8 q0, q2, #3"); n("vsra.u8 q0, q2, #4")
    n(f"vadd.i8 q{w}, q{w}, q0")
    n("vmlal.u8 q12, d0, d12"); n("vmlal.u8 q13, d1, d12")
    n("vmlal.u8 q14, d0, d13"); n("vmlal.u8 q15, d1, d13")


def storeSums(w):
    """The step's weights q{w} and sums q12-q15 into the sums buffer, as the means loop reads them."""
    n(f"vst1.64 {{d{2 * w}, d{2 * w + 1}}}, [RS:128]!")
    n("vst1.64 {d24, d25, d26, d27}, [RS:128]!")
    n("vst1.64 {d28, d29, d30, d31}, [RS:128]!")


if PART == "A":
    # centres
    a = addr("srcU"); n(f"vld2.8 {{d2, d3}}, {a}")
    a = addr("srcV"); n(f"vld2.8 {{d4, d5}}, {a}")
    a = addr("lumaC"); n(f"vld4.8 {{d6, d7, d8, d9}}, {a}")
    n("vorr d7, d8, d8")
    n("vst1.64 {d2, d3, d4, d5}, [RB:128]")
    n("vst1.64 {d6, d7}, [RB32:128]")
    n("vmovl.u8 q12, d2"); n("vmovl.u8 q13, d3"); n("vmovl.u8 q14, d4"); n("vmovl.u8 q15, d5")
    n("vmov.i8 q7, #1")

    taps = [("uUp", "vUp", "lUp"), ("uL", "vL", "lL"), ("uM", "vM", "lM"), ("uR", "vR", "lR"),
            ("uDown", "vDown", "lDown")]
    for (u, v, l) in taps:
        a = addr(u); n(f"vld1.8 {{d12}}, {a}")
        a = addr(v); n(f"vld1.8 {{d13}}, {a}")
        a = addr(l); n(f"vld4.8 {{d0, d1, d2, d3}}, {a}")
        n("vld1.64 {d6, d7}, [RB32:128]")
        n("vabd.u8 d6, d6, d0"); n("vabd.u8 d7, d7, d0")
        n("vtbl.8 d6, {d20, d21, d22}, d6"); n("vtbl.8 d7, {d20, d21, d22}, d7")
        n("vld1.64 {d2, d3}, [RB:128]")
        n("vabd.u8 d2, d2, d12"); n("vabd.u8 d3, d3, d12")
        n(f"vshr.u8 q4, q1, #{S}"); n(f"vshl.i8 q1, q1, #{R8}")
        n("vtbl.8 d0, {d18, d19}, d8"); n("vtbl.8 d1, {d18, d19}, d9")
        n("vtbl.8 d8, {d16, d17}, d8"); n("vtbl.8 d9, {d16, d17}, d9")
        n("vmull.u8 q5, d0, d2"); n("vmull.u8 q2, d1, d3")
        n("vrshrn.i16 d0, q5, #8"); n("vrshrn.i16 d1, q2, #8")
        n("vsub.i8 q4, q4, q0")                       # wU
        n("vld1.64 {d4, d5}, [RB16:128]")
        n("vabd.u8 d4, d4, d13"); n("vabd.u8 d5, d5, d13")
        n(f"vshr.u8 q5, q2, #{S}"); n(f"vshl.i8 q2, q2, #{R8}")
        n("vtbl.8 d0, {d18, d19}, d10"); n("vtbl.8 d1, {d18, d19}, d11")
        n("vtbl.8 d10, {d16, d17}, d10"); n("vtbl.8 d11, {d16, d17}, d11")
        n("vmull.u8 q1, d0, d4"); n("vrshrn.i16 d0, q1, #8")
        n("vmull.u8 q1, d1, d5"); n("vrshrn.i16 d1, q1, #8")
        n("vsub.i8 q5, q5, q0")                       # wV
        n("vmull.u8 q0, d10, d8"); n("vmull.u8 q1, d11, d9")
        n("vshrn.i16 d4, q0, #8"); n("vshrn.i16 d5, q1, #8")   # uv
        n("vmull.u8 q0, d4, d6"); n("vmull.u8 q1, d5, d7")
        n("vshrn.i16 d4, q0, #8"); n("vshrn.i16 d5, q1, #8")   # h
        addTap(7)

    storeSums(7)

elif PART in ("L", "LE"):
    # Look-ups of the whole weight table (every difference from 80 on weighs as 0), first the
    # luma weights of a chunk's steps: wY of each tap, 16 bytes (even outputs, odd) per tap, into
    # the buffer RY. d20-d22 the luma look-up, q0 the centres.
    # LE: the centre tap weighs the even outputs by d24, the table's weight of a difference 0
    # (the loop's set-up puts it there), the odd ones by their difference from the even ones.
    a = addr("lumaC"); n(f"vld4.8 {{d0, d1, d2, d3}}, {a}")   # even outputs' d0, odd ones' d2
    for k, l in enumerate(("lUp", "lL", "lM", "lR", "lDown")):
        if l == "lM" and PART == "LE":
            n("vabd.u8 d25, d0, d2")
            n("vtbl.8 d25, {d20, d21, d22}, d25")
            n("vst1.64 {d24, d25}, [RY:128]!")
            continue
        t = 4 + 2 * (k % 3)     # q2, q3, q4 take turns (a tap's four loaded registers from d4)
        a = addr(l); n(f"vld4.8 {{d{2 * t}, d{2 * t + 1}, d{2 * t + 2}, d{2 * t + 3}}}, {a}")
        w = 13 + k % 3          # q13, q14, q15
        n(f"vabd.u8 d{2 * w}, d0, d{2 * t}"); n(f"vabd.u8 d{2 * w + 1}, d2, d{2 * t}")
        n(f"vtbl.8 d{2 * w}, {{d20, d21, d22}}, d{2 * w}")
        n(f"vtbl.8 d{2 * w + 1}, {{d20, d21, d22}}, d{2 * w + 1}")
        n(f"vst1.64 {{d{2 * w}, d{2 * w + 1}}}, [RY:128]!")

elif PART == "AL":
    # The sums with the weight table's look-ups: T0-T31 in d16-d19, T32-T63 in d20-d23,
    # T64-T79 in d8 d9, q7 32 in every lane (the index steps between the look-ups), q5 the
    # weights, q12-q15 the sums, d12 d13 a tap's U and V, q0-q3 its steps; wY from RY.
    a = addr("srcU"); n(f"vld2.8 {{d2, d3}}, {a}")
    a = addr("srcV"); n(f"vld2.8 {{d4, d5}}, {a}")
    n("vst1.64 {d2, d3, d4, d5}, [RB:128]")
    n("vmovl.u8 q12, d2"); n("vmovl.u8 q13, d3"); n("vmovl.u8 q14, d4"); n("vmovl.u8 q15, d5")
    n("vmov.i8 q5, #1")

    for (u, v) in (("uUp", "vUp"), ("uL", "vL"), ("uM", "vM"), ("uR", "vR"), ("uDown", "vDown")):
        a = addr(u); n(f"vld1.8 {{d12}}, {a}")
        a = addr(v); n(f"vld1.8 {{d13}}, {a}")
        n("vld1.64 {d2, d3}, [RB:128]")
        n("vabd.u8 d2, d2, d12"); n("vabd.u8 d3, d3, d12")
        lookup(2, 1)                                           # wU
        n("vld1.64 {d2, d3}, [RB16:128]")
        n("vabd.u8 d2, d2, d13"); n("vabd.u8 d3, d3, d13")
        lookup(3, 1)                                           # wV
        n("vmull.u8 q0, d4, d6"); n("vmull.u8 q2, d5, d7")
        n("vshrn.i16 d2, q0, #8"); n("vshrn.i16 d3, q2, #8")   # uv
        n("vld1.64 {d4, d5}, [RY:128]!")                        # wY
        n("vmull.u8 q0, d2, d4"); n("vmull.u8 q3, d3, d5")
        n("vshrn.i16 d4, q0, #8"); n("vshrn.i16 d5, q3, #8")   # h
        addTap(5)

    storeSums(5)

elif PART == "AF":
    # The sums where every difference of the step is below 32, from the first 32 entries of the
    # weight table alone (T0-T31 in d16-d19): one look-up of 16 differences instead of three.
    # A difference of 32 or more looks up 0, and so does nothing else: the table's entry 31 is at
    # least 16, so two weights below 32 make uv = (wU * wV) >> 8 >= 1. The least uv of each step
    # (q4) goes to the flags RF as 4 bytes, and a step with a 0 among them is made again by the
    # whole table's loop. q10 and q11 hold the centres' U and V, q5 the weights, q12-q15 the
    # sums, d12 d13 or d14 d15 a tap's U and V (alternate taps), q0-q3 its steps; wY from RY.
    a = addr("srcU"); n(f"vld2.8 {{d20, d21}}, {a}")
    a = addr("srcV"); n(f"vld2.8 {{d22, d23}}, {a}")
    n("vmovl.u8 q12, d20"); n("vmovl.u8 q13, d21"); n("vmovl.u8 q14, d22"); n("vmovl.u8 q15, d23")
    n("vmov.i8 q5, #1")

    for k, (u, v) in enumerate((("uUp", "vUp"), ("uL", "vL"), ("uM", "vM"), ("uR", "vR"),
                                ("uDown", "vDown"))):
        tu, tv = (12, 13) if k % 2 == 0 else (14, 15)
        a = addr(u); n(f"vld1.8 {{d{tu}}}, {a}")
        a = addr(v); n(f"vld1.8 {{d{tv}}}, {a}")
        n(f"vabd.u8 d2, d20, d{tu}"); n(f"vabd.u8 d3, d21, d{tu}")
        n("vtbl.8 d4, {d16, d17, d18, d19}, d2"); n("vtbl.8 d5, {d16, d17, d18, d19}, d3")   # wU
        n(f"vabd.u8 d2, d22, d{tv}"); n(f"vabd.u8 d3, d23, d{tv}")
        n("vtbl.8 d6, {d16, d17, d18, d19}, d2"); n("vtbl.8 d7, {d16, d17, d18, d19}, d3")   # wV
        n("vmull.u8 q0, d4, d6"); n("vmull.u8 q2, d5, d7")
        uv = 4 if k == 0 else 1    # the first tap's uv starts the least (q4) itself
        n(f"vshrn.i16 d{2 * uv}, q0, #8"); n(f"vshrn.i16 d{2 * uv + 1}, q2, #8")   # uv
        if k > 0:
            n("vmin.u8 q4, q4, q1")
        n("vld1.64 {d4, d5}, [RY:128]!")                        # wY
        n(f"vmull.u8 q0, d{2 * uv}, d4"); n(f"vmull.u8 q3, d{2 * uv + 1}, d5")
        n("vshrn.i16 d4, q0, #8"); n("vshrn.i16 d5, q3, #8")   # h
        n("vshr.u8 q0, q2, #3"); n("vsra.u8 q0, q2, #4")
        n("vadd.i8 q5, q5, q0")
        n(f"vmlal.u8 q12, d0, d{tu}"); n(f"vmlal.u8 q13, d1, d{tu}")
        n(f"vmlal.u8 q14, d0, d{tv}"); n(f"vmlal.u8 q15, d1, d{tv}")

    storeSums(5)
    n("vpmin.u8 d0, d8, d9"); n("vpmin.u8 d0, d0, d0")
    n("vst1.32 {d0[0]}, [RF]!")

else:
    means16(8)
    n("vst2.8 {d12, d13}, [RO0]!")
    n("vst2.8 {d18, d19}, [RO1]!")

    
from armv7_sched import emit  # noqa: E402

emit(prog)
