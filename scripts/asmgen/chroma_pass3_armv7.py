# chroma_pass3_armv7.py - generates the assembly of the armv7 chroma pass 3 inner steps (pass3InnerArmv7): 8 half-size columns, both parities in the halves of one q register.
#
# The step is written out in program order with fixed registers; a list scheduler then orders it
# for an in-order core (latencies of the core model named by MODEL, one NEON instruction and one
# load or integer instruction per cycle), keeping every register and memory dependency. The
# output is the text of the asm statement in src/filters/arm/chroma_neon.cpp:
#   PART=A MODEL=a57 PRI=h python3 chroma_pass3_armv7.py c   # the sums loop
#   PART=B MODEL=a57 PRI=h python3 chroma_pass3_armv7.py c   # the means loop
# Without "c" it prints plain assembly, which llvm-mca takes once the operands are named.
import os
import sys
PART = os.environ.get("PART", "A")
# armv7 chroma pass 3 step (8 half-size columns, both parities in q halves), scheduled.

S = "SH"     # shift immediate operand
R8 = "RE"   # 8 - shift
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from armv7_steps import means16, n, prog, s, walker  # noqa: E402

# The sums loop's pointers: RP0 the taps' U and V (half-size columns), RP1 the U and V centres
# (full-size columns, 2 per half-size one), RP2 the luma (4 per half-size column); the means
# loop stores through RO0 (U) and RO1 (V).
addr = walker([("RP0", 8, ["uUp", "vUp", "uL", "vL", "uM", "vM", "uR", "vR", "uDown", "vDown"]),
              ("RP1", 16, ["srcU", "srcV"]),
              ("RP2", 32, ["lumaC", "lUp", "lL", "lM", "lR", "lDown"])])

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
        n("vshr.u8 q0, q2, #3"); n("vsra.u8 q0, q2, #4")       # w
        n("vadd.i8 q7, q7, q0")
        n("vmlal.u8 q12, d0, d12"); n("vmlal.u8 q13, d1, d12")
        n("vmlal.u8 q14, d0, d13"); n("vmlal.u8 q15, d1, d13")

    n("vst1.64 {d14, d15}, [RS:128]!")
    n("vst1.64 {d24, d25, d26, d27}, [RS:128]!")
    n("vst1.64 {d28, d29, d30, d31}, [RS:128]!")

else:
    means16(8)
    n("vst2.8 {d24, d25}, [RO0]!")
    n("vst2.8 {d28, d29}, [RO1]!")

    
from armv7_sched import emit  # noqa: E402

emit(prog)
