#!/usr/bin/env python3
"""Counts the instructions and system calls of each operation.

valgrind counts the instructions and strace counts the system calls. Both are independent of other
load on the machine.
"""

import argparse
import collections
import json
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[1]
COUNTS = ROOT / "bench" / "counts" / "counts.json"
TABLE = ROOT / "docs" / "counts-table.md"

# The largest accepted change of the instructions. System calls are compared exactly.
TOLERANCE = 0.03
SKIPPED = 77


def parse_arguments():
    parser = argparse.ArgumentParser(prog="./dev counts", description=__doc__)
    parser.add_argument(
        "--publish", action="store_true", help="store the counts in bench/counts/ and docs/"
    )
    parser.add_argument("--check", action="store_true", help="compare with the stored counts")
    parser.add_argument("program", type=pathlib.Path, help=argparse.SUPPRESS)
    arguments = parser.parse_args()
    arguments.program = arguments.program.resolve()
    return arguments


def skip(reason):
    print(f"Skipped: {reason}")
    sys.exit(SKIPPED)


def run(*command, cwd=None):
    # The size of the environment affects the address of the stack, and so the counts.
    result = subprocess.run(
        [str(part) for part in command],
        cwd=cwd,
        env={"LC_ALL": "C"},
        stdin=subprocess.DEVNULL,
        capture_output=True,
        text=True,
        check=False,
    )
    if result.returncode:
        sys.exit(f"{' '.join(map(str, command))} failed:\n{result.stdout}{result.stderr}")
    return result.stdout


def environment(program):
    """Returns what the counts depend on."""
    lines = run(program, "--environment").splitlines()
    version = run(valgrind(), "--version").strip().removeprefix("valgrind-")
    return dict(line.split("\t") for line in lines) | {"valgrind": version}


def valgrind():
    return shutil.which("valgrind")


def strace():
    return shutil.which("strace")


def per_repetition(output, count_of):
    """Returns the counts of a single repetition, {operation: {key: count}}."""
    runs = collections.defaultdict(list)
    for line in output.splitlines():
        process, times, operation = line.split("\t")
        runs[operation].append((int(times), count_of(process)))
    counts = {}
    for operation, ((fewer, low), (more, high)) in runs.items():
        counts[operation] = {
            key: (high[key] - low[key]) / (more - fewer) for key in sorted(high | low)
        }
    return counts


def count_instructions(program, directory):
    output = run(
        valgrind(),
        "--tool=callgrind",
        "--quiet",
        "--toggle-collect=vx_measured",
        "--callgrind-out-file=instructions.%p",
        program,
        cwd=directory,
    )

    def instructions(process):
        profile = (directory / f"instructions.{process}").read_text()
        return collections.Counter(all=int(re.search(r"^totals: (\d+)$", profile, re.M).group(1)))

    return {name: round(count["all"]) for name, count in per_repetition(output, instructions).items()}


def count_calls(program, directory):
    output = run(
        strace(), "--output-separately", "--follow-forks", "--output=calls", program, cwd=directory
    )

    def calls(process):
        names = re.findall(r"^(\w+)\(", (directory / f"calls.{process}").read_text(), re.M)
        return collections.Counter(names)

    return {
        name: {call: round(count, 2) for call, count in counts.items() if round(count, 2)}
        for name, counts in per_repetition(output, calls).items()
    }


def measure(program):
    with tempfile.TemporaryDirectory() as made:
        directory = pathlib.Path(made)
        instructions = count_instructions(program, directory)
        calls = count_calls(program, directory)
    return {
        "holds for": environment(program),
        "operations": {
            name: {"instructions": count, "system calls": calls[name]}
            for name, count in instructions.items()
        },
    }


def reason_to_skip(program):
    """Returns why the counts cannot be compared on this machine, or None if they can."""
    if not valgrind() or not strace():
        return "valgrind and strace are required"
    traced = subprocess.run([strace(), "-o", "/dev/null", "true"], capture_output=True, check=False)
    if traced.returncode:
        return "strace is not permitted to trace processes"
    kept = json.loads(COUNTS.read_text())["holds for"]
    here = environment(program)
    others = [f"{key}: {kept[key]}, here {here.get(key)}" for key in kept if kept[key] != here.get(key)]
    return "the stored counts are for " + "; ".join(others) if others else None


def differences(kept, found):
    for name in sorted(kept.keys() | found.keys()):
        if name not in kept or name not in found:
            yield f"{name}: {'not stored' if name not in kept else 'not counted'}"
            continue
        expected, counted = kept[name]["instructions"], found[name]["instructions"]
        if abs(counted - expected) > TOLERANCE * expected:
            change = counted / expected - 1
            yield f"{name}: {counted} instructions, expected {expected} ({change:+.1%})"
        if kept[name]["system calls"] != found[name]["system calls"]:
            yield (
                f"{name}: system calls {format_calls(found[name]['system calls'])}, "
                f"expected {format_calls(kept[name]['system calls'])}"
            )


def check(program):
    reason = reason_to_skip(program)
    if reason:
        skip(reason)
    found = list(differences(json.loads(COUNTS.read_text())["operations"], measure(program)["operations"]))
    if found:
        print("\n".join(found))
        sys.exit("If the changes are intended, run ./dev counts --publish to store the new counts.")


def format_calls(calls):
    return ", ".join(f"{count:g} {call}" for call, count in calls.items()) or "none"


def table(counts):
    lines = ["| work | instructions | system calls |", "|---|---|---|"]
    for name, count in counts["operations"].items():
        calls = count["system calls"]
        total = f"{sum(calls.values()):g}: {format_calls(calls)}" if calls else "0"
        lines.append(f"| {name} | {count['instructions']:,} | {total} |")
    held = ", ".join(f"{key} {value}" for key, value in counts["holds for"].items())
    return f"Counted with {held}.\n\n" + "\n".join(lines) + "\n"


def main():
    arguments = parse_arguments()
    if arguments.check:
        check(arguments.program)
        return
    counts = measure(arguments.program)
    print(table(counts), end="")
    if arguments.publish:
        COUNTS.write_text(json.dumps(counts, indent=2) + "\n")
        TABLE.write_text(table(counts))


if __name__ == "__main__":
    main()
