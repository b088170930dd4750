#!/usr/bin/env python3
"""Plants each fault of faults.py in turn, rebuilds the test binaries that should catch it,
runs them and puts the file back. A fault is caught when one of its binaries fails (or
hangs past the time limit). Use it before and after reshaping a test suite: what was
caught before must still be caught.

usage: scripts/mutants/run.py [--build DIR] [--out FILE] [--timeout S] [ID-or-binary ...]
The tree must be clean and DIR configured (as `make test` leaves build/). With arguments,
only the faults whose id or binary is named run. Exits 1 when a fault outside
KNOWN_MISSED is missed, or a fault no longer applies to the code."""
import argparse
import os
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
exec(open(os.path.join(HERE, "faults.py")).read())  # FAULTS, KNOWN_MISSED

# Where each binary lands in the build tree, and what else it needs built.
PLACE = {"test_tool": "tests/tool/test_tool", "test_abi": "tests/abi/test_abi"}
EXTRA = {"test_tool": ["hylorn_tool"], "test_abi": ["hylorn"]}


def run_binary(build, binary, timeout):
    path = os.path.join(build, PLACE.get(binary, "tests/" + binary))
    try:
        r = subprocess.run([path, "--gtest_fail_fast", "--gtest_brief=1"], cwd=os.path.dirname(path),
                           capture_output=True, text=True, errors="replace", timeout=timeout)
    except subprocess.TimeoutExpired:
        return "hang"
    failed = [l.split()[3] for l in r.stdout.splitlines() if l.startswith("[  FAILED  ]") and len(l.split()) > 3]
    return (failed[0] if failed else f"exit {r.returncode}") if r.returncode != 0 else None


def plant(fid, path, edits, binaries, args):
    full = os.path.join(ROOT, path)
    text = open(full).read()
    if any(text.count(old) != 1 for old, _ in edits):
        return "STALE", "the old text is not in the file exactly once"
    changed = text
    for old, new in edits:
        changed = changed.replace(old, new)
    open(full, "w").write(changed)
    try:
        targets = binaries + [t for b in binaries for t in EXTRA.get(b, [])]
        b = subprocess.run(["cmake", "--build", args.build, "--target"] + targets,
                           capture_output=True, text=True, errors="replace")
        if b.returncode != 0:
            return "UNBUILDABLE", b.stdout[-300:].replace("\n", " ")
        for binary in binaries:
            failed = run_binary(args.build, binary, args.timeout)
            if failed:
                return "caught", f"{binary}: {failed}"
        return "missed", ""
    finally:
        open(full, "w").write(text)


def main():
    p = argparse.ArgumentParser()
    p.add_argument("--build", default=os.path.join(ROOT, "build"))
    p.add_argument("--out", default="mutants.tsv")
    p.add_argument("--timeout", type=int, default=300)
    p.add_argument("only", nargs="*")
    args = p.parse_args()
    bad = 0
    with open(args.out, "w") as out:
        for fid, path, edits, binaries in FAULTS:
            if args.only and fid not in args.only and not set(binaries) & set(args.only):
                continue
            t0 = time.time()
            verdict, detail = plant(fid, path, edits, binaries, args)
            expected = "missed" if fid in KNOWN_MISSED else "caught"
            flag = "" if verdict == expected else "  <-- unexpected"
            bad += bool(flag)
            line = f"{fid}\t{verdict}\t{time.time() - t0:.0f}s\t{detail}{flag}"
            print(line, flush=True)
            out.write(line + "\n")
    subprocess.run(["cmake", "--build", args.build], capture_output=True)
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
