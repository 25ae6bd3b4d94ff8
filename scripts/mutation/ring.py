"""The unit ring: every test program but those of the whole, where agent, kvbridged and host work together.

These are all programs of tests/ and fuzz/ but WHOLE: the unit tests, those on real devices or with one daemon alone in
a network of their own (as root; they skip themselves otherwise), the models and the replays of the corpora. A test
program runs whole, up to its first failure, in namespaces of its own: a changed program may signal, unlink or
bind anything.
"""

import collections
import concurrent.futures
import dataclasses
import functools
import hashlib
import json
import os
import pathlib
import signal
import subprocess
import time

from tree import Failed, HOME, run

WHOLE = {"agent_life_test", "framework_host_test", "thread_crash_test"}
LINKING = 3.0  # seconds that a program takes to be built, whatever it does then

# Ends with all that it started; sees nothing of the host's processes and network; writes to nothing of the host. The copy
# of the tree is held while /tmp is covered, since it may lie there.
NOT_ALONE = 125
SHELL = f"""
{{
  mount --make-rprivate / && mount --bind / / && mount -o remount,bind,ro / &&
  mount --bind '{HOME}' /mnt &&
  mount -t tmpfs none /tmp && mount -t tmpfs none /var/tmp && mount -t tmpfs none /run &&
  mkdir -p '{HOME}' && mount --move /mnt '{HOME}' &&
  ip link set lo up && cd /tmp
}} || exit {NOT_ALONE}
"$@"
exit $?
"""
ALONE = ["setpriv", "--pdeathsig", "KILL",
         "unshare", "--mount", "--pid", "--net", "--fork", "--kill-child", "--mount-proc"]


def isolated(command):
    rights = [] if os.geteuid() == 0 else ["--user", "--map-current-user", "--keep-caps"]
    return [*ALONE, *rights, "--", "sh", "-c", SHELL, "sh", *command]


@dataclasses.dataclass
class Test:
    program: str
    arguments: list
    environment: dict
    serial: bool
    limit: float     # seconds
    seconds: float = 0.0

    @property
    def name(self):
        return pathlib.Path(self.program).name

    def run(self, limit=None):
        """Whether it passes, and why not."""
        begin = time.monotonic()
        child = subprocess.Popen(isolated([self.program, *self.arguments]), stdin=subprocess.DEVNULL,
                                 stdout=subprocess.PIPE, stderr=subprocess.STDOUT, start_new_session=True,
                                 env={**os.environ, **self.environment, "GTEST_BRIEF": "1", "GTEST_FAIL_FAST": "1"})
        try:
            output = child.communicate(timeout=limit or self.limit)[0].decode(errors="replace")
            if child.returncode == NOT_ALONE:
                raise Failed(f"no namespaces for {self.name}: {output}")
            return child.returncode == 0, output, time.monotonic() - begin
        except subprocess.TimeoutExpired:
            os.killpg(child.pid, signal.SIGKILL)
            child.wait()
            return False, f"no end within {limit or self.limit:.0f} s", time.monotonic() - begin


def hash_of(paths):
    digest = hashlib.sha256()
    for path in sorted(paths):
        digest.update(pathlib.Path(path).read_bytes())
    return digest.hexdigest()


class Ring:
    """The part of the ring that sees the given files, built and found to pass."""

    def __init__(self, tree, files, longest):
        self.tree, self.graph = tree, tree.graph()
        refused = tree.make(*self.programs(files), cached=True)
        if refused:
            raise Failed(refused)
        self.graph = tree.graph()
        self.known_at = HOME / "known.json"  # what passed without a change, and how long it took
        self.known = json.loads(self.known_at.read_text()) if self.known_at.exists() else {}
        built = self.programs(files)
        self.tests = [test for test in self.listed() if test.program in built]
        self.noticed = collections.Counter()
        self.check()
        self.tests = [test for test in self.tests if test.seconds <= longest]

    def programs(self, files):
        every = {program for program, of in self.graph.programs.items()
                 if of.startswith(("tests/", "fuzz/")) and pathlib.Path(program).name not in WHOLE}
        sources = [self.tree.source / file for file in files]
        if not any(str(source) in self.graph.users for source in sources):
            return every  # headers alone, never built before
        return every & self.graph.made_of(*sources)

    def listed(self):
        done = run(["ctest", "--show-only=json-v1"], cwd=self.tree.build)
        if done.returncode != 0:
            raise Failed(done.stderr)
        seen = set()
        for entry in json.loads(done.stdout)["tests"]:
            program, *arguments = entry.get("command", [""])
            arguments = [each for each in arguments if not each.startswith("--gtest")]
            if (program, *arguments) in seen:
                continue
            seen.add((program, *arguments))
            of = {each["name"]: each["value"] for each in entry["properties"]}
            yield Test(program, arguments, dict(pair.split("=", 1) for pair in of.get("ENVIRONMENT", [])),
                       of.get("RUN_SERIAL", False), of.get("TIMEOUT", 120))

    def called_by(self, test):
        """The test's program and those that it runs."""
        beside = {name for name, users in self.graph.users.items()
                  if test.program in users and pathlib.Path(name).parent == pathlib.Path(test.program).parent}
        return {test.program} | {name for name in beside if os.path.isfile(name)}

    def check(self):
        """Runs what has changed since it last passed; all that follows would mean nothing if it failed as it is."""
        try:
            with concurrent.futures.ThreadPoolExecutor(self.tree.jobs) as pool:
                list(pool.map(self.check_one, [test for test in self.tests if not test.serial]))
            for test in self.tests:
                self.check_one(test)
        finally:
            self.known_at.write_text(json.dumps(self.known))

    def check_one(self, test):
        key = hash_of(self.called_by(test))
        if key not in self.known:
            passed, output, seconds = test.run()
            if not passed:  # for want of time, it may be
                passed, output, seconds = test.run()
            if not passed:
                raise Failed(f"{test.name} fails without any change:\n{output[-4000:]}")
            self.known[key] = seconds
        test.seconds = self.known[key]

    @functools.cache
    def affected(self, file):
        """The tests whose program, or one that it runs, is made of the file."""
        made = self.graph.made_of(self.tree.source / file)
        return [test for test in self.tests if test.program in made]

    def judge(self, file):
        """Builds and runs the tests that see the file; the cheapest first, and those that noticed other changes of its
        folder. The test that notices, or None. Throws DoesNotBuild."""
        folder = os.path.dirname(file)

        def late(test):
            return (LINKING + test.seconds) / (1 + 5 * self.noticed[folder, test.program])

        for test in sorted(self.affected(file), key=late):
            refused = self.tree.make(test.program)
            if refused:
                raise DoesNotBuild(refused)
            if hash_of(self.called_by(test)) in self.known:
                continue  # the linker left out what has changed
            # Twice: on a busy machine a test may fail for want of time, and notice nothing.
            if not any(test.run(10 + 2 * test.seconds)[0] for _ in range(2)):
                self.noticed[folder, test.program] += 1
                return test
        return None


class DoesNotBuild(Exception):
    pass
