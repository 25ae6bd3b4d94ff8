"""A copy of the tree under build/mutants with a build of its own, both kept for the next run."""

import fcntl
import os
import pathlib
import shutil
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
HOME = ROOT / "build" / "mutants"


class Failed(Exception):
    """A step outside the changes themselves did not work; the text says which."""


def run(command, **more):
    return subprocess.run(command, capture_output=True, text=True, errors="replace", **more)


def tracked():
    """Files of the working tree, those not yet added too."""
    found = run(["git", "ls-files", "-co", "--exclude-standard"], cwd=ROOT)
    if found.returncode != 0:
        raise Failed(f"git ls-files: {found.stderr}")
    return [name for name in found.stdout.splitlines() if (ROOT / name).is_file()]


class Tree:
    def __init__(self, jobs):
        self.source, self.build = HOME / "source", HOME / "build"
        self.jobs = jobs

    def lock(self):
        HOME.mkdir(parents=True, exist_ok=True)
        self.locked = open(HOME / "lock", "w")
        try:
            fcntl.flock(self.locked, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except OSError:
            raise Failed("Another one is at work in this tree.") from None

    def update(self):
        """Makes the copy what the working tree is. What did not change keeps its time: it is not built again."""
        names = tracked()
        for name in names:
            origin, copy = ROOT / name, self.source / name
            if not copy.is_file() or copy.read_bytes() != origin.read_bytes():
                copy.parent.mkdir(parents=True, exist_ok=True)
                shutil.copyfile(origin, copy)
            shutil.copymode(origin, copy)
        wanted = {self.source / name for name in names}
        for left in [path for path in self.source.rglob("*") if path.is_file() and path not in wanted]:
            left.unlink()

    def configure(self):
        """With what compiles and links quickest, unless the environment names a compiler."""
        linker = "-fuse-ld=lld" if shutil.which("ld.lld") else ""
        quick = shutil.which("clang++") and "CXX" not in os.environ
        compiler = ["-DCMAKE_CXX_COMPILER=clang++", "-DCMAKE_C_COMPILER=clang"] if quick else []
        done = run([
            "cmake", "-G", "Ninja", "-S", self.source, "-B", self.build,
            "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-O0 -g0 -w", "-DPPPOEIA_SANITIZE=address",
            "-DPPPOEIA_BUILD_BENCHMARKS=OFF", f"-DCMAKE_EXE_LINKER_FLAGS={linker}",
            "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST", *compiler])
        if done.returncode != 0:
            raise Failed(done.stdout + done.stderr)

    def make(self, *targets, cached=False):
        """Builds; None, or what the compiler said. What is compiled once is kept from a cache that others use."""
        targets = [os.path.relpath(target, self.build) for target in targets]
        done = run(["ninja", "-C", self.build, f"-j{self.jobs}", *targets],
                   env={**os.environ, **({} if cached else {"CCACHE_DISABLE": "1"})})
        return None if done.returncode == 0 else done.stdout[-4000:]

    def write(self, name, text):
        (self.source / name).write_text(text)

    def read(self, name):
        return (self.source / name).read_text()

    def graph(self):
        return Graph(self.build)


class Graph:
    """What is built of what, as Ninja has it. What includes a header is known once it was built."""

    def __init__(self, build):
        self.build = build
        self.users = {}        # of an input: the outputs made of it
        self.programs = {}     # and the first object of each
        self.read_edges()
        self.read_includes()

    def path(self, name):
        return os.path.normpath(os.path.join(self.build, name))

    def add(self, output, inputs):
        for name in inputs:
            self.users.setdefault(self.path(name), set()).add(self.path(output))

    def read_edges(self):
        for line in (self.build / "build.ninja").read_text().replace("$\n", "").splitlines():
            if not line.startswith("build "):
                continue
            outputs, _, rest = line[len("build "):].partition(": ")
            rule, *inputs = rest.replace("$ ", "\0").split()
            if "EXECUTABLE_LINKER" in rule:
                self.programs[self.path(outputs)] = inputs[0]
            elif "||" in inputs:
                inputs = inputs[:inputs.index("||")]  # only the order; for a program, others that it runs
            for output in outputs.split():
                self.add(output, [name.replace("\0", " ") for name in inputs if name not in ("|", "||")])

    def read_includes(self):
        output = None
        for line in run(["ninja", "-C", self.build, "-t", "deps"]).stdout.splitlines():
            if line and not line.startswith(" "):
                output = line.split(":")[0]
            elif line:
                self.add(output, [line.strip()])

    def made_of(self, *paths):
        """All that changes with the files."""
        reached, todo = set(), [str(path) for path in paths]
        while todo:
            for user in self.users.get(todo.pop(), ()):
                if user not in reached:
                    reached.add(user)
                    todo.append(user)
        return reached
