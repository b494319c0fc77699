"""Tries mutants: builds each in a private copy of the tree and runs the tests until one fails."""

import dataclasses
import hashlib
import json
import os
import re
import resource
import shutil
import signal
import subprocess
from dataclasses import dataclass, field
from pathlib import Path

BUILD_JOBS = 2
# Programs that are too slow, because they start a virtual display.
SKIPPED = re.compile("_display")
# The programs that are run for a change in a header of core/.
CORE_PROGRAM = re.compile("_core|_string|_path|_threads")
MEMORY_LIMIT = 4 << 30
# A program's limit is in processor time. The limit in wall-clock time is larger by this factor,
# because programs wait on a busy system.
WAITING_FACTOR = 6
COPIED = (
    "CMakeLists.txt",
    "CMakePresets.json",
    "LICENSE",
    "NOTICE",
    "README.md",
    "bench",
    "cmake",
    "core",
    "examples",
    "fs",
    "fuzz",
    "scripts",
    "tests",
    "tools",
)
# Builds are fastest without optimization. Warnings are off, because a mutant may leave names
# unused.
FLAGS = {
    "none": "-O0 -w",
    "address": "-O1 -w -fsanitize=address,undefined -fno-sanitize-recover=all",
    "thread": "-O1 -w -fsanitize=thread",
}

# A mutant may remove or overwrite any file, so it runs with a read-only system and a private /tmp.
# A directory for the line counts, if any, is mounted in it.
SHIELD = """
mount --make-rprivate / &&
for place in /tmp /var/tmp /dev/shm; do mount -t tmpfs tmpfs "$place" && chmod 1777 "$place"; done &&
if [ "$1" ]; then mkdir /tmp/counts && mount --bind "$1" /tmp/counts; fi &&
mount -o remount,bind,ro / &&
cd /tmp && shift && exec "$@"
"""


class Failed(Exception):
    """The unchanged tests do not build or do not pass."""


@dataclass
class Program:
    name: str  # of the build target
    command: list
    seconds: float = 0.0  # of processor time
    single: tuple = ()  # the tests to run one by one, if they fail in a common process
    lines: dict = field(default_factory=dict)  # by source and line: whether the line is executed


@dataclass
class Outcome:
    status: str  # "killed", "survived" or "invalid"
    by: str = ""


def end_group(process):
    try:
        os.killpg(process.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass


def seconds_of_children():
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


def limit_resources(sanitizer, cpu_seconds):
    resource.setrlimit(resource.RLIMIT_CPU, (cpu_seconds, cpu_seconds + 5))
    if sanitizer == "none":  # the others reserve far more than they use
        resource.setrlimit(resource.RLIMIT_AS, (MEMORY_LIMIT, MEMORY_LIMIT))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def shield_command(sanitizer):
    # The thread sanitizer fails to start if too many address bits are randomized.
    fixed = ["setarch", "--addr-no-randomize"] if sanitizer == "thread" else []
    command = [*fixed, "unshare", "--mount", "bash", "-c", SHIELD, "shield"]
    works = subprocess.run([*command, "", "true"], capture_output=True, check=False).returncode == 0
    return command if works else fixed


class Tree:
    """A copy of the tree with a build directory and its test programs."""

    def __init__(self, root, place, sanitizer, wanted=""):
        self.root = Path(root)
        self.sanitizer = sanitizer
        self.wanted = re.compile(wanted)
        self.place = Path(place).resolve()
        self.source = self.place / "tree"
        self.build = self.place / "build"
        self.shield = shield_command(sanitizer)
        self.programs = []

    # ---- The copy

    def refresh(self):
        """Copies only changed files, so that little has to be rebuilt."""
        self.source.mkdir(parents=True, exist_ok=True)
        for name in COPIED:
            self.copy_changed(self.root / name, self.source / name)

    def copy_changed(self, original, copy):
        if original.is_dir():
            copy.mkdir(exist_ok=True)
            names = {child.name for child in original.iterdir()}
            for child in copy.iterdir():
                if child.name not in names:
                    shutil.rmtree(child) if child.is_dir() else child.unlink()
            for name in names - {"__pycache__"}:
                self.copy_changed(original / name, copy / name)
        elif original.exists():
            if not copy.exists() or copy.read_bytes() != original.read_bytes():
                shutil.copy(original, copy)

    # ---- Building

    def build_unchanged(self, count_lines=False):
        options = [
            "-G",
            "Ninja",
            "-DCMAKE_BUILD_TYPE=None",
            f"-DCMAKE_CXX_FLAGS={FLAGS[self.sanitizer]}",
            f"-DCMAKE_PREFIX_PATH={self.root / '.deps'}",
            "-DVX_BUILD_BENCHMARKS=OFF",
            f"-DCMAKE_PROJECT_INCLUDE={self.source / 'scripts' / 'mutate' / 'trees.cmake'}",
            f"-DVX_COUNT_LINES={count_lines}",
        ]
        if shutil.which("ld.gold") and self.sanitizer == "none":
            options.append("-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=gold")
        self.run_or_fail(["cmake", "-S", str(self.source), "-B", str(self.build), *options])
        targets = [path.name for path in self.executables("vx_test_") + self.executables("vx_replay_")]
        if not targets:
            raise Failed("no test program matches")
        command = ["cmake", "--build", str(self.build), f"-j{BUILD_JOBS}", "--target", *targets]
        self.run_or_fail(command)

    @staticmethod
    def run_or_fail(command):
        done = subprocess.run(command, capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise Failed(done.stdout[-4000:] + done.stderr[-4000:])

    def builds(self, program):
        command = ["ninja", "-C", str(self.build), f"-j{BUILD_JOBS}", program.name]
        return subprocess.run(command, capture_output=True, check=False).returncode == 0

    # ---- Running

    def find_programs(self):
        """Finds the test programs that pass on the unchanged tree."""
        self.build_unchanged(count_lines=True)
        programs = [
            Program(path.name, [str(path)])
            for path in self.executables("vx_test_")
        ]
        for path in self.executables("vx_replay_"):
            corpus = self.source / "fuzz" / "corpus" / path.name.removeprefix("vx_replay_")
            programs.append(Program(path.name, [str(path), str(corpus)]))
        self.programs = [program for program in programs if self.measure(program)]
        if not self.programs:
            raise Failed("no test program was built")

    def take_programs(self, other):
        """Takes over the programs that another copy of the same tree has found."""
        self.programs = [
            dataclasses.replace(
                program,
                command=[
                    part.replace(str(other.place), str(self.place)) for part in program.command
                ],
            )
            for program in other.programs
        ]

    def executables(self, prefix):
        """Returns the selected programs of the build whose names start with `prefix`."""
        command = ["ninja", "-C", str(self.build), "-t", "targets", "all"]
        listing = subprocess.run(command, capture_output=True, text=True, check=True).stdout
        paths = re.findall(r"^(\S+): CXX_EXECUTABLE_LINKER", listing, re.M)
        return [
            self.build / path
            for path in sorted(paths)
            if Path(path).name.startswith(prefix)
            and not SKIPPED.search(path)
            and self.wanted.search(Path(path).name)
        ]

    def measure(self, program):
        """Measures the run time and the executed lines of the library, unless they are known.
        Returns whether the program passes on the unchanged tree."""
        counts = self.place / "counts"
        known = self.place / "measured" / program.name
        digest = hashlib.sha256(Path(program.command[0]).read_bytes()).hexdigest()
        if known.exists():
            measured = json.loads(known.read_text(encoding="utf-8"))
            if measured.pop("digest") == digest:
                vars(program).update(measured)
                return True
        shutil.rmtree(counts, ignore_errors=True)
        counts.mkdir()
        begin = seconds_of_children()
        failure = self.failure(program, limit=300, counts=counts)
        if failure:
            self.run_tests_singly(program)
            if not program.single:
                print(f"skipped, because it fails on the unchanged tree: {program.name}: {failure}")
                return False
            begin = seconds_of_children()
            self.failure(program, limit=300, counts=counts)
        program.seconds = seconds_of_children() - begin
        for file in counts.rglob("*.gcda"):
            self.read_counts(program, counts, file)
        known.parent.mkdir(exist_ok=True)
        measured = {
            "digest": digest,
            "seconds": program.seconds,
            "single": program.single,
            "lines": program.lines,
        }
        known.write_text(json.dumps(measured), encoding="utf-8")
        return True

    def read_counts(self, program, folder, counts):
        """Reads the counts of a source with gcov, which needs the notes in the same directory."""
        notes = ("/" / counts.relative_to(folder)).with_suffix(".gcno")
        shutil.copy(notes, counts.parent)
        command = ["gcov", "--json-format", "--stdout", str(counts)]
        report = json.loads(subprocess.run(command, capture_output=True, check=True).stdout)
        for file in report["files"]:
            path = Path(report["current_working_directory"]) / file["file"]
            # Tests execute the code of headers in their own sources too, which are not counted.
            if path.suffix == ".cpp" and path.is_relative_to(self.source):
                lines = program.lines.setdefault(str(path.relative_to(self.source)), {})
                for line in file["lines"]:
                    number = str(line["line_number"])
                    lines[number] = lines.get(number, False) or line["count"] > 0

    def may_detect(self, program, mutant):
        """Returns False if the program is known not to execute the line."""
        if mutant.file.startswith("core/") and mutant.file.endswith(".h"):
            # Rebuilding all other programs would take long and detect little more.
            core = [other.name for other in self.programs if CORE_PROGRAM.search(other.name)]
            return program.name in core or not core
        number = str(mutant.line)
        runs = {
            other.name: other.lines.get(mutant.file, {}).get(number, False)
            for other in self.programs
        }
        # A line without a count may still be executed after the counts have been written.
        return runs[program.name] or not any(runs.values())

    def run_tests_singly(self, program):
        if "vx_test_" not in program.name:
            return
        listing = subprocess.run(
            [*program.command, "--gtest_list_tests"], capture_output=True, text=True, check=False
        ).stdout
        suite = ""
        names = []
        for line in listing.splitlines():
            if not line.startswith(" "):
                suite = line.split("#")[0].strip()
            else:
                names.append(suite + line.split("#")[0].strip())
        program.single = tuple(
            name for name in names if not self.run(program, 60, [f"--gtest_filter={name}"])
        )
        failing = sorted(set(names) - set(program.single))
        print(f"{program.name}: each test is run separately; skipped: {failing}", flush=True)

    def failure(self, program, limit, counts=None):
        """Returns the first failure, or an empty string if all tests pass."""
        if not program.single:
            return self.run(program, limit, ["--gtest_brief=1", "--gtest_fail_fast"], counts)
        for name in program.single:
            failure = self.run(program, limit, [f"--gtest_filter={name}"], counts)
            if failure:
                return failure
        return ""

    def run(self, program, limit, options, counts=None):
        if "vx_test_" not in program.name:
            options = []
        environment = {
            **os.environ,
            "ASAN_OPTIONS": "detect_stack_use_after_return=1",
            "GCOV_PREFIX": str(counts) if counts else "/dev/null",
            "GCOV_ERROR_FILE": "/dev/null",
        }
        shield = []
        if self.shield:
            shield = [*self.shield, str(counts or "")]
            environment["GCOV_PREFIX"] = "/tmp/counts"
            environment["TMPDIR"] = "/tmp"
        process = subprocess.Popen(
            [*shield, *program.command, *options],
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            start_new_session=True,
            preexec_fn=lambda: limit_resources(self.sanitizer, limit),
            env=environment,
        )
        try:
            output, _ = process.communicate(timeout=WAITING_FACTOR * limit)
        except subprocess.TimeoutExpired:
            end_group(process)
            process.communicate()
            return "out of time"
        end_group(process)
        if process.returncode == 0:
            return ""
        for line in output.decode(errors="replace").splitlines():
            if line.startswith("[  FAILED  ]"):
                return line.removeprefix("[  FAILED  ]").split("(")[0].split(",")[0].strip()
        return f"exit status {process.returncode}"

    # ---- One mutant

    def try_mutant(self, mutant, order, limit):
        """Runs the programs in the given order until one detects the mutant."""
        path = self.source / mutant.file
        original = path.read_text(encoding="utf-8")
        path.write_text(mutant.applied_to(original), encoding="utf-8")
        try:
            for program in filter(lambda program: self.may_detect(program, mutant), order):
                if not self.builds(program):
                    return Outcome("invalid")
                own_limit = round(max(limit, 3 * program.seconds))
                failure = self.failure(program, own_limit)
                if failure:
                    return Outcome("killed", f"{program.name}: {failure}")
            return Outcome("survived")
        finally:
            path.write_text(original, encoding="utf-8")
