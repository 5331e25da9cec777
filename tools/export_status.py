#!/usr/bin/env python3
"""Rewrites the status table of README.md: for each family list of exports, how many of its
names the built library exports. The lists live in ../shared/exports (or the folder given
with --lists); the library is build/libkeli.so unless --lib names another."""
import argparse
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
BEGIN, END = "<!-- status:begin -->", "<!-- status:end -->"


def exported(lib):
    out = subprocess.run(["nm", "-D", "--defined-only", str(lib)], check=True, capture_output=True, text=True)
    return {line.split()[-1] for line in out.stdout.splitlines() if line.strip()}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--lists", default=str(ROOT.parent / "shared" / "exports"))
    parser.add_argument("--lib", default=str(ROOT / "build" / "libkeli.so"))
    args = parser.parse_args()
    names = exported(args.lib)
    rows, have_all, total_all = [], 0, 0
    for path in sorted(pathlib.Path(args.lists).glob("*/*.txt")):
        wanted = [n for n in path.read_text().split() if n]
        have = sum(n in names for n in wanted)
        have_all += have
        total_all += len(wanted)
        state = "complete" if have == len(wanted) else ("in progress" if have else "not started")
        rows.append(f"| {path.parent.name} | {path.stem} | {have} / {len(wanted)} | {state} |")
    table = "\n".join(
        ["| subsystem | family | exports | state |", "|---|---|---|---|"] + rows
        + [f"| **all** | | **{have_all} / {total_all}** | |"])
    readme = ROOT / "README.md"
    text = readme.read_text()
    new = re.sub(re.escape(BEGIN) + ".*?" + re.escape(END), BEGIN + "\n" + table + "\n" + END, text, flags=re.S)
    if new != text:
        readme.write_text(new)
    print(f"{have_all} of {total_all} exports")
    return 0


if __name__ == "__main__":
    sys.exit(main())
