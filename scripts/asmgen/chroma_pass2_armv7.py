# chroma_pass2_armv7.py - generates the assembly of the armv7 chroma pass 2 inner steps (pass2InnerArmv7): 16 outputs a step.
#
# The step is written out in program order with fixed registers; a list scheduler then orders it
# for an in-order core (latencies of the core model named by MODEL, one NEON instruction and one
# load or integer instruction per cycle), keeping every register and memory dependency. The
# output is the text of the asm statement in src/filters/arm/chroma_neon.cpp:
#   PART=A MODEL=a57 PRI=h python3 chroma_pass2_armv7.py c   # the sums loop
#   PART=B MODEL=a57 PRI=h python3 chroma_pass2_armv7.py c   # the means loop
#   PART=L MODEL=a57 PRI=h python3 chroma_pass2_armv7.py c   # look-ups: the luma weights loop
#   PART=LF MODEL=a57 PRI=h python3 chroma_pass2_armv7.py c  # look-ups below 64: luma weights
#   PART=AL MODEL=a57 PRI=h python3 chroma_pass2_armv7.py c  # look-ups: the sums loop
#   PART=AF MODEL=a57 PRI=h python3 chroma_pass2_armv7.py c  # look-ups below 32: the sums loop
# Without "c" it prints plain assembly, which llvm-mca takes once the operands are named.
import os
import sys
PART = os.environ.get("PART", "A")

S = "SH"     # shift immediate operand
R8 = "RE"   # 8 - shift
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from armv7_steps import lookup, means16, n, prog, s, walker  # noqa: E402

# The sums loop's pointers: RP0 the taken-out luma and the U and V taps (half-size columns), RP1
# the U and V centres (full-size columns, 2 per half-size one); the means loop stores through RO0
# (U) and RO1 (V). The record's first byte is the weight of a difference 0 (the centre tap's
# luma weight, loaded into every lane), its steps from word 1 on; four scratch registers.
# The look-up form walks the taps' U and V (RP0), the centres (RP1) and the luma (RP2, in a
# loop of its own that holds its five steps in RH0-RH4); its sums loop holds the step from each
# tap's U to its V (RH0), the same for every tap (the planes' distance).
if PART in ("L", "LF", "AL", "AF"):
    LUMA = ["lM", "lUp", "lL", "lR", "lDown"]
    addr = walker([("RP0", 16, ["uUp", "vUp", "uL", "vL", "uM", "vM", "uR", "vR", "uDown", "vDown"]),
                   ("RP1", 32, ["srcU", "srcV"]),
                   ("RP2", 16, LUMA)], first=1,
                  held={l: f"RH{i}" for i, l in enumerate(LUMA)} if PART in ("L", "LF") else
                  {u: "RH0" for u in ("uUp", "uL", "uM", "uR", "uDown")})
else:
    addr = walker([("RP0", 16, ["lM", "uUp", "vUp", "lUp", "uL", "vL", "lL", "uM", "vM", "uR", "vR",
                                 "lR", "uDown", "vDown", "lDown"]),
                   ("RP1", 32, ["srcU", "srcV"])], scratch=("Ra", "Rb", "Rc", "Rd"), first=1)

def weighTap(t, centre, tu, uv=0):
    """The rest of tap t of the look-up loops from its uv in q{uv}: wY (the centre's from the
    record, the others' from RY), h, w into q2, added to the weights q5 and, times the tap's U
    (q{tu}) and V (q3), to the sums q12-q15 (which the first tap starts)."""
    if centre:
        n("vld1.8 {d2[], d3[]}, [RR]")                     # wY of a difference 0
    else:
        n("vld1.64 {d2, d3}, [RY:128]!")                    # wY
    n(f"vmull.u8 q2, d{2 * uv}, d2"); n(f"vmull.u8 q1, d{2 * uv + 1}, d3")
    n("vshrn.i16 d0, q2, #8"); n("vshrn.i16 d1, q1, #8")   # h
    n("vshr.u8 q2, q0, #3"); n("vsra.u8 q2, q0, #4")
    n("vadd.i8 q5, q5, q2")
    op = "vmull.u8" if t == 0 else "vmlal.u8"
    n(f"{op} q12, d4, d{2 * tu}"); n(f"{op} q13, d5, d{2 * tu + 1}")
    n(f"{op} q14, d4, d6"); n(f"{op} q15, d5, d7")


if PART == "A":
    a = addr("srcU"); n(f"vld2.8 {{d0, d1, d2, d3}}, {a}")
    a = addr("srcV"); n(f"vld2.8 {{d4, d5, d6, d7}}, {a}")
    a = addr("lM"); n(f"vld1.8 {{d8, d9}}, {a}")
    n("vst1.64 {d0, d1}, [RB:128]")
    n("vst1.64 {d4, d5}, [RB16:128]")
    n("vst1.64 {d8, d9}, [RB32:128]")
    n("vmov.i8 q7, #1")
    taps = [("uUp", "vUp", "lUp"), ("uL", "vL", "lL"), ("uM", "vM", None), ("uR", "vR", "lR"),
            ("uDown", "vDown", "lDown")]
    for t, (u, v, l) in enumerate(taps):
        a = addr(u); n(f"vld1.8 {{d20, d21}}, {a}")
        a = addr(v); n(f"vld1.8 {{d22, d23}}, {a}")
        if l is None:
            n("vld1.8 {d4[], d5[]}, [RR]")
        else:
            a = addr(l); n(f"vld1.8 {{d0, d1}}, {a}")
            n("vld1.64 {d2, d3}, [RB32:128]")
            n("vabd.u8 q1, q1, q0")
            n("vshr.u8 q2, q1, #SH"); n("vshl.i8 q1, q1, #RE")
            n("vtbl.8 d6, {d18, d19}, d4"); n("vtbl.8 d7, {d18, d19}, d5")
            n("vtbl.8 d4, {d16, d17}, d4"); n("vtbl.8 d5, {d16, d17}, d5")
            n("vmull.u8 q4, d6, d2"); n("vrshrn.i16 d6, q4, #8")
            n("vmull.u8 q5, d7, d3"); n("vrshrn.i16 d7, q5, #8")
            n("vsub.i8 q2, q2, q3")
        n("vld1.64 {d2, d3}, [RB:128]")
        n("vabd.u8 q1, q1, q10")
        n("vshr.u8 q3, q1, #SH"); n("vshl.i8 q1, q1, #RE")
        n("vtbl.8 d8, {d18, d19}, d6"); n("vtbl.8 d9, {d18, d19}, d7")
        n("vtbl.8 d6, {d16, d17}, d6"); n("vtbl.8 d7, {d16, d17}, d7")
        n("vmull.u8 q5, d8, d2"); n("vrshrn.i16 d8, q5, #8")
        n("vmull.u8 q6, d9, d3"); n("vrshrn.i16 d9, q6, #8")
        n("vsub.i8 q3, q3, q4")
        n("vld1.64 {d2, d3}, [RB16:128]")
        n("vabd.u8 q1, q1, q11")
        n("vshr.u8 q4, q1, #SH"); n("vshl.i8 q1, q1, #RE")
        n("vtbl.8 d10, {d18, d19}, d8"); n("vtbl.8 d11, {d18, d19}, d9")
        n("vtbl.8 d8, {d16, d17}, d8"); n("vtbl.8 d9, {d16, d17}, d9")
        n("vmull.u8 q6, d10, d2"); n("vrshrn.i16 d10, q6, #8")
        n("vmull.u8 q0, d11, d3"); n("vrshrn.i16 d11, q0, #8")
        n("vsub.i8 q4, q4, q5")
        n("vmull.u8 q5, d8, d6"); n("vmull.u8 q6, d9, d7")
        n("vshrn.i16 d2, q5, #8"); n("vshrn.i16 d3, q6, #8")
        n("vmull.u8 q5, d2, d4"); n("vmull.u8 q6, d3, d5")
        n("vshrn.i16 d2, q5, #8"); n("vshrn.i16 d3, q6, #8")
        n("vshr.u8 q0, q1, #3"); n("vsra.u8 q0, q1, #4")
        n("vadd.i8 q7, q7, q0")
        op = "vmull.u8" if t == 0 else "vmlal.u8"
        n(f"{op} q12, d0, d20"); n(f"{op} q13, d1, d21")
        n(f"{op} q14, d0, d22"); n(f"{op} q15, d1, d23")
    n("vst1.64 {d14, d15}, [RS:128]!")
    n("vst1.64 {d24, d25, d26, d27}, [RS:128]!")
    n("vst1.64 {d28, d29, d30, d31}, [RS:128]!")
elif PART in ("L", "LF"):
    # Look-ups of the whole weight table (every difference from 80 on weighs as 0), first the
    # luma weights of a chunk's steps: wY of the four outer taps, 16 bytes each, into the buffer
    # RY. Table as in the sums loop; q0 the centres.
    # LF: the same where every luma difference of the chunk is below 64, from the table's first
    # 64 entries (T0-T31 in d16-d19, T32-T63 in d20-d23, q7 32 in every lane): a difference of 64
    # or more looks up 0, which no other does where the table's entry 63 is not 0. q15 keeps the
    # least weight of the chunk's steps; a chunk with a 0 in it is made again by PART=L.
    a = addr("lM"); n(f"vld1.8 {{d0, d1}}, {a}")
    for k, l in enumerate(("lUp", "lL", "lR", "lDown")):
        t, w = (1, 2, 3)[k % 3], (12, 13, 14)[k % 3]
        a = addr(l); n(f"vld1.8 {{d{2 * t}, d{2 * t + 1}}}, {a}")
        n(f"vabd.u8 q{t}, q{t}, q0")
        if PART == "L":
            lookup(w, t)
        else:
            n(f"vtbl.8 d{2 * w}, {{d16, d17, d18, d19}}, d{2 * t}")
            n(f"vtbl.8 d{2 * w + 1}, {{d16, d17, d18, d19}}, d{2 * t + 1}")
            n(f"vsub.i8 q{t}, q{t}, q7")
            n(f"vtbx.8 d{2 * w}, {{d20, d21, d22, d23}}, d{2 * t}")
            n(f"vtbx.8 d{2 * w + 1}, {{d20, d21, d22, d23}}, d{2 * t + 1}")
            n(f"vmin.u8 q15, q15, q{w}")
        n(f"vst1.64 {{d{2 * w}, d{2 * w + 1}}}, [RY:128]!")

elif PART == "AL":
    # The sums with the weight table's look-ups: T0-T31 in d16-d19, T32-T63 in d20-d23, T64-T79
    # in d8 d9, q7 32 in every lane, q5 the weights, q12-q15 the sums, q6 and q3 a tap's U and V,
    # q1 its differences, q2 and q0 its weights; wY from RY (the centre tap's from the record).
    a = addr("srcU"); n(f"vld2.8 {{d0, d1, d2, d3}}, {a}")
    a = addr("srcV"); n(f"vld2.8 {{d2, d3, d4, d5}}, {a}")
    n("vst1.64 {d0, d1, d2, d3}, [RB:128]")
    n("vmov.i8 q5, #1")
    for t, (u, v, centre) in enumerate((("uUp", "vUp", False), ("uL", "vL", False), ("uM", "vM", True),
                                        ("uR", "vR", False), ("uDown", "vDown", False))):
        a = addr(u); n(f"vld1.8 {{d12, d13}}, {a}")
        a = addr(v); n(f"vld1.8 {{d6, d7}}, {a}")
        n("vld1.64 {d2, d3}, [RB:128]")
        n("vabd.u8 q1, q1, q6")
        lookup(2, 1)                                           # wU
        n("vld1.64 {d2, d3}, [RB16:128]")
        n("vabd.u8 q1, q1, q3")
        lookup(0, 1)                                           # wV
        n("vmull.u8 q1, d4, d0"); n("vmull.u8 q2, d5, d1")
        n("vshrn.i16 d0, q1, #8"); n("vshrn.i16 d1, q2, #8")   # uv
        weighTap(t, centre, 6)
    n("vst1.64 {d10, d11}, [RS:128]!")
    n("vst1.64 {d24, d25, d26, d27}, [RS:128]!")
    n("vst1.64 {d28, d29, d30, d31}, [RS:128]!")

elif PART == "AF":
    # The sums where every difference of the step is below 32, from the table's first 32 entries
    # (T0-T31 in d16-d19), as pass 3's PART=AF: a step with a difference of 32 or more gets a 0
    # among the 4 bytes it writes to RF (the least uv of its taps, q4) and is made again by the
    # whole table's loop. q10 and q11 the centres' U and V, q5 the weights, q12-q15 the sums,
    # q6 or q7 (alternate taps) and q3 a tap's U and V, q0-q2 its steps; wY from RY.
    a = addr("srcU"); n(f"vld2.8 {{d20, d21, d22, d23}}, {a}")
    a = addr("srcV"); n(f"vld2.8 {{d22, d23, d24, d25}}, {a}")
    n("vmov.i8 q5, #1")
    for t, (u, v, centre) in enumerate((("uUp", "vUp", False), ("uL", "vL", False),
                                        ("uM", "vM", True), ("uR", "vR", False),
                                        ("uDown", "vDown", False))):
        tu = 6 if t % 2 == 0 else 7
        a = addr(u); n(f"vld1.8 {{d{2 * tu}, d{2 * tu + 1}}}, {a}")
        a = addr(v); n(f"vld1.8 {{d6, d7}}, {a}")
        n(f"vabd.u8 q1, q10, q{tu}")
        n("vtbl.8 d4, {d16, d17, d18, d19}, d2"); n("vtbl.8 d5, {d16, d17, d18, d19}, d3")   # wU
        n("vabd.u8 q1, q11, q3")
        n("vtbl.8 d0, {d16, d17, d18, d19}, d2"); n("vtbl.8 d1, {d16, d17, d18, d19}, d3")   # wV
        n("vmull.u8 q1, d4, d0"); n("vmull.u8 q2, d5, d1")
        uv = 4 if t == 0 else 0    # the first tap's uv starts the least (q4) itself
        n(f"vshrn.i16 d{2 * uv}, q1, #8"); n(f"vshrn.i16 d{2 * uv + 1}, q2, #8")   # uv
        if t > 0:
            n("vmin.u8 q4, q4, q0")
        weighTap(t, centre, tu, uv)
    n("vst1.64 {d10, d11}, [RS:128]!")
    n("vst1.64 {d24, d25, d26, d27}, [RS:128]!")
    n("vst1.64 {d28, d29, d30, d31}, [RS:128]!")
    n("vpmin.u8 d0, d8, d9"); n("vpmin.u8 d0, d0, d0")
    n("vst1.32 {d0[0]}, [RF]!")

else:
    means16(8)
    n("vst1.8 {d12, d13}, [RO0]!")
    n("vst1.8 {d18, d19}, [RO1]!")

    
from armv7_sched import emit  # noqa: E402

emit(prog)
