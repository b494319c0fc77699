#!/usr/bin/env python3
"""Runs the benchmark programs and writes what they cost as multiples of the floor.

Every case is named "work/contender"; the contender "floor" is the least that the work can cost. The
repetitions of one program are interleaved at random, so that whatever else the machine does falls on
all contenders alike, and medians are compared.
"""

import argparse
import json
import pathlib
import platform
import re
import shutil
import subprocess
import sys

# The share of the floor that each piece of work is to stay below.
AIMS = {
    "writeZip 64 MiB text": 1.01,
    "writeZip 64 MiB noise": 1.01,
    "writeZip 2,000 x 16 KiB": 1.03,
    "writeZip 20,000 x 200 B": 1.16,
    "readZip 64 MiB text": 1.01,
    "readZip 64 MiB noise": 1.01,
    "readZip 2,000 x 16 KiB": 1.03,
    "readZip 20,000 x 200 B": 1.18,
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
    "string copy": 0.2,
    "string literal 24": 1.2,
    "string append 8": 1.2,
    "string split 16": 1.2,
    "string join 16": 1.2,
    "compareNoCase 24": 0.5,
    "compareNoCase 3": 1.0,
    "resolvePath wildcard miss": 1.3,
    "mkDir, 10 new levels": 1.05,
    "mkDir, all there": 1.1,
}

PROGRAMS = ("string", "path", "fs", "zip")


def parse_arguments():
    parser = argparse.ArgumentParser(prog="./dev bench", description=__doc__)
    parser.add_argument("filter", nargs="?", default=".", help="regular expression on the names")
    parser.add_argument("--repetitions", type=int, default=9)
    parser.add_argument("--min-time", type=float, default=0.05, help="seconds a repetition")
    parser.add_argument("--publish", action="store_true", help="keep table and plot in docs/")
    parser.add_argument("--programs", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--out", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    return parser.parse_args()


def cases(program, arguments, out):
    """The aggregates of one program, as pairs of a case's name and {median, spread}."""
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
    # A filter that takes no case of a program leaves no result.
    if not result.exists() or not result.stat().st_size:
        return found
    report = json.loads(result.read_text())
    if "miniz" in report["context"]:
        print(f"The archives are those of miniz {report['context']['miniz']}.")
    for case in report["benchmarks"]:
        if case.get("error_occurred"):
            sys.exit(f"{case['name']}: {case['error_message']}")
        entry = found.setdefault(case["run_name"], {})
        # Programs that are started count only by the clock; the rest by the processor, which does not
        # count what others do meanwhile.
        clock = "real_time" if "real_time" in case["run_name"] else "cpu_time"
        if case["aggregate_name"] == "median":
            entry["median"] = case[clock] * {"ns": 1, "us": 1e3, "ms": 1e6}[case["time_unit"]]
        elif case["aggregate_name"] == "cv":
            entry["spread"] = case[clock]
    return found


def run(program, arguments, out):
    """The same by what is done and who does it, {work: {contender: {median, spread}}}."""
    work = {}
    for run_name, entry in cases(program, arguments, out).items():
        name, contender = split_name(run_name)
        work.setdefault(name, {})[contender] = entry
    return work


def split_name(run_name):
    """Work and contender; an argument of the case belongs to the work."""
    parts = [part for part in run_name.split("/") if part != "real_time"]
    argument = " " + parts.pop() if parts[-1].isdigit() else ""
    return "/".join(parts[:-1]) + argument, parts[-1]


def spelled(nanoseconds):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if nanoseconds >= size:
            return f"{nanoseconds / size:.3g} {unit}"
    return f"{nanoseconds:.3g} ns"


def table(work):
    lines = [
        "| work | floor | vx / floor | aim | peers / floor |",
        "|---|---|---|---|---|",
    ]
    for name, contenders in sorted(work.items(), key=lambda item: order(item[0])):
        floor = contenders["floor"]["median"]
        ratio = contenders["vx"]["median"] / floor
        aim = AIMS.get(name)
        met = "" if aim is None or ratio <= aim else " (missed)"
        peers = ", ".join(
            f"{peer} {entry['median'] / floor:.2f}"
            for peer, entry in sorted(contenders.items())
            if peer not in ("floor", "vx")
        )
        lines.append(
            f"| {name} | {spelled(floor)} ± {contenders['floor']['spread']:.0%} "
            f"| **{ratio:.2f}** ± {contenders['vx']['spread']:.0%} "
            f"| {'' if aim is None else aim}{met} | {peers} |"
        )
    return "\n".join(lines) + "\n"


def order(name):
    names = list(AIMS)
    return (names.index(name) if name in names else len(names), name)


def plotting():
    """The plotting library, set to write the same bytes for the same figures."""
    import matplotlib

    matplotlib.use("svg")
    matplotlib.rcParams["svg.hashsalt"] = "vx"
    from matplotlib import pyplot

    return pyplot


def plot(work, path):
    pyplot = plotting()
    names = sorted(work, key=order, reverse=True)
    figure, axes = pyplot.subplots(figsize=(9, 0.34 * len(names) + 1.2))
    for row, name in enumerate(names):
        contenders = work[name]
        floor = contenders["floor"]["median"]
        peers = [
            entry["median"] / floor
            for peer, entry in contenders.items()
            if peer not in ("floor", "vx")
        ]
        axes.scatter(peers, [row] * len(peers), color="0.65", s=22, label="peers" if not row else None)
        axes.scatter(
            contenders["vx"]["median"] / floor,
            row,
            color="tab:blue",
            s=42,
            zorder=3,
            label="vx" if not row else None,
        )
        if name in AIMS:
            axes.scatter(
                AIMS[name], row, color="tab:green", marker="|", s=140, label="aim" if not row else None
            )
    axes.axvline(1, color="0.3", linewidth=0.8)
    axes.set_xscale("log")
    axes.set_yticks(range(len(names)), names)
    axes.set_xlabel("cost / floor (log scale)")
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
    work = {name: case for name, case in work.items() if "floor" in case and "vx" in case}
    if not work:
        sys.exit(f"no work matches '{arguments.filter}' with its floor")

    text = (
        f"Medians of {arguments.repetitions} interleaved repetitions, ± their coefficient of "
        f"variation. {machine()}.\n\n{table(work)}"
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
