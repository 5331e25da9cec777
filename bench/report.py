#!/usr/bin/env python3
"""Turns the JSON output of the benchmark binaries into bench/report.md and a PNG chart.

Input: a folder with two files per binary, keli_bench_<subsystem>.sse42.json (OpenCV held to
SSE4.2-level code) and keli_bench_<subsystem>.native.json (OpenCV on its native path), as
written by scripts/bench.sh.

Row names (see bench/common/bench.hpp):
    <export>/<W>x<H>                keli's own row
    <peer>/<export>/<W>x<H>         a peer doing the same job: opencv:<fn>, memcpy, memset, libc:<fn>

Every ratio is keli time / peer time for one export and size, both timed in the same process
run (CPU time of the fastest of the repetitions): below 1 keli is faster. Standard library only, except the
chart, which needs matplotlib.
"""

import argparse
import datetime
import glob
import json
import math
import os
import platform
import re
import subprocess
import sys

OPENCV_SSE42 = "opencv-sse4.2"
OPENCV_NATIVE = "opencv-native"
HERE = os.path.dirname(os.path.abspath(__file__))


def time_ns(entry):
    scale = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}[entry.get("time_unit", "ns")]
    return entry["cpu_time"] * scale


def split_name(name):
    """Returns (subject, export, size); subject is 'keli' for keli's own rows."""
    parts = name.split("/")
    if len(parts) == 2:
        return "keli", parts[0], parts[1]
    if len(parts) == 3:
        return parts[0], parts[1], parts[2]
    raise ValueError("row name outside the convention: " + name)


# Statistic used per row, best first: the fastest repetition, else the median, else the run.
PREFERENCE = {"min": 0, "median": 1, None: 2}


def load_run(path):
    """{(export, size): {subject: row}} and the context of one JSON file."""
    with open(path) as f:
        doc = json.load(f)
    rows, rank = {}, {}
    for entry in doc.get("benchmarks", []):
        statistic = entry.get("aggregate_name") if entry.get("run_type") == "aggregate" else None
        if statistic not in PREFERENCE:
            continue
        subject, export, size = split_name(entry.get("run_name", entry["name"]))
        key = (export, size, subject)
        if key in rank and rank[key] <= PREFERENCE[statistic]:
            continue
        rank[key] = PREFERENCE[statistic]
        row = {"error": entry.get("error_message") if entry.get("error_occurred") else None}
        if not row["error"]:
            ns = time_ns(entry)
            pixels = entry.get("pixels", 0.0)
            row["ns"] = ns
            row["items"] = pixels / ns * 1e9 if ns > 0 and pixels else None
            traffic = pixels * entry.get("bytes_per_pixel", 0.0)
            row["bytes"] = traffic / ns * 1e9 if ns > 0 and traffic else None
        rows.setdefault((export, size), {})[subject] = row
    return rows, doc.get("context", {})


def ratio(keli_row, peer_row):
    if not keli_row or not peer_row or keli_row.get("error") or peer_row.get("error"):
        return None
    return keli_row["ns"] / peer_row["ns"]


def best_opencv(subjects):
    """The fastest OpenCV row among the peers of one export, and the function names."""
    cv = {s: r for s, r in subjects.items() if s.startswith("opencv:") and not r.get("error")}
    if not cv:
        return None, ""
    best = min(cv, key=lambda s: cv[s]["ns"])
    return cv[best], ", ".join(sorted(s.split(":", 1)[1] for s in cv))


def size_key(size):
    w, _, h = size.partition("x")
    return (int(w) * int(h)) if w.isdigit() and h.isdigit() else 0


def collect(results):
    """{subsystem: {"sse42": (rows, ctx), "native": (rows, ctx)}}"""
    runs = {}
    for path in sorted(glob.glob(os.path.join(results, "keli_bench_*.json"))):
        m = re.match(r"keli_bench_(\w+)\.(sse42|native)\.json$", os.path.basename(path))
        # A filtered run leaves the output of a binary with no matching row empty.
        if m and os.path.getsize(path) > 0:
            runs.setdefault(m.group(1), {})[m.group(2)] = load_run(path)
    return runs


def table_rows(runs):
    """One record per (subsystem, export, size) with keli's figures and every ratio."""
    records = []
    for subsystem, kinds in sorted(runs.items()):
        sse, _ = kinds.get("sse42", ({}, {}))
        nat, _ = kinds.get("native", ({}, {}))
        for key in sorted(set(sse) | set(nat), key=lambda k: (k[0], size_key(k[1]))):
            export, size = key
            a, b = sse.get(key, {}), nat.get(key, {})
            keli = a.get("keli") or b.get("keli")
            rec = {"subsystem": subsystem, "export": export, "size": size, "keli": keli, "ratios": {}}
            cv_a, names_a = best_opencv(a)
            cv_b, names_b = best_opencv(b)
            rec["opencv_fn"] = names_a or names_b
            rec["ratios"][OPENCV_SSE42] = ratio(a.get("keli"), cv_a)
            rec["ratios"][OPENCV_NATIVE] = ratio(b.get("keli"), cv_b)
            for subject, row in a.items():
                if subject != "keli" and not subject.startswith("opencv:"):
                    rec["ratios"][subject] = ratio(a.get("keli"), row)
            records.append(rec)
    return records


def peer_columns(records):
    others = sorted({p for r in records for p in r["ratios"]} - {OPENCV_SSE42, OPENCV_NATIVE},
                    key=lambda p: (p not in ("memcpy", "memset"), p))
    return [OPENCV_SSE42, OPENCV_NATIVE] + others


def fmt_ratio(x):
    return "–" if x is None else "%.2f" % x


def fmt_rate(keli, field, unit):
    if not keli:
        return "–"
    if keli.get("error"):
        return "error: " + keli["error"]
    v = keli.get(field)
    return "–" if v is None else "%.0f" % (v / unit)


def fmt_time(keli):
    if not keli or keli.get("error"):
        return "–"
    ns = keli["ns"]
    for unit, scale in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if ns >= scale:
            return "%.3g %s" % (ns / scale, unit)
    return "%.3g ns" % ns


def geomean(values):
    values = [v for v in values if v]
    return math.exp(sum(math.log(v) for v in values) / len(values)) if values else None


def read_targets(path):
    targets = []
    if not os.path.exists(path):
        return targets
    with open(path) as f:
        for line in f:
            text, _, note = line.partition("#")
            fields = text.split()
            if len(fields) == 4:
                targets.append((fields[0], fields[1], fields[2], float(fields[3]), note.strip()))
    return targets


def command_output(args):
    try:
        return subprocess.run(args, capture_output=True, text=True, timeout=10).stdout
    except (OSError, subprocess.SubprocessError):
        return ""


def machine_lines():
    model, cpus = "unknown", 0
    try:
        with open("/proc/cpuinfo") as f:
            for line in f:
                if line.startswith("model name") and model == "unknown":
                    model = line.split(":", 1)[1].strip()
                if line.startswith("processor"):
                    cpus += 1
    except OSError:
        pass
    caches = []
    for line in command_output(["lscpu"]).splitlines():
        m = re.match(r"\s*(L\d\w?) cache:\s*(.+)", line)
        if m:
            caches.append("%s %s" % (m.group(1), m.group(2).strip()))
    if not caches:
        for index in sorted(glob.glob("/sys/devices/system/cpu/cpu0/cache/index*")):
            try:
                read = lambda n: open(os.path.join(index, n)).read().strip()
                caches.append("L%s %s %s" % (read("level"), read("type").lower(), read("size")))
            except OSError:
                pass
    virt = ""
    for line in command_output(["lscpu"]).splitlines():
        if line.startswith("Hypervisor vendor:"):
            virt = " (virtual machine, %s)" % line.split(":", 1)[1].strip()
    compiler = command_output(["c++", "--version"]).splitlines()
    return [
        "- Processor: %s, %d logical CPUs%s" % (model, cpus, virt),
        "- Caches: %s" % ("; ".join(caches) if caches else "unknown"),
        "- System: %s %s, %s" % (platform.system(), platform.release(), compiler[0] if compiler else "compiler unknown"),
    ]


def opencv_state(ctx):
    on = [f for f in ("avx", "avx2", "avx512_skx") if ctx.get("opencv_" + f) == "on"]
    return ("dispatch up to " + ", ".join(x.upper() for x in on)) if on else "SSE4.2 dispatch only"


def write_report(records, runs, report, chart):
    columns = peer_columns(records)
    contexts = [ctx for kinds in runs.values() for _, ctx in kinds.values()]
    first = contexts[0] if contexts else {}
    sse_ctx = next((kinds["sse42"][1] for kinds in runs.values() if "sse42" in kinds), {})
    nat_ctx = next((kinds["native"][1] for kinds in runs.values() if "native" in kinds), {})
    limited_ok = sse_ctx and opencv_state(sse_ctx) == "SSE4.2 dispatch only"
    git = command_output(["git", "-C", HERE, "rev-parse", "--short", "HEAD"]).strip()

    out = ["# keli benchmarks", ""]
    out.append("Generated by `bash scripts/bench.sh` on %s%s." % (
        first.get("date", datetime.datetime.now().isoformat(timespec="seconds")),
        " at commit %s" % git if git else ""))
    out.append("")
    out += machine_lines()
    load = first.get("load_avg")
    if load:
        out.append("- Load average when the run started: %s (other work on the machine adds noise)"
                   % ", ".join("%.2f" % x for x in load))
    out.append("- OpenCV %s, one thread, no bundled vendor kernels; %s run: %s; %s run: %s%s" % (
        first.get("opencv_version", "?"), OPENCV_SSE42, opencv_state(sse_ctx) if sse_ctx else "not run",
        OPENCV_NATIVE, opencv_state(nat_ctx) if nat_ctx else "not run",
        "" if limited_ok or not sse_ctx else " (WARNING: the limited run was not limited)"))
    out.append("- Google Benchmark (%s build of the library); each time is the CPU time of one call, the fastest "
               "of 5 repetitions of at least 0.05 s, the repetitions of all rows interleaved at random"
               % first.get("library_build_type", "?"))
    out.append("")
    out.append("## How to read this")
    out.append("")
    out.append("Each ratio is **keli time / peer time** for the same work on the same buffers, timed in one "
               "process run: **below 1 keli is faster**, above 1 the peer is. `%s` is OpenCV limited to "
               "SSE4.2-level code, the like-for-like peer; `%s` is OpenCV at its best path on this "
               "processor. `memcpy` (or `memset` for pure writes) moves the same bytes as the export reads "
               "and writes: the physical limit for streaming work, so a ratio near 1 there means the export "
               "runs at memory speed. `libc:*` is the C library doing the same job. keli Mpix/s is "
               "keli's throughput in million pixels per second; GB/s counts bytes read plus bytes written; "
               "keli time is one call on the whole image."
               % (OPENCV_SSE42, OPENCV_NATIVE))
    out.append("")
    out.append("256x256 stays in the caches. 3840x2160 is timed out of cache: each timed call works on its own "
               "copy of the images, from a pool of copies that holds twice the last-level cache, so its data "
               "comes from memory even where one frame would fit that cache.")
    out.append("")

    summary = ["## Summary", "", "Geometric mean of the ratios over the rows of a subsystem and size.", "",
               "| Subsystem | Size | " + " | ".join(columns) + " |", "|---|---|" + "---:|" * len(columns)]
    for subsystem in sorted({r["subsystem"] for r in records}):
        mine = [r for r in records if r["subsystem"] == subsystem]
        for size in sorted({r["size"] for r in mine}, key=size_key):
            cells = [fmt_ratio(geomean([r["ratios"].get(c) for r in mine if r["size"] == size])) for c in columns]
            summary.append("| %s | %s | %s |" % (subsystem, size, " | ".join(cells)))
    out += summary + [""]

    targets = read_targets(os.path.join(HERE, "targets.txt"))
    if targets:
        out += ["## Speed targets", "", "| Export | Size | Peer | Target ratio | Measured | |", "|---|---|---|---:|---:|---|"]
        for export, size, peer, limit, note in targets:
            rec = next((r for r in records if r["export"] == export and r["size"] == size), None)
            got = rec["ratios"].get(peer) if rec else None
            verdict = "not run" if got is None else ("met" if got <= limit else "**missed**")
            out.append("| %s | %s | %s | <= %.2f %s | %s | %s |" % (
                export, size, peer, limit, "(%s)" % note if note else "", fmt_ratio(got), verdict))
        out.append("")

    out.append("## Ratios per export and size")
    for subsystem in sorted({r["subsystem"] for r in records}):
        out += ["", "### %s" % subsystem, ""]
        out.append("| Export | Size | keli time | keli Mpix/s | keli GB/s | OpenCV function | " + " | ".join(columns) + " |")
        out.append("|---|---|---:|---:|---:|---|" + "---:|" * len(columns))
        for r in (r for r in records if r["subsystem"] == subsystem):
            out.append("| %s | %s | %s | %s | %s | %s | %s |" % (
                r["export"], r["size"], fmt_time(r["keli"]), fmt_rate(r["keli"], "items", 1e6), fmt_rate(r["keli"], "bytes", 1e9),
                r["opencv_fn"] or "–", " | ".join(fmt_ratio(r["ratios"].get(c)) for c in columns)))
    out += ["", "## Chart", "", "![keli time / peer time, log scale](%s)"
            % os.path.relpath(chart, os.path.dirname(os.path.abspath(report))), ""]
    with open(report, "w") as f:
        f.write("\n".join(out))
    return columns


def write_chart(records, columns, chart):
    try:
        import matplotlib
        matplotlib.use("Agg")
        import matplotlib.pyplot as plt
    except ImportError:
        sys.stderr.write("report.py: matplotlib is missing (bash scripts/setup.sh bench installs it); no chart\n")
        return False
    labels = ["%s %s" % (r["export"], r["size"]) for r in records]
    n, k = len(records), len(columns)
    height = 0.8 / max(k, 1)
    # A comfortable bar height for the first few dozen rows; beyond that the rows shrink
    # towards the height of their label so that the picture stays a readable size.
    per_row = 0.28 * k if n <= 40 else max(0.16, 0.28 * k * 40 / n)
    fig, ax = plt.subplots(figsize=(10, 1.6 + per_row * n))
    colours = ["#1f77b4", "#9ecae1", "#2ca02c", "#d62728", "#9467bd", "#8c564b"]
    for j, column in enumerate(columns):
        ys, xs = [], []
        for i, r in enumerate(records):
            v = r["ratios"].get(column)
            if v:
                ys.append(i + (j - (k - 1) / 2) * height)
                xs.append(v)
        if xs:
            ax.barh(ys, xs, height=height, color=colours[j % len(colours)], label=column)
    ax.set_xscale("log")
    from matplotlib.ticker import FuncFormatter, NullFormatter
    ax.xaxis.set_major_formatter(FuncFormatter(lambda x, _: "%g" % x))
    ax.xaxis.set_minor_formatter(NullFormatter())
    ax.axvline(1.0, color="black", linewidth=1)
    ax.set_yticks(range(n))
    ax.set_yticklabels(labels, fontsize=8)
    ax.invert_yaxis()
    ax.set_xlabel("keli time / peer time (log scale; below 1 keli is faster)")
    ax.set_title("keli against its peers")
    ax.grid(axis="x", which="both", alpha=0.3)
    ax.legend(loc="lower right", fontsize=8)
    fig.tight_layout()
    fig.savefig(chart, dpi=100)
    plt.close(fig)
    return True


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--results", required=True, help="folder with the JSON files of scripts/bench.sh")
    ap.add_argument("--report", default=os.path.join(HERE, "report.md"))
    ap.add_argument("--chart", default=os.path.join(HERE, "report.png"))
    args = ap.parse_args()
    runs = collect(args.results)
    records = table_rows(runs)
    if not records:
        sys.exit("report.py: no benchmark results in " + args.results)
    columns = write_report(records, runs, args.report, args.chart)
    if not write_chart(records, columns, args.chart):
        sys.exit(1)


if __name__ == "__main__":
    main()
