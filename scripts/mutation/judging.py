"""Runs test programs with a mutant awake, and tells whether one noticed."""

import collections
import concurrent.futures
import fnmatch
import os
import re
import signal
import subprocess
import sys
import threading
import time

from mutation.plan import BUILD, DECIDERS, LEFT_OUT, WORK, say

SHARDS = 1  # processes that share a program's tests; some tests want the order that the program has
RUN = re.compile(r"^\[ RUN +\] (\S+)", re.M)
ENDED = re.compile(r"^\[ +(?:OK|FAILED|SKIPPED) +\] (\S+?)[,\s]", re.M)
FAILED = re.compile(r"^\[ +FAILED +\] (\S+?)[, \n].*", re.M)


class Outcome:
    def __init__(self, passed, how="", test=""):
        self.passed, self.how, self.test = passed, how, test


def start(program, number, test_filter, shards, index):
    environment = {key: value for key, value in os.environ.items() if not key.startswith("GTEST_")}
    environment["ZOIO_MUTANT"] = str(number)
    if shards > 1:
        environment.update(GTEST_TOTAL_SHARDS=str(shards), GTEST_SHARD_INDEX=str(index))
    command = [program, "--gtest_fail_fast", "--gtest_color=no"]
    left_out = LEFT_OUT.get(os.path.basename(program))
    if left_out:
        test_filter = f"{test_filter or '*'}-{left_out}"
    if test_filter:
        command.append("--gtest_filter=" + test_filter)
    out = open(os.path.join(WORK, f"out-{os.getpid()}-{threading.get_ident()}-{index}.txt"), "w+b")
    child = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=out, stderr=subprocess.STDOUT, env=environment,
                             cwd=BUILD, start_new_session=True)
    return child, out


def end_group(child):
    try:
        os.killpg(child.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass
    child.wait()


def run_program(program, number, limit, test_filter="", shards=SHARDS):
    """Runs a program's tests until one fails."""
    runs = [start(program, number, test_filter, shards, index) for index in range(shards)]
    deadline = time.monotonic() + limit
    outcome = Outcome(True)
    waiting = list(runs)
    while waiting and outcome.passed:
        for run in list(waiting):
            if run[0].poll() is not None:
                waiting.remove(run)
                if run[0].returncode != 0:
                    outcome = judge(run)
                    break
        else:
            if time.monotonic() > deadline:
                outcome = judge(waiting[0], "hangs")
            time.sleep(0.005)
    for child, out in runs:
        end_group(child)
        out.close()
    return outcome


def judge(run, how=""):
    child, out = run
    out.seek(0)
    said = out.read().decode("utf-8", "replace")
    failed = FAILED.findall(said)
    test = failed[0] if failed else ""
    if not test:
        ended = set(ENDED.findall(said))
        begun = [name for name in RUN.findall(said) if name not in ended]
        test = begun[-1] if begun else ""
    if not how:
        how = "fails" if failed else "dies"
    return Outcome(False, how, test)


class Judge:
    """Decides about mutants, remembering which tests have noticed others of the same file."""

    def __init__(self, programs, seconds):
        self.programs, self.seconds = programs, seconds
        self.noticed = collections.defaultdict(collections.Counter)
        self.lock = threading.Lock()

    def limit(self, program):
        return max(60.0, 8 * self.seconds[program])

    def deciders(self, path):
        for pattern, programs in DECIDERS:
            if fnmatch.fnmatch(path, pattern):
                return [program for program in programs if program in self.programs]
        return []

    def judge(self, mutant, number, prepare=lambda program: None):
        """The test that notices, as (program, outcome); nothing for a survivor. prepare: what a program needs first."""
        with self.lock:
            noticed = self.noticed[mutant.file, mutant.rule] + self.noticed[mutant.file]
            likely = [each for each, _ in noticed.most_common(12)]
        order = self.deciders(mutant.file)
        for program in dict.fromkeys(program for program, _ in likely):
            tests = ":".join(test for each, test in likely if each == program)
            prepare(program)
            outcome = self.decide(program, number, tests, 1)
            if outcome:
                return self.remember(mutant, program, outcome)
        for program in order:
            prepare(program)
            outcome = self.decide(program, number, "", SHARDS)
            if outcome:
                return self.remember(mutant, program, outcome)
        return None

    def decide(self, program, number, tests, shards):
        """What failed, twice: a machine that is busy may fail a test once."""
        path = self.programs[program]
        first = run_program(path, number, self.limit(program), tests, shards)
        if first.passed:
            return None
        if first.how == "hangs":
            return first
        if first.test and not run_program(path, number, self.limit(program), first.test, 1).passed:
            return first
        again = run_program(path, number, self.limit(program), tests, shards)
        return None if again.passed else again

    def remember(self, mutant, program, outcome):
        if outcome.test and outcome.how != "hangs":
            with self.lock:
                self.noticed[mutant.file, mutant.rule][program, outcome.test] += 10
                self.noticed[mutant.file][program, outcome.test] += 1
        return program, outcome


def find_programs(names):
    programs = {}
    for folder, folders, files in os.walk(os.path.join(BUILD, "tests")):
        folders[:] = [name for name in folders if name != "CMakeFiles"]
        for name in files:
            if name in names and os.access(os.path.join(folder, name), os.X_OK):
                programs[name] = os.path.join(folder, name)
    return programs


def measure(programs, jobs):
    """Every program has to pass with all mutants asleep; how long that takes sets its time-out."""
    def passes(program):
        name, path = program
        for _ in range(2):
            began = time.monotonic()
            outcome = run_program(path, 0, 600)
            if outcome.passed:
                return name, time.monotonic() - began, outcome
        return name, 0.0, outcome

    seconds = {}
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        for name, took, outcome in pool.map(passes, sorted(programs.items())):
            if not outcome.passed:
                sys.exit(f"{name} fails without any mutant ({outcome.how}, {outcome.test}).")
            seconds[name] = took
            say(f"  {name}: {took:.1f} s")
    return seconds
