# armv7_steps.py - step text that the armv7 chroma generators share: the program they write, the
# rows' addresses walked by post-incremented pointers, the refined reciprocals and the means loop
# of 16 outputs (passes 2 and 3).
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


def reciprocal(q, t0, t1):
    """q = 1 / q, the estimate refined twice (t0, t1 scratch)."""
    n(f"vrecpe.f32 q{t0}, q{q}")
    n(f"vrecps.f32 q{t1}, q{q}, q{t0}")
    n(f"vmul.f32 q{t0}, q{t0}, q{t1}")
    n(f"vrecps.f32 q{t1}, q{q}, q{t0}")
    n(f"vmul.f32 q{q}, q{t0}, q{t1}")


def scaledReciprocal(q, k, t0, t1):
    """q = (1 + 2^-20) / q for the means (q{k} holds 1 + 2^-20): the refined reciprocal, above
    1 / q by a relative 2^-20 less its error (below 2^-21), so that twice sum times it, truncated,
    is floor(2 sum / q) for every sum <= 255 q, q <= 369 (an exhaustive check in the kernel
    checks holds the means to that)."""
    reciprocal(q, t0, t1)
    n(f"vmul.f32 q{q}, q{q}, q{k}")


def mean4(d, r, t):
    """The means floor(sum / weight + 1 / 2) of the four u16 sums in d{d}, from the scaled
    reciprocals in q{r}, narrowed into d{d} (q{t} scratch): m = trunc(2 sum r), the mean
    (m + 1) >> 1."""
    n(f"vmovl.u16 q{t}, {d}")
    n(f"vcvt.f32.u32 q{t}, q{t}")
    n(f"vmul.f32 q{t}, q{t}, q{r}")
    n(f"vcvt.u32.f32 q{t}, q{t}, #1")
    n(f"vrshrn.i32 {d}, q{t}, #1")


def means16(k):
    """The means loop's step of 16 outputs: weights d14 d15 (u8), sums q12 q13 (U) and q14 q15
    (V) from the sums buffer; leaves the means in d24 d25 (U) and d28 d29 (V). q{k} holds
    1 + 2^-20 in every lane (see scaledReciprocal)."""
    n("vld1.64 {d14, d15}, [RS:128]!")
    n("vld1.64 {d24, d25, d26, d27}, [RS:128]!")
    n("vld1.64 {d28, d29, d30, d31}, [RS:128]!")
    n("vmovl.u8 q0, d14"); n("vmovl.u8 q1, d15")
    n("vmovl.u16 q2, d0"); n("vmovl.u16 q3, d1"); n("vmovl.u16 q4, d2"); n("vmovl.u16 q5, d3")
    for q in (2, 3, 4, 5):
        n(f"vcvt.f32.u32 q{q}, q{q}")
    tmp = {2: (0, 1), 3: (6, 7), 4: (0, 1), 5: (6, 7)}
    for q in (2, 3, 4, 5):
        scaledReciprocal(q, k, *tmp[q])
    # U: sums q12 (d24 lanes 0-3, d25 lanes 4-7), q13; V: q14, q15; reciprocals of lanes 0-3:
    # q2, 4-7: q3, 8-11: q4, 12-15: q5
    quads = [("d24", 2), ("d25", 3), ("d26", 4), ("d27", 5), ("d28", 2), ("d29", 3), ("d30", 4), ("d31", 5)]
    temps = (0, 1, 6, 7, 9, 10, 11)
    for i, (d, r) in enumerate(quads):
        mean4(d, r, temps[i % len(temps)])
    n("vmovn.i16 d24, q12"); n("vmovn.i16 d25, q13")
    n("vmovn.i16 d28, q14"); n("vmovn.i16 d29, q15")
