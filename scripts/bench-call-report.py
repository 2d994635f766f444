#!/usr/bin/env python3
"""bench-call-report.py - tables and chart of scripts/bench-call.sh's run.

Reads kq_bench_call's warm results (Google Benchmark JSON files, one entry per case and round)
and its cold results (one "cold <case> ms=... minflt=... peakExtraBytes=... outBytes=..." line
per fresh process), takes medians, prints Markdown tables and draws a bar chart.

  bench-call-report.py --warm warm-*.json --cold cold.txt --machine "..." --date 2025-01-31 \
      [--cases cases.txt] \
      [--revision abc1234] [--png docs/bench_call.png] [--md summary.md] [--load "..."]
"""
import argparse
import json
import statistics
import sys
import textwrap

PAGE = 4096
IMPLS = ["kq.warp", "opencv.resize", "libyuv.NV12Scale", "memcpy", "kq.defaults",
         "opencv.pipeline"]
LABEL = {"kq.warp": "kq warp", "opencv.resize": "OpenCV resize", "libyuv.NV12Scale": "libyuv",
         "memcpy": "memcpy", "kq.defaults": "kq defaults", "opencv.pipeline": "OpenCV pipeline"}
# Cases without threads of their own are measured once, at 1 thread.
SINGLE = {"libyuv.NV12Scale", "memcpy"}
THREADS = [1, 2]


def parse_name(name):
    workload, impl, threads = name.split("/")[:3]
    return workload, impl, int(threads.split(":")[1])


def new_run():
    return {"ms": [], "cpu": [], "faults": [], "peak": [], "out": 0}


def load_warm(paths):
    runs = {}
    benchmarks = []
    for path in paths:
        with open(path) as f:
            benchmarks += json.load(f)["benchmarks"]
    for b in benchmarks:
        if b.get("run_type") != "iteration":
            continue
        scale = {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}[b["time_unit"]]
        r = runs.setdefault(parse_name(b["name"]), new_run())
        r["ms"].append(b["real_time"] * scale)
        r["cpu"].append(b["cpu_time"] * scale)  # the process's: all threads
        r["faults"].append(b["minflt"])
        r["peak"].append(b["peakExtraBytes"])
        r["out"] = int(b["outBytes"])
    return runs


def load_cold(path):
    runs = {}
    with open(path) as f:
        for line in f:
            words = line.split()
            if len(words) < 3 or words[0] != "cold":
                continue
            v = dict(w.split("=", 1) for w in words[2:] if "=" in w)
            r = runs.setdefault(parse_name(words[1]), new_run())
            r["ms"].append(float(v["ms"]))
            r["cpu"].append(float(v["cpuMs"]))
            r["faults"].append(int(v["minflt"]))
            r["peak"].append(int(v["peakExtraBytes"]))
            r["out"] = int(v["outBytes"])
    return runs


class Results:
    def __init__(self, warm, cold, order):
        self.warm, self.cold = warm, cold
        self.workloads = []
        for (w, _, _) in order + list(warm) + list(cold):
            if w not in self.workloads:
                self.workloads.append(w)

    def get(self, runs, w, impl, t, field="ms"):
        r = runs.get((w, impl, 1 if impl in SINGLE else t))
        return statistics.median(r[field]) if r and r[field] else None

    def samples(self):
        counts = [len(r["ms"]) for r in self.warm.values()] + [len(r["ms"])
                                                               for r in self.cold.values()]
        return min(counts) if counts else 0

    def out_bytes(self, w):
        for runs in (self.warm, self.cold):
            for (rw, _, _), r in runs.items():
                if rw == w and r["out"]:
                    return r["out"]
        return 0


def ms(v):
    if v is None:
        return "-"
    return f"{v:.2f}" if v < 10 else f"{v:.1f}" if v < 100 else f"{v:.0f}"


def ratio(a, b):
    return "-" if a is None or b is None or b == 0 else f"{a / b:.2f}"


def mb(v):
    return "-" if v is None else f"{v / 1e6:.1f} MB"


def para(text):
    return textwrap.fill(text, 78)


def row(cells):
    return "| " + " | ".join(cells) + " |"


def tables(res):
    out = []
    n = res.samples()
    for field, what in (("ms", "Milliseconds per call (wall clock)"),
                        ("cpu", "CPU milliseconds per call (all threads; less disturbed by "
                                "other load than the wall clock)")):
        out.append(para(f"{what}, median of {n} rounds: warm (the same call repeated in one "
                        "process), in brackets cold (the first call in a fresh process). libyuv "
                        "and memcpy run on one thread."))
        out.append("")
        out.append(row(["workload", "threads"] + [LABEL[i] for i in IMPLS]))
        out.append(row(["---"] * (2 + len(IMPLS))))
        for w in res.workloads:
            for t in THREADS:
                cells = [w, str(t)]
                for impl in IMPLS:
                    cells.append(f"{ms(res.get(res.warm, w, impl, t, field))} "
                                 f"({ms(res.get(res.cold, w, impl, t, field))})")
                out.append(row(cells))
        out.append("")
    out.append(para("Ratios of the warm medians: warp ÷ fastest anchor (OpenCV resize or "
                    "libyuv; below 1: our call is faster), warp ÷ memcpy of the output, OpenCV "
                    "pipeline ÷ kq defaults (above 1: our call is faster), and the 2-thread "
                    "speed-up (1-thread time ÷ 2-thread time)."))
    out.append("")
    out.append(row(["workload", "threads", "warp ÷ fastest anchor", "warp ÷ memcpy",
                    "pipeline ÷ kq defaults", "speed-up kq warp", "speed-up kq defaults",
                    "speed-up OpenCV resize", "speed-up OpenCV pipeline"]))
    out.append(row(["---"] * 9))
    for w in res.workloads:
        for t in THREADS:
            g = lambda impl, tt=t: res.get(res.warm, w, impl, tt)
            anchors = [v for v in (g("opencv.resize"), g("libyuv.NV12Scale")) if v is not None]
            cells = [w, str(t), ratio(g("kq.warp"), min(anchors) if anchors else None),
                     ratio(g("kq.warp"), g("memcpy")),
                     ratio(g("opencv.pipeline"), g("kq.defaults"))]
            for impl in ("kq.warp", "kq.defaults", "opencv.resize", "opencv.pipeline"):
                cells.append(ratio(g(impl, 1), g(impl, 2)) if t == 2 else "")
            out.append(row(cells))
    out.append("")
    out.append(para("Memory per warm call: minor page faults (all threads; in brackets as % "
                    "of the output's pages) and peak resident memory above the level before the "
                    "call. Inputs and outputs are resident before every call; memcpy has none of "
                    "either."))
    out.append("")
    mem_impls = ["kq.warp", "kq.defaults", "opencv.resize", "libyuv.NV12Scale",
                 "opencv.pipeline"]
    out.append(row(["workload", "output", "threads"] + [LABEL[i] for i in mem_impls]))
    out.append(row(["---"] * (3 + len(mem_impls))))
    for w in res.workloads:
        size = res.out_bytes(w)
        pages = (size + PAGE - 1) // PAGE
        for t in THREADS:
            cells = [w, f"{size / 1e6:.1f} MB, {pages} pages" if t == 1 else "", str(t)]
            for impl in mem_impls:
                f = res.get(res.warm, w, impl, t, "faults")
                p = res.get(res.warm, w, impl, t, "peak")
                if f is None:
                    cells.append("-")
                else:
                    cells.append(f"{f:.0f} ({100.0 * f / pages:.0f} %), {mb(p)}")
            out.append(row(cells))
    return "\n".join(out)


def cold_detail(res):
    out = [row(["case", "cold faults", "cold peak extra", "warm faults", "warm peak extra"]),
           row(["---"] * 5)]
    for w in res.workloads:
        for t in THREADS:
            for impl in IMPLS:
                if impl in SINGLE and t != 1:
                    continue
                out.append(row([f"{w}/{impl}/threads:{t}",
                                f"{res.get(res.cold, w, impl, t, 'faults') or 0:.0f}",
                                mb(res.get(res.cold, w, impl, t, "peak")),
                                f"{res.get(res.warm, w, impl, t, 'faults') or 0:.0f}",
                                mb(res.get(res.warm, w, impl, t, "peak"))]))
    return "\n".join(out)


def chart(res, path, machine, date, revision, load):
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt

    groups = [("Enlargement only (kq: no filters)",
               ["kq.warp", "opencv.resize", "libyuv.NV12Scale", "memcpy"]),
              ("With filters (kq: tool defaults nr 3, chroma nr 4, sharpen 0.6)",
               ["kq.defaults", "opencv.pipeline"])]
    colours = {"kq.warp": "#1f6fb4", "kq.defaults": "#1f6fb4", "opencv.resize": "#e08a1e",
               "opencv.pipeline": "#e08a1e", "libyuv.NV12Scale": "#3a9a3a", "memcpy": "#8c8c8c"}
    nw = len(res.workloads)
    fig, axes = plt.subplots(2, nw, figsize=(5.2 * nw, 8.4), squeeze=False)
    for gi, (title, impls) in enumerate(groups):
        for wi, w in enumerate(res.workloads):
            ax = axes[gi][wi]
            width = 0.8 / len(impls)
            for ii, impl in enumerate(impls):
                xs, warm, cold = [], [], []
                for ti, t in enumerate(THREADS):
                    xs.append(ti + (ii - (len(impls) - 1) / 2) * width)
                    warm.append(res.get(res.warm, w, impl, t) or 0.0)
                    cold.append(res.get(res.cold, w, impl, t))
                bars = ax.bar(xs, warm, width * 0.92, color=colours[impl], label=LABEL[impl],
                              hatch="//" if impl in SINGLE else None, edgecolor="white")
                for b, v in zip(bars, warm):
                    ax.annotate(ms(v), (b.get_x() + b.get_width() / 2, v), ha="center",
                                va="bottom", fontsize=7, xytext=(0, 1),
                                textcoords="offset points")
                cx = [x for x, c in zip(xs, cold) if c is not None]
                cy = [c for c in cold if c is not None]
                ax.plot(cx, cy, linestyle="none", marker="D", color="black", markersize=3.5,
                        label="cold: first call in a fresh process" if ii == 0 else None)
            ax.set_xticks(range(len(THREADS)))
            ax.set_xticklabels([f"{t} thread{'s' if t > 1 else ''}" for t in THREADS])
            ax.set_ylabel("ms per call (warm median)")
            ax.set_title(f"{w}\n{title}", fontsize=9)
            ax.grid(axis="y", alpha=0.3)
            ax.set_ylim(0, ax.get_ylim()[1] * 1.25)  # room for the legend above the bars
            if wi == 0:
                ax.legend(fontsize=7, loc="upper left", ncol=2, framealpha=0.9)
    fig.suptitle(f"libKQUpScale, the whole call on NV21 frames, beside the alternatives\n"
                 f"bars: warm median of {res.samples()} rounds, diamonds: cold median; "
                 f"hatched: no threads of its own\n"
                 f"{machine}, {date}" + (f", library at {revision}" if revision else "") +
                 (f", load average {load}" if load else ""), fontsize=10)
    fig.tight_layout()
    fig.savefig(path, dpi=110)


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--warm", required=True, nargs="+")
    ap.add_argument("--cases", help="case names, one a line: the order of the workloads")
    ap.add_argument("--cold", required=True)
    ap.add_argument("--machine", required=True)
    ap.add_argument("--date", required=True)
    ap.add_argument("--revision", default="")
    ap.add_argument("--load", default="")
    ap.add_argument("--png")
    ap.add_argument("--md")
    args = ap.parse_args()

    order = []
    if args.cases:
        with open(args.cases) as f:
            order = [parse_name(line.strip()) for line in f if line.strip()]
    res = Results(load_warm(args.warm), load_cold(args.cold), order)
    if not res.workloads:
        sys.exit("bench-call-report: no results")
    head = f"Machine: {args.machine}. Date: {args.date}."
    if args.revision:
        head += f" Library at {args.revision}."
    if args.load:
        head += f" Load average (1 min), lowest-highest over the rounds: {args.load}."
    text = para(head) + "\n\n" + tables(res)
    print(text)
    print("\nPer case, medians:\n")
    print(cold_detail(res))
    if args.md:
        with open(args.md, "w") as f:
            f.write(text + "\n\n" + cold_detail(res) + "\n")
    if args.png:
        chart(res, args.png, args.machine, args.date, args.revision, args.load)
        print(f"\nchart: {args.png}")


if __name__ == "__main__":
    main()
