#!/usr/bin/env python3
"""Runs the benchmark programs and reports their times relative to plain C.

Every case is named "work/contender". The contender "plain C" makes the same system calls as the
library. The repetitions of a program are interleaved at random, so that other load on the machine
affects all contenders alike. The report compares medians.
"""

import argparse
import json
import pathlib
import platform
import re
import shutil
import subprocess
import sys

# The largest acceptable ratio to plain C.
AIMS = {
    "writeZip 64 MiB text": 1.01,
    "writeZip 64 MiB noise": 1.01,
    "writeZip 2,000 x 16 KiB": 1.03,
    "writeZip 20,000 x 200 B": 1.1,
    "readZip 64 MiB text": 1.01,
    "readZip 64 MiB noise": 1.01,
    "readZip 2,000 x 16 KiB": 1.03,
    "readZip 20,000 x 200 B": 1.05,
    "copyFile 1 KiB": 1.5,
    "copyFile 1 MiB": 1.05,
    "copyFile 256 MiB": 1.03,
    "listFiles 10000": 1.15,
    "normal form, mixed": 1.2,
    "normal form, already normal": 0.7,
    "ext of a path": 2,
    "file of a path": 2,
    "dir of a path": 2,
    "join of two": 3,
    "canonical": 1.08,
    "string copy": 1.1,
    "string literal 24": 1.2,
    "string append 8": 1.2,
    "string split 16": 1.2,
    "string join 16": 1.2,
    "compareNoCase 24": 1.2,
    "compareNoCase 3": 1.0,
    "resolvePath wildcard miss": 1.3,
    "mkDir, 10 new levels": 1.05,
    "mkDir, all there": 1.1,
}

PROGRAMS = ("string", "path", "fs", "zip")

# A peer counts as faster than the library if its median is lower by more than this fraction.
NOISE = 0.03

# How a peer's work differs, by a prefix of the work's name and the peer.
UNLIKE = {
    ("copyFile", "std::filesystem"): "copies in the kernel and truncates the old file",
    ("copyFile", "Boost"): "copies in the kernel and truncates the old file",
    ("copyFile", "Qt"): "copies in the kernel to an unnamed file and waits for the disk",
    ("listFiles", "Qt"): "reads the types of the entries from the directory, without stat calls",
    ("mkDir, 10 new", "Qt"): "creates each directory without a stat call first",
    ("mkDir, all", "Boost"): "makes one stat call, not two",
    ("mkDir, all", "std::filesystem"): "makes one stat call, not two",
    ("writeZip", "miniz"): "no stat calls for each input",
    ("writeZip", "libzip"): "one stat call for each input",
    ("writeZip", "minizip"): "no stat calls for each input, no times",
    ("writeZip", "libarchive"): "one stat call for each input",
    ("writeZip", "minizip with the checks"): "no times",
    ("readZip", "miniz"): "no stat calls for each entry",
    ("readZip", "libzip"): "no stat calls for each entry",
    ("readZip", "minizip"): "no stat calls for each entry",
    ("readZip", "libarchive"): "one stat call for each entry",
    ("compareNoCase", "strcasecmp"): "uses the tables of the C locale and vector instructions",
    ("string", "std::string"): "copies do not share the bytes",
    ("ext", "LLVM"): "short results are not allocated",
    ("file", "LLVM"): "finds the name in a view",
    ("ext", "std::filesystem"): "keeps a list of the components with each path",
    ("file", "std::filesystem"): "keeps a list of the components with each path",
    ("join of two", "Abseil"): "does not handle separators",
    ("join of two", "LLVM"): "joins in a buffer on the stack first",
}
PROGRAM_PEERS = ("zip, unzip", "bsdtar", "Python zipfile")
STARTS = "starts a process"

# Why a peer is faster, by a prefix of the work's name.
REASONS = {
    "writeZip": "The function checks each input, as documented.",
    "readZip 64": "zlib decompresses this content as fast as miniz.",
    "readZip": "The function checks each entry, as documented.",
    "copyFile": "The function removes the old file and copies through streams, as documented.",
    "listFiles": "The function makes a stat call for each entry, as documented.",
    "mkDir, 10 new": "The function tests each parent directory, as documented.",
    "mkDir, all": "The function makes two stat calls, as documented.",
    "ext": "Short strings are allocated too.",
    "file": "The function searches the path for the name.",
    "dir": "Short strings are allocated too.",
    "join of two": "The function takes a list of any number of parts.",
    "canonical": "The result of `realpath` is copied to a string.",
    "string literal": "Each string is allocated together with its reference count.",
    "string append": "Each string is allocated together with its reference count.",
    "string split": "Each string is allocated together with its reference count.",
    "string join": "The function computes the length first.",
    "compareNoCase": "Bytes are compared one by one, and the argument is reference-counted.",
    "resolvePath": "As documented, the reference's directory is tested again for each candidate.",
}


def parse_arguments():
    parser = argparse.ArgumentParser(prog="./dev bench", description=__doc__)
    parser.add_argument("filter", nargs="?", default=".", help="regular expression for the names")
    parser.add_argument("--repetitions", type=int, default=7)
    parser.add_argument("--min-time", type=float, default=0.05, help="seconds per repetition")
    parser.add_argument("--publish", action="store_true", help="copy table and plot to docs/")
    parser.add_argument("--programs", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--out", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    return parser.parse_args()


def cases(program, arguments, out):
    """Runs a program and returns {name of the case: {median, spread}}."""
    result = out / (program.name + ".json")
    result.unlink(missing_ok=True)
    subprocess.run(
        [
            program,
            f"--benchmark_filter={arguments.filter}",
            f"--benchmark_repetitions={arguments.repetitions}",
            f"--benchmark_min_time={arguments.min_time}",
            "--benchmark_enable_random_interleaving=true",
            "--benchmark_report_aggregates_only=true",
            f"--benchmark_out={result}",
        ],
        check=True,
        stdout=subprocess.DEVNULL,
    )
    found = {}
    # A program without a matching case writes no result.
    if not result.exists() or not result.stat().st_size:
        return found
    report = json.loads(result.read_text())
    if "miniz" in report["context"]:
        print(f"Archives are written and read by miniz {report['context']['miniz']}.")
    for case in report["benchmarks"]:
        if case.get("error_occurred"):
            sys.exit(f"{case['name']}: {case['error_message']}")
        entry = found.setdefault(case["run_name"], {})
        # Cases that start other programs have to be measured in wall-clock time. Processor time is
        # more stable, because it excludes other processes.
        clock = "real_time" if "real_time" in case["run_name"] else "cpu_time"
        if case["aggregate_name"] == "median":
            entry["median"] = case[clock] * {"ns": 1, "us": 1e3, "ms": 1e6}[case["time_unit"]]
        elif case["aggregate_name"] == "cv":
            entry["spread"] = case[clock]
    return found


def run(program, arguments, out):
    """Runs a program and returns {work: {contender: {median, spread}}}."""
    work = {}
    for run_name, entry in cases(program, arguments, out).items():
        name, contender = split_name(run_name)
        work.setdefault(name, {})[contender] = entry
    return work


def split_name(run_name):
    """Returns work and contender. A numeric argument of the case becomes part of the work."""
    parts = [part for part in run_name.split("/") if part != "real_time"]
    argument = " " + parts.pop() if parts[-1].isdigit() else ""
    return "/".join(parts[:-1]) + argument, parts[-1]


def format_time(nanoseconds):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if nanoseconds >= size:
            return f"{nanoseconds / size:.3g} {unit}"
    return f"{nanoseconds:.3g} ns"


def by_prefix(table, name):
    """Returns the value of the longest key that is a prefix of `name`."""
    return table[max((key for key in table if name.startswith(key)), key=len)]


def has_faster_peer(contenders):
    limit = contenders["vx"]["median"] * (1 - NOISE)
    return any(peers_of(contenders)[peer] < limit for peer in peers_of(contenders))


def peers_of(contenders):
    return {
        peer: entry["median"]
        for peer, entry in sorted(contenders.items())
        if peer not in ("plain C", "vx")
    }


class Notes:
    """The notes of a table, numbered in the order of their first use."""

    def __init__(self):
        self.texts = []

    def mark(self, name, peer):
        text = STARTS if peer in PROGRAM_PEERS else UNLIKE.get(self.key(name, peer))
        if text is None:
            return ""
        if text not in self.texts:
            self.texts.append(text)
        return f" [{self.texts.index(text) + 1}]"

    @staticmethod
    def key(name, peer):
        return next((key for key in UNLIKE if name.startswith(key[0]) and peer == key[1]), None)

    def listed(self):
        return "".join(f"- [{number}] {text}\n" for number, text in enumerate(self.texts, 1))


def row(name, contenders, notes):
    plain = contenders["plain C"]["median"]
    ratio = contenders["vx"]["median"] / plain
    aim = AIMS.get(name)
    met = "" if aim is None or ratio <= aim else " (missed)"
    peers = ", ".join(
        f"{peer} {median / plain:.2f}{notes.mark(name, peer)}"
        for peer, median in peers_of(contenders).items()
    )
    return (
        f"| {name} | {format_time(plain)} ± {contenders['plain C']['spread']:.0%} "
        f"| **{ratio:.2f}** ± {contenders['vx']['spread']:.0%} "
        f"| {'' if aim is None else aim}{met} | {peers} |"
    )


def tables(work):
    """Returns two tables: the work in which a peer is faster, with the reasons, and other work."""
    notes = Notes()
    heading = "| work | plain C | vx / plain C | aim | peers / plain C |"
    faster = [f"{heading} why a peer is faster |", "|---|---|---|---|---|---|"]
    others = [heading, "|---|---|---|---|---|"]
    for name, contenders in sorted(work.items(), key=lambda item: order(item[0])):
        line = row(name, contenders, notes)
        if has_faster_peer(contenders):
            faster.append(f"{line} {by_prefix(REASONS, name)} |")
        else:
            others.append(line)
    parts = [
        ("Work in which a peer is faster than the library by more than 3 %:", faster),
        ("All other work:", others),
    ]
    text = "\n".join(
        f"{title}\n\n" + "\n".join(lines) + "\n" for title, lines in parts if len(lines) > 2
    )
    return f"{text}\nMarked peers do less or other work:\n\n{notes.listed()}" if notes.texts else text


def order(name):
    names = list(AIMS)
    return (names.index(name) if name in names else len(names), name)


MID_TONE = "#808080"


def plotting():
    """Returns the plotting library, configured to write reproducible files."""
    import matplotlib

    matplotlib.use("svg")
    matplotlib.rcParams["svg.hashsalt"] = "vx"
    # Readable on a light and a dark background.
    matplotlib.rcParams["savefig.transparent"] = True
    matplotlib.rcParams["legend.facecolor"] = "none"
    for part in ("text.color", "axes.labelcolor", "axes.edgecolor", "xtick.color", "ytick.color"):
        matplotlib.rcParams[part] = MID_TONE
    from matplotlib import pyplot

    return pyplot


def plot(work, path):
    pyplot = plotting()
    names = sorted(work, key=order, reverse=True)
    figure, axes = pyplot.subplots(figsize=(9, 0.34 * len(names) + 1.2))
    for line, name in enumerate(names):
        contenders = work[name]
        plain = contenders["plain C"]["median"]
        peers = [median / plain for median in peers_of(contenders).values()]
        label = {} if line else {"peers": "peers", "vx": "vx", "aim": "aim"}
        axes.scatter(peers, [line] * len(peers), color=MID_TONE, s=22, label=label.get("peers"))
        axes.scatter(
            contenders["vx"]["median"] / plain,
            line,
            color="tab:blue",
            s=42,
            zorder=3,
            label=label.get("vx"),
        )
        if name in AIMS:
            axes.scatter(AIMS[name], line, color="tab:green", marker="|", s=140, label=label.get("aim"))
    axes.axvline(1, color=MID_TONE, linewidth=0.8)
    axes.set_xscale("log")
    axes.set_yticks(range(len(names)), names)
    axes.set_xlabel("time / time of plain C (log scale)")
    axes.grid(axis="x", alpha=0.3)
    axes.legend(loc="lower right")
    figure.tight_layout()
    figure.savefig(path, metadata={"Date": None})


def machine():
    model = re.search(r"model name\s*: (.*)", pathlib.Path("/proc/cpuinfo").read_text())
    return f"{model.group(1) if model else platform.processor()}, {platform.platform(terse=True)}"


def main():
    arguments = parse_arguments()
    arguments.out.mkdir(parents=True, exist_ok=True)
    work = {}
    for name in PROGRAMS:
        work.update(run(arguments.programs / f"vx_bench_{name}", arguments, arguments.out))
    work = {name: case for name, case in work.items() if "plain C" in case and "vx" in case}
    if not work:
        sys.exit(f"no work with a plain C contender matches '{arguments.filter}'")

    text = (
        f"Medians of {arguments.repetitions} interleaved repetitions, ± their coefficient of "
        f"variation. {machine()}.\n\n{tables(work)}"
    )
    (arguments.out / "performance-table.md").write_text(text)
    plot(work, arguments.out / "performance.svg")
    print(text)
    if arguments.publish:
        publish(arguments.out, "performance-table.md", "performance.svg")


def publish(out, *names):
    for name in names:
        shutil.copy(out / name, pathlib.Path("docs") / name)


if __name__ == "__main__":
    main()
