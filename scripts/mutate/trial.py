"""Tries mutants: builds the tests against each in a private copy of the tree, and runs them until
one fails."""

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
# Names of programs that are very slow (a virtual display).
LEFT_OUT = re.compile("_display")
# The programs that can notice a change in a header of core/.
CORE_PROGRAM = re.compile("_core|_string|_path|_threads")
MEMORY_LIMIT = 4 << 30
# The limit of a program is one of processor time. Waiting, it has so many times as long, since a
# busy system makes it wait.
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
# Without optimisation and warnings the build is fastest; a mutant may well leave something unused.
FLAGS = {
    "none": "-O0 -w",
    "address": "-O1 -w -fsanitize=address,undefined -fno-sanitize-recover=all",
    "thread": "-O1 -w -fsanitize=thread",
}

# A mutant may remove or write whatever it likes: it sees the system read-only, and a /tmp of its
# own. The counts of lines may lie in a folder outside.
SHIELD = """
mount --make-rprivate / &&
for place in /tmp /var/tmp /dev/shm; do mount -t tmpfs tmpfs "$place" && chmod 1777 "$place"; done &&
if [ "$1" ]; then mkdir /tmp/counts && mount --bind "$1" /tmp/counts; fi &&
mount -o remount,bind,ro / &&
cd /tmp && shift && exec "$@"
"""


class Failed(Exception):
    """The build of the tests, or the tests as they are, fail."""


@dataclass
class Program:
    name: str  # of the build target
    command: list
    seconds: float = 0.0  # of processor time
    single: tuple = ()  # the tests, where they do not stand being run in one process
    lines: dict = field(default_factory=dict)  # by source and number: whether it runs the line


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
    # The thread sanitizer does not start where addresses are spread too widely.
    fixed = ["setarch", "--addr-no-randomize"] if sanitizer == "thread" else []
    command = [*fixed, "unshare", "--mount", "bash", "-c", SHIELD, "shield"]
    works = subprocess.run([*command, "", "true"], capture_output=True, check=False).returncode == 0
    return command if works else fixed


class Tree:
    """A copy of the tree with a build folder, and the programs that it builds."""

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
        """Copies what differs from the original, so that little is built anew."""
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

    def build_as_it_is(self, count_lines=False):
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
            raise Failed("there is no such test program")
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
        """The test programs that pass on the tree as it is."""
        self.build_as_it_is(count_lines=True)
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
        """Those that another copy of the same tree has found."""
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
        """The programs that the build makes whose names begin so, unless they are not wanted."""
        command = ["ninja", "-C", str(self.build), "-t", "targets", "all"]
        listing = subprocess.run(command, capture_output=True, text=True, check=True).stdout
        paths = re.findall(r"^(\S+): CXX_EXECUTABLE_LINKER", listing, re.M)
        return [
            self.build / path
            for path in sorted(paths)
            if Path(path).name.startswith(prefix)
            and not LEFT_OUT.search(path)
            and self.wanted.search(Path(path).name)
        ]

    def measure(self, program):
        """Finds out how long it takes and which lines of the library it runs, unless that has been
        found out before; says whether it passes on the tree as it is."""
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
                print(f"left out, since it fails on the tree as it is: {program.name}: {failure}")
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
        """The counts of one source, as the compiler's own tool reads them beside its notes."""
        notes = ("/" / counts.relative_to(folder)).with_suffix(".gcno")
        shutil.copy(notes, counts.parent)
        command = ["gcov", "--json-format", "--stdout", str(counts)]
        report = json.loads(subprocess.run(command, capture_output=True, check=True).stdout)
        for file in report["files"]:
            path = Path(report["current_working_directory"]) / file["file"]
            # What a header holds is run by the tests' own sources, too, where nothing counts.
            if path.suffix == ".cpp" and path.is_relative_to(self.source):
                lines = program.lines.setdefault(str(path.relative_to(self.source)), {})
                for line in file["lines"]:
                    number = str(line["line_number"])
                    lines[number] = lines.get(number, False) or line["count"] > 0

    def may_notice(self, program, mutant):
        """False where the program is known not to run the line."""
        if mutant.file.startswith("core/") and mutant.file.endswith(".h"):
            # All programs would have to be built anew, nearly all for nothing.
            core = [other.name for other in self.programs if CORE_PROGRAM.search(other.name)]
            return program.name in core or not core
        number = str(mutant.line)
        runs = {
            other.name: other.lines.get(mutant.file, {}).get(number, False)
            for other in self.programs
        }
        # A line that seems to be run by none is run after the counts have been written, if at all.
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
        print(f"{program.name}: each test by itself; left out: {failing}", flush=True)

    def failure(self, program, limit, counts=None):
        """The first failure, empty when all passes."""
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
        """Runs the programs in the given order until one notices."""
        path = self.source / mutant.file
        original = path.read_text(encoding="utf-8")
        path.write_text(mutant.applied_to(original), encoding="utf-8")
        try:
            for program in filter(lambda program: self.may_notice(program, mutant), order):
                if not self.builds(program):
                    return Outcome("invalid")
                own_limit = round(max(limit, 3 * program.seconds))
                failure = self.failure(program, own_limit)
                if failure:
                    return Outcome("killed", f"{program.name}: {failure}")
            return Outcome("survived")
        finally:
            path.write_text(original, encoding="utf-8")
