# sched_common.py - what the aarch64 and armv7 list schedulers share: splitting an instruction's
# operands, the dependencies through the registers it reads and writes, and each instruction's
# height (the longest latency path from it to the end of the step).
import re


def operands(text, regs_of, address=r"\[[^\]]*\]"):
    """(op, rest, listregs, address, ops) of one instruction: the registers of its {list}
    (regs_of maps a token to register names), the text inside its [address] (or None), and its
    operands split at commas with the list and the address (matched by `address`) as LIST."""
    op, rest = text.split(None, 1)
    lst = re.search(r"\{([^}]*)\}", rest)
    listregs = []
    if lst:
        for t in lst.group(1).split(","): listregs += regs_of(t)
    br = re.search(r"\[([^\]]*)\]", rest)
    ops = [t.strip() for t in re.sub(r"\{[^}]*\}|" + address, "LIST", rest).split(",")]
    return op, rest, listregs, br.group(1) if br else None, ops


def register_deps(parsed, latency):
    """deps[i], the (j, cycles) instruction i waits for: j wrote a register i reads
    (latency(j, register) cycles), wrote one i writes (1) or read one i writes (0); parsed[i]
    is (op, reads, writes, ...)."""
    deps = [[] for _ in parsed]
    lastw, lastr = {}, {}
    for i, p in enumerate(parsed):
        rd, wr = p[1], p[2]
        for r in rd:
            if r in lastw: deps[i].append((lastw[r], latency(lastw[r], r)))
        for r in wr:
            if r in lastw: deps[i].append((lastw[r], 1))
            for j in lastr.get(r, []): deps[i].append((j, 0))
        for r in rd: lastr.setdefault(r, []).append(i)
        for r in wr: lastw[r] = i; lastr[r] = []
    return deps


def heights(deps, own):
    """height[i] = the longest path of latencies from instruction i to the end (own[i] its own)."""
    n = len(deps)
    succ = [[] for _ in range(n)]
    for i in range(n):
        for j, l in deps[i]: succ[j].append((i, l))
    height = [0] * n
    for i in reversed(range(n)):
        height[i] = max([l + height[j] for j, l in succ[i]] + [own[i]])
    return height
