# armv7_steps.py - step text that the armv7 chroma generators share: the program they write, the
# rows' addresses walked by post-incremented pointers, the whole weight table's look-ups, the
# refined reciprocals and the means loop of 16 outputs (passes 2 and 3).
prog = []  # (text, kind), kind 'n' NEON or 's' integer


def n(t): prog.append((t, 'n'))
def s(t): prog.append((t, 's'))


def walker(chains, scratch=("Ra", "Rb", "Rc"), first=0, held=None):
    """Addresses of a step's loads without a register per row: chains is [(pointer, advance,
    [rows in load order])]; each row's load reads its chain's pointer (RP0, RP1, ...) and
    post-increments it by the distance to the chain's next row, the last row's by the distance to
    the first row of the next step (advance bytes on). The distances are the words of the steps
    record RR from word `first` on, chain after chain, each loaded into the next of the scratch
    registers in turn, except for the rows named in held ({row: register}), whose distances the
    loop holds in registers (RH0, RH1, ...; rows with equal distances may share one). Returns
    addr: addr(name) gives the operand text of row name's load ("[RPk], Ra"), the rows asked for
    in each chain's order."""
    where = {}
    k = first
    for c, (_ptr, _advance, rows) in enumerate(chains):
        for i, name in enumerate(rows):
            where[name] = (c, i, 4 * k)
            k += 1
    count, pos = [0], [0] * len(chains)
    hold = held or {}

    def addr(name):
        c, i, off = where[name]
        assert pos[c] == i, f"{name} loaded out of its chain's order"
        pos[c] = (i + 1) % len(chains[c][2])
        if name in hold:
            return f"[{chains[c][0]}], {hold[name]}"
        r = scratch[count[0] % len(scratch)]
        count[0] += 1
        s(f"ldr {r}, [RR, #{off}]")
        return f"[{chains[c][0]}], {r}"
    return addr


def lookup(dst, idx, k32=7, t2="d8, d9"):
    """q{dst} = the weights of the differences in q{idx} (which it steps down by 32 twice), from
    the whole weight table of a look-up loop: T0-T31 in d16-d19, T32-T63 in d20-d23, T64-T79 in
    the two registers t2, q{k32} 32 in every lane (every difference from 80 on weighs as 0)."""
    lo, hi = f"d{2 * dst}", f"d{2 * dst + 1}"
    ilo, ihi = f"d{2 * idx}", f"d{2 * idx + 1}"
    n(f"vtbl.8 {lo}, {{d16, d17, d18, d19}}, {ilo}"); n(f"vtbl.8 {hi}, {{d16, d17, d18, d19}}, {ihi}")
    n(f"vsub.i8 q{idx}, q{idx}, q{k32}")
    n(f"vtbx.8 {lo}, {{d20, d21, d22, d23}}, {ilo}"); n(f"vtbx.8 {hi}, {{d20, d21, d22, d23}}, {ihi}")
    n(f"vsub.i8 q{idx}, q{idx}, q{k32}")
    n(f"vtbx.8 {lo}, {{{t2}}}, {ilo}"); n(f"vtbx.8 {hi}, {{{t2}}}, {ihi}")


def lookupD(dst, idx, k32, t2):
    """The same for the 8 differences in d register idx, into d register dst; k32 a d register
    of 32s."""
    n(f"vtbl.8 {dst}, {{d16, d17, d18, d19}}, {idx}")
    n(f"vsub.i8 {idx}, {idx}, {k32}")
    n(f"vtbx.8 {dst}, {{d20, d21, d22, d23}}, {idx}")
    n(f"vsub.i8 {idx}, {idx}, {k32}")
    n(f"vtbx.8 {dst}, {{{t2}}}, {idx}")


def scaledReciprocal(q, k, t0, t1, steps=2):
    """q = r * scale / q for the means (q{k} holds the scale; t0, t1 scratch). steps=2: the
    reciprocal estimate r refined once, r1 = r (2 - q r), then r1 (1 + 2^-20) (2 - q r1), which
    lies above 1 / q by a relative 2^-20 less its error (below 2^-21). steps=1: r (1 + 31 2^-22)
    (2 - q r), within a relative 2^-18 of 1 / q before the scale, enough for weights up to 273
    (passes 2 and 3 reach 231; see reciprocalQ31). The scale multiplies the estimate beside the
    last step, off the chain of latencies."""
    n(f"vrecpe.f32 q{t0}, q{q}")
    n(f"vrecps.f32 q{t1}, q{q}, q{t0}")
    if steps == 2:
        n(f"vmul.f32 q{t0}, q{t0}, q{t1}")
        n(f"vrecps.f32 q{t1}, q{q}, q{t0}")
    n(f"vmul.f32 q{t0}, q{t0}, q{k}")
    n(f"vmul.f32 q{q}, q{t0}, q{t1}")


def reciprocalQ31(q, k, t0, t1, steps=2):
    """q = the scaled reciprocal of q in 1.31 fixed point, saturated (2^31 - 1 for a weight of 1),
    for vqrdmulh, so that vqrdmulh(sum, q), floor(sum q / 2^31 + 1 / 2), is floor(sum / q + 1 / 2)
    for every sum <= 255 q: with two refinement steps and the scale 1 + 2^-20 in q{k} for
    q <= 369, with one step and the scale 1 + 31 2^-22 for q <= 273 (an exhaustive emulation in
    the kernel checks holds both forms, with ARMv7's and ARMv8's vrecps, to the reference)."""
    scaledReciprocal(q, k, t0, t1, steps)
    n(f"vcvt.s32.f32 q{q}, q{q}, #31")


def gather(a, b, c, d):
    """The low bytes of the 32-bit lanes q{a}, q{b}, q{c}, q{d} (in that order) into q{a}."""
    n(f"vuzp.16 q{a}, q{b}"); n(f"vuzp.16 q{c}, q{d}"); n(f"vuzp.8 q{a}, q{c}")


def means16(k):
    """The means loop's step of 16 outputs: weights d14 d15 (u8, at most 231), sums q12 q13 (U)
    and q14 q15 (V) from the sums buffer; leaves the means in d12 d13 (U) and d18 d19 (V). q{k}
    holds 1 + 31 2^-22 in every lane (the one-step reciprocals of reciprocalQ31)."""
    n("vld1.64 {d14, d15}, [RS:128]!")
    n("vld1.64 {d24, d25, d26, d27}, [RS:128]!")
    n("vld1.64 {d28, d29, d30, d31}, [RS:128]!")
    n("vmovl.u8 q0, d14"); n("vmovl.u8 q1, d15")
    n("vmovl.u16 q2, d0"); n("vmovl.u16 q3, d1"); n("vmovl.u16 q4, d2"); n("vmovl.u16 q5, d3")
    for q in (2, 3, 4, 5):
        n(f"vcvt.f32.u32 q{q}, q{q}")
    tmp = {2: (0, 1), 3: (6, 7), 4: (0, 1), 5: (6, 7)}
    for q in (2, 3, 4, 5):
        reciprocalQ31(q, k, *tmp[q], steps=1)
    # U: sums d24 (lanes 0-3), d25 (4-7), d26 (8-11), d27 (12-15), V: d28-d31; their
    # reciprocals q2, q3, q4, q5
    for plane, temps in (((24, 25, 26, 27), (6, 7, 0, 1)), ((28, 29, 30, 31), (9, 10, 11, 12))):
        for d, t, r in zip(plane, temps, (2, 3, 4, 5)):
            n(f"vmovl.u16 q{t}, d{d}")
            n(f"vqrdmulh.s32 q{t}, q{t}, q{r}")
        gather(*temps)
