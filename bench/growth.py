#!/usr/bin/env python3
"""Measures how time and memory grow with the input size.

Covers the time of operations on paths, directories and archives, and the memory of listings and
archives. Takes about five minutes on an idle machine and 7 GiB on the RAM disk. --large takes three
more minutes and 10 GiB.
"""

import argparse
import math
import pathlib
import re
import subprocess

import report

KIB = 1024
MIB = 1024 * KIB

# For each family of work, in the order of the report: the unit of its sizes and its plot.
UNITS = {
    "path": "bytes",
    "levels": "levels",
    "entries": "entries",
    "files": "files of 200 B",
    "MiB": "MiB",
}
AXES = {
    "path": "length of the path",
    "levels": "levels of the path",
    "entries": "entries of the directory, files of the archive",
    "files": "entries of the directory, files of the archive",
    "MiB": "MiB in the archive",
}

SMALL_FILE = 200
MEMORY_FILES = (10, 1_000, 100_000, 500_000)
SMALL_FILES = f"files of {SMALL_FILE} B"
MEMORY_SIZES = (1 * MIB, 16 * MIB, 256 * MIB, 1024 * MIB)


def parse_arguments():
    parser = argparse.ArgumentParser(prog="./dev bench --growth", description=__doc__)
    parser.add_argument("--repetitions", type=int, default=5)
    parser.add_argument("--min-time", type=float, default=0.05, help="seconds per repetition")
    parser.add_argument("--large", action="store_true", help="also measure an archive of 4 GiB")
    parser.add_argument("--publish", action="store_true", help="copy tables and plot to docs/")
    parser.add_argument("--programs", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--out", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    return parser.parse_args()


def measure_time(arguments):
    """Returns {work: {size: nanoseconds}}."""
    program = arguments.programs / "vx_bench_growth"
    arguments.filter = "-^large"
    found = report.cases(program, arguments, arguments.out)
    if arguments.large:
        arguments.filter = "^large"
        found |= report.cases(program, arguments, arguments.out)
    work = {}
    for run_name, entry in found.items():
        run_name = re.sub(r"/(iterations|repeats):\d+", "", run_name.removeprefix("large "))
        name, size = run_name.rsplit("/", 1)
        work.setdefault(name, {})[int(size)] = entry["median"]
    return dict(sorted(work.items(), key=lambda item: (list(UNITS).index(family(item[0])), item[0])))


def peaks(arguments, files, size):
    """Returns {work: growth of the peak in bytes} for `files` files of `size` bytes each."""
    output = subprocess.run(
        [arguments.programs / "vx_memory", str(files), str(size)],
        check=True,
        capture_output=True,
        text=True,
    ).stdout
    return {work: int(growth) for work, growth in (line.split("\t") for line in output.splitlines())}


def measure_memory(arguments):
    """Returns {(work, unit): {size: bytes}}."""
    memory = {}
    for files in MEMORY_FILES:
        for work, growth in peaks(arguments, files, SMALL_FILE).items():
            memory.setdefault((work, SMALL_FILES), {})[files] = growth
    for size in MEMORY_SIZES:
        for work, growth in peaks(arguments, 1, size).items():
            memory.setdefault((work, "MiB in one file"), {})[size // MIB] = growth
    return memory


def family(name):
    return name.split(": ", 1)[0]


def short(name):
    return name.split(": ", 1)[1]


def exponent(costs):
    """Returns the exponent of growth between the two largest sizes: 1 is linear."""
    (low, low_cost), (high, high_cost) = sorted(costs.items())[-2:]
    return math.log(high_cost / low_cost) / math.log(high / low)


def sizes_of(costs):
    return f"{min(costs):,} to {max(costs):,}"


def time_table(work):
    lines = [
        "| work | sizes | time divided by size, from the smallest size to the largest | exponent |",
        "|---|---|---|---|",
    ]
    for name, costs in work.items():
        each = ", ".join(report.format_time(cost / size) for size, cost in sorted(costs.items()))
        unit = UNITS[family(name)]
        lines.append(
            f"| {short(name)} | {sizes_of(costs)} {unit} | {each} | {exponent(costs):.2f} |"
        )
    return "\n".join(lines) + "\n"


def memory_table(memory):
    lines = [
        "| work | sizes | growth of the peak, from the smallest size to the largest | one more |",
        "|---|---|---|---|",
    ]
    for (work, unit), growths in memory.items():
        each = ", ".join(f"{growth / MIB:.1f}" for _, growth in sorted(growths.items()))
        more = f"{each_more(growths):.0f} B" if unit == SMALL_FILES else ""
        lines.append(f"| {work} | {sizes_of(growths)} {unit} | {each} MiB | {more} |")
    return "\n".join(lines) + "\n"


def each_more(growths):
    """Returns the bytes per additional file, computed from the two largest sizes."""
    (low, low_growth), (high, high_growth) = sorted(growths.items())[-2:]
    return (high_growth - low_growth) / (high - low)


def draw_lines(axes, lines, title, ylabel):
    for name, values in lines.items():
        sizes = sorted(values)
        axes.plot(sizes, [values[size] for size in sizes], marker="o", markersize=4, label=name)
    axes.set_xscale("log")
    axes.set_yscale("log")
    axes.set_xlabel(title)
    axes.set_ylabel(ylabel)
    axes.grid(alpha=0.3)


def draw_slope(axes, lines):
    """Draws linear growth as a dashed line."""
    low = min(size for values in lines.values() for size in values)
    high = max(size for values in lines.values() for size in values)
    first = min(value for values in lines.values() for value in values.values()) / 2
    axes.plot(
        [low, high],
        [first, first * high / low],
        color=report.MID_TONE,
        linestyle="--",
        linewidth=0.8,
        label="linear",
    )


def plot(work, memory, path):
    pyplot = report.plotting()
    figure, all_axes = pyplot.subplots(2, 3, figsize=(15, 8))
    panels = list(dict.fromkeys(AXES[family(name)] for name in work))
    for axes, title in zip(all_axes.flat, panels):
        lines = {
            short(name): {size: cost / 1e9 for size, cost in costs.items()}
            for name, costs in work.items()
            if AXES[family(name)] == title
        }
        draw_lines(axes, lines, title, "seconds")
        draw_slope(axes, lines)
    lines = {
        f"{name}, {unit}": {size: growth / MIB for size, growth in growths.items()}
        for (name, unit), growths in memory.items()
    }
    draw_lines(all_axes.flat[-1], lines, "files, or MiB in one file", "growth of the peak memory in MiB")
    for axes in all_axes.flat:
        axes.set_visible(axes.has_data())
        if axes.has_data():
            axes.legend(fontsize="small")
    figure.tight_layout()
    figure.savefig(path, metadata={"Date": None})


def main():
    arguments = parse_arguments()
    arguments.out.mkdir(parents=True, exist_ok=True)
    work = measure_time(arguments)
    memory = measure_memory(arguments)
    where = f"Medians of {arguments.repetitions} interleaved repetitions. {report.machine()}.\n\n"
    (arguments.out / "growth-table.md").write_text(where + time_table(work))
    (arguments.out / "memory-table.md").write_text(memory_table(memory))
    plot(work, memory, arguments.out / "growth.svg")
    print(where + time_table(work) + "\n" + memory_table(memory))
    if arguments.publish:
        report.publish(arguments.out, "growth-table.md", "memory-table.md", "growth.svg")


if __name__ == "__main__":
    main()
