"""Tries mutants: builds the tests against each in a private copy of the tree, and runs them until
one fails."""

import os
import resource
import shutil
import signal
import subprocess
import time
from dataclasses import dataclass
from pathlib import Path

MEMORY_LIMIT = 4 << 30
COPIED = ("CMakeLists.txt", "CMakePresets.json", "cmake", "core", "fs", "tests", "fuzz", "examples")
# Without optimisation and warnings the build is fastest; a mutant may well leave something unused.
FLAGS = {
    "none": "-O0 -w",
    "address": "-O1 -w -fsanitize=address,undefined -fno-sanitize-recover=all",
    "thread": "-O1 -w -fsanitize=thread",
}

# A mutant may remove or write whatever it likes: it sees the system read-only, and a /tmp of its
# own.
SHIELD = """
mount --make-rprivate / &&
mount -o remount,bind,ro / &&
for place in /tmp /var/tmp /dev/shm; do mount -t tmpfs tmpfs "$place" && chmod 1777 "$place"; done &&
cd /tmp && exec "$@"
"""


class Failed(Exception):
    """The build of the tests, or the tests as they are, fail."""


@dataclass
class Program:
    name: str  # of the build target
    command: list
    seconds: float = 0.0
    single: tuple = ()  # the tests, where they do not stand being run in one process


@dataclass
class Outcome:
    status: str  # "killed", "survived" or "invalid"
    by: str = ""


def end_group(process):
    try:
        os.killpg(process.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass


def limit_resources(sanitizer):
    if sanitizer == "none":  # the others reserve far more than they use
        resource.setrlimit(resource.RLIMIT_AS, (MEMORY_LIMIT, MEMORY_LIMIT))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def shield_command(sanitizer):
    # The thread sanitizer does not start where addresses are spread too widely.
    fixed = ["setarch", "--addr-no-randomize"] if sanitizer == "thread" else []
    command = [*fixed, "unshare", "--mount", "bash", "-c", SHIELD, "shield"]
    works = subprocess.run([*command, "true"], capture_output=True, check=False).returncode == 0
    return command if works else fixed


class Tree:
    """A copy of the tree with a build folder, and the programs that it builds."""

    def __init__(self, root, place, sanitizer):
        self.root = Path(root)
        self.sanitizer = sanitizer
        self.source = Path(place) / "tree"
        self.build = Path(place) / "build"
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

    def configure(self):
        options = [
            "-G",
            "Ninja",
            "-DCMAKE_BUILD_TYPE=None",
            f"-DCMAKE_CXX_FLAGS={FLAGS[self.sanitizer]}",
            f"-DCMAKE_PREFIX_PATH={self.root / '.deps'}",
            "-DVX_BUILD_BENCHMARKS=OFF",
        ]
        if shutil.which("ld.gold") and self.sanitizer == "none":
            options.append("-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=gold")
        if shutil.which("ccache"):
            options.append("-DCMAKE_CXX_COMPILER_LAUNCHER=ccache")
        self.run_or_fail(["cmake", "-S", str(self.source), "-B", str(self.build), *options])
        self.run_or_fail(["cmake", "--build", str(self.build)])

    @staticmethod
    def run_or_fail(command):
        done = subprocess.run(command, capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise Failed(done.stdout[-4000:] + done.stderr[-4000:])

    def builds(self, program, mutant):
        environment = dict(os.environ)
        if mutant.file.endswith(".cpp"):
            environment["CCACHE_DISABLE"] = "1"  # nothing is compiled a second time
        command = ["ninja", "-C", str(self.build), program.name]
        done = subprocess.run(command, capture_output=True, check=False, env=environment)
        return done.returncode == 0

    # ---- Running

    def find_programs(self):
        """The test programs that pass on the tree as it is, the fastest first."""
        programs = [
            Program(path.name, [str(path)]) for path in self.executables("tests/**/vx_test_*")
        ]
        for path in self.executables("fuzz/vx_replay_*"):
            corpus = self.source / "fuzz" / "corpus" / path.name.removeprefix("vx_replay_")
            programs.append(Program(path.name, [str(path), str(corpus)]))
        self.programs = sorted(
            (program for program in programs if self.passes_unchanged(program)),
            key=lambda program: program.seconds,
        )
        if not self.programs:
            raise Failed("no test program was built")

    def executables(self, pattern):
        return [
            path
            for path in sorted(self.build.glob(pattern))
            if path.is_file() and not path.suffix and os.access(path, os.X_OK)
        ]

    def passes_unchanged(self, program):
        begin = time.monotonic()
        if self.failure(program, limit=300):
            self.run_tests_singly(program)
            if not program.single:
                print(f"left out, since it fails on the tree as it is: {program.name}", flush=True)
                return False
            begin = time.monotonic()
            self.failure(program, limit=300)
        program.seconds = time.monotonic() - begin
        return True

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

    def failure(self, program, limit):
        """The first failure, empty when all passes."""
        if not program.single:
            return self.run(program, limit, ["--gtest_brief=1", "--gtest_fail_fast"])
        for name in program.single:
            failure = self.run(program, limit, [f"--gtest_filter={name}"])
            if failure:
                return failure
        return ""

    def run(self, program, limit, options):
        if "vx_test_" not in program.name:
            options = []
        environment = {**os.environ, "ASAN_OPTIONS": "detect_stack_use_after_return=1"}
        if self.shield:
            environment["TMPDIR"] = "/tmp"
        process = subprocess.Popen(
            [*self.shield, *program.command, *options],
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            start_new_session=True,
            preexec_fn=lambda: limit_resources(self.sanitizer),
            env=environment,
        )
        try:
            output, _ = process.communicate(timeout=limit)
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
            for program in order:
                if not self.builds(program, mutant):
                    return Outcome("invalid")
                own_limit = max(limit, 5 * program.seconds)
                failure = self.failure(program, own_limit)
                if failure:
                    return Outcome("killed", f"{program.name}: {failure}")
            return Outcome("survived")
        finally:
            path.write_text(original, encoding="utf-8")
