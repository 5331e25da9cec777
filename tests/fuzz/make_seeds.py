#!/usr/bin/env python3
"""Writes the fuzz harness's seed corpus, tests/fuzz/corpus/: one seed an export.

A seed is the export's name, a zero byte and 40 bytes the harness decodes as a plausible call
(small regions, exact steps, listed enum values), so every export is reached from the first
run and the fuzzer mutates from there. Run it again after adding exports.
"""
import hashlib
import pathlib
import re
import random

ROOT = pathlib.Path(__file__).resolve().parent
names = re.findall(r'^    \{"(kel\w+)", \d+, Returns::', (ROOT / "exports.inc").read_text(), re.M)
corpus = ROOT / "corpus"
corpus.mkdir(exist_ok=True)
# Seeds are rewritten; past findings (regression-*) stay.
for old in corpus.glob("kel*"):
    old.unlink()
for name in names:
    rng = random.Random(hashlib.sha256(name.encode()).digest())
    # Bytes below 150 take each kind's everyday branch (see kinds.hpp and call.cpp).
    body = bytes(rng.randrange(0, 150) for _ in range(40))
    (corpus / name).write_bytes(name.encode() + b"\0" + body)
print(f"{len(names)} seeds in {corpus.relative_to(ROOT.parent.parent)}")
