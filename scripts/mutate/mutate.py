#!/usr/bin/env python3
"""Makes small changes to the library, one at a time, and reports those that no test detects.

explained.txt, next to this script, explains the changes that no test can detect. The results are
stored in the work directory: --resume continues an interrupted run, and --again tries the survivors
again, for instance after a test has been added."""

import argparse
import collections
import json
import random
import sys
import threading
from pathlib import Path

import mutants
import trial

ROOT = Path(__file__).resolve().parents[2]
EXPLAINED = Path(__file__).with_name("explained.txt")


def parse_arguments():
    parser = argparse.ArgumentParser(prog="./dev mutate", description=__doc__)
    parser.add_argument("filter", nargs="*", help="only files whose path contains one of these")
    parser.add_argument("-j", "--jobs", type=int, default=1, help="number of parallel builds")
    parser.add_argument("--lines", help="only these lines, FIRST-LAST")
    parser.add_argument("--sample", type=int, help="only this many random mutants")
    parser.add_argument("--seed", type=int, default=1, help="seed of the random sample")
    parser.add_argument("--limit", type=int, default=5, help="processor seconds per program")
    parser.add_argument("--programs", default="", help="only test programs that match this regex")
    parser.add_argument("--resume", action="store_true", help="try only mutants without a result")
    parser.add_argument("--again", action="store_true", help="try the survivors again")
    parser.add_argument(
        "--sanitizer",
        choices=list(trial.FLAGS),
        default="none",
        help="build with this sanitizer; use with --again for survivors of the plain build",
    )
    parser.add_argument("--list", action="store_true", help="only list the mutants")
    parser.add_argument("--report", action="store_true", help="only report the stored results")
    work = ROOT / "build" / "mutate"
    parser.add_argument("--work", type=Path, default=work, help="work directory")
    return parser.parse_args()


def all_mutants(arguments):
    found = []
    for pattern in ("core/**/*.cpp", "core/**/*.h", "fs/**/*.cpp", "fs/**/*.h"):
        for path in sorted(ROOT.glob(pattern)):
            name = str(path.relative_to(ROOT))
            if not arguments.filter or any(part in name for part in arguments.filter):
                found += mutants.mutants_of(name, path.read_text(encoding="utf-8"))
    if arguments.lines:
        first, last = map(int, arguments.lines.split("-"))
        found = [mutant for mutant in found if first <= mutant.line <= last]
    if arguments.sample is not None and arguments.sample < len(found):
        chosen = set(random.Random(arguments.seed).sample(range(len(found)), arguments.sample))
        found = [mutant for index, mutant in enumerate(found) if index in chosen]
    return found


def read_explanations():
    """Returns the number of explained mutants per key. The file's first comment has the format."""
    explained = collections.Counter()
    keys = []
    source = reason = ""
    for line in EXPLAINED.read_text(encoding="utf-8").splitlines():
        text = line.strip()
        if not text or line.startswith("#"):
            continue
        if reason and not line.startswith("    "):
            keys, reason = [], ""
        if not line.startswith(" "):
            source = text
        elif reason or (text.startswith("- ") and not text.startswith("- =>")):
            if not reason:
                explained.update(keys)
            reason = f"{reason} {text}"
        else:
            file, line_text = source.split(": ", 1)
            keys.append((file, line_text, text))
    return explained


class Results:
    """The results of the mutants, written to disk one at a time."""

    def __init__(self, folder):
        folder.mkdir(parents=True, exist_ok=True)
        self.path = folder / "results.jsonl"
        self.known = {}
        if self.path.exists():
            for line in self.path.read_text(encoding="utf-8").splitlines():
                entry = json.loads(line)
                self.known[self.key(entry)] = entry

    @staticmethod
    def key(entry):
        return (entry["file"], entry["text"], entry["change"], entry["times"])

    def add(self, entry):
        self.known[self.key(entry)] = entry
        with self.path.open("a", encoding="utf-8") as file:
            file.write(json.dumps(entry) + "\n")


def numbered(found):
    """Yields each mutant with a number that distinguishes mutants of identical lines."""
    times = collections.Counter()
    for mutant in found:
        times[mutant.key] += 1
        yield mutant, times[mutant.key]


class Order:
    """The order of the programs: those that have killed most mutants on nearby lines come first,
    then those whose name matches the file, then the fastest. Slow programs always come last."""

    SLOW = 1.5  # seconds

    def __init__(self):
        self.kills = collections.Counter()

    def of(self, programs, mutant):
        stem = Path(mutant.file).stem.removeprefix("vx_")
        words = set(stem.split("_"))

        def rank(program):
            near = sum(
                self.kills[program.name, mutant.file, mutant.line + distance]
                for distance in range(-15, 16)
            )
            fits = len(words & set(program.name.split("_")))
            return (program.seconds > self.SLOW, -near, -fits, program.seconds)

        return sorted(programs, key=rank)

    def learn(self, mutant, by):
        self.kills[by.split(":")[0], mutant.file, mutant.line] += 1


class Run:
    def __init__(self, arguments, results, pending):
        self.arguments = arguments
        self.results = results
        self.pending = collections.deque(pending)
        self.total = len(pending)
        self.order = Order()
        self.lock = threading.Lock()

    def trees(self):
        sanitizer = self.arguments.sanitizer
        suffix = "" if sanitizer == "none" else f"-{sanitizer}"
        return [
            trial.Tree(
                ROOT, self.arguments.work / f"{number}{suffix}", sanitizer, self.arguments.programs
            )
            for number in range(self.arguments.jobs)
        ]

    def work(self, tree, first):
        if tree is not first:
            tree.build_unchanged()
            tree.take_programs(first)
        while True:
            with self.lock:
                if not self.pending:
                    return
                mutant, times = self.pending.popleft()
            outcome = tree.try_mutant(
                mutant, self.order.of(tree.programs, mutant), self.arguments.limit
            )
            if outcome.status == "killed":
                self.order.learn(mutant, outcome.by)
                if tree.sanitizer != "none":
                    outcome.by += f" ({tree.sanitizer} sanitizer)"
            with self.lock:
                self.keep(mutant, times, outcome)

    def keep(self, mutant, times, outcome):
        self.results.add(
            {
                "file": mutant.file,
                "line": mutant.line,
                "text": mutant.text,
                "change": mutant.change,
                "times": times,
                "status": outcome.status,
                "by": outcome.by,
            }
        )
        done = self.total - len(self.pending)
        print(
            f"{done}/{self.total} {outcome.status:8} {mutant.file}:{mutant.line} {mutant.change}"
            f"  {outcome.by}",
            flush=True,
        )

    def run(self):
        first, *others = self.trees()
        for tree in (first, *others):
            tree.refresh()
        first.find_programs()
        first.build_unchanged()
        failures = []

        def guarded(tree):
            try:
                self.work(tree, first)
            except Exception as failure:  # raised again in the main thread
                failures.append(failure)

        threads = [
            threading.Thread(target=guarded, args=(tree,)) for tree in (first, *others)
        ]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        if failures:
            raise failures[0]


def report(found, results, explained):
    """Prints the survivors. Returns whether all mutants were tried and all survivors explained."""
    counts = collections.Counter()
    left = explained.copy()
    unexplained = 0
    for mutant, times in found:
        entry = results.known.get((*mutant.key, times))
        status = entry["status"] if entry else "not tried"
        if status == "survived" and left[mutant.key] > 0:
            left[mutant.key] -= 1
            status = "explained"
        counts[status] += 1
        if status == "survived":
            unexplained += 1
            print(f"\n{mutant.file}:{mutant.line}\n  {mutant.text}\n  {mutant.change}")
    print("\n" + ", ".join(f"{number} {status}" for status, number in sorted(counts.items())))
    keys = {mutant.key for mutant, _ in found}
    for key in explained:
        if key not in keys and any(key[0] == mutant.file for mutant, _ in found):
            print(f"explained, but not a mutant: {key[0]}: {key[1]}: {key[2]}")
    return unexplained == 0 and not counts["not tried"]


def is_wanted(arguments, mutant, entry, explained):
    if not entry:
        return True
    if arguments.again:
        return entry["status"] == "survived" and mutant.key not in explained
    return not arguments.resume


def main():
    arguments = parse_arguments()
    found = list(numbered(all_mutants(arguments)))
    if arguments.list:
        for mutant, _ in found:
            print(f"{mutant.file}:{mutant.line}: {mutant.change}: {mutant.text}")
        print(len(found))
        return 0
    results = Results(arguments.work)
    explained = read_explanations()
    if not arguments.report:
        pending = [
            (mutant, times)
            for mutant, times in found
            if is_wanted(arguments, mutant, results.known.get((*mutant.key, times)), explained)
        ]
        pending.sort(key=lambda entry: entry[0].key in explained)
        if pending:
            try:
                Run(arguments, results, pending).run()
            except trial.Failed as failure:
                print(f"the unchanged tests cannot be built or run:\n{failure}", file=sys.stderr)
                return 2
    return 0 if report(found, results, explained) else 1


if __name__ == "__main__":
    sys.exit(main())
