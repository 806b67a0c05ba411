#!/usr/bin/env python3
"""Changes the plug-in's sources in one place at a time and tells which changes no test notices. See docs/mutation.md.

Most changes are built into one copy of the sources at once, each asleep until the environment names it, so that such a
mutant costs a run of a few tests and no build. Those that C++ does not allow to be chosen at run time (an enumerator,
a size of an array) are built one at a time afterwards.
"""

import argparse
import collections
import fnmatch
import os
import re
import sys
import threading
import time

sys.dont_write_bytecode = True  # the folder holds sources only

from mutation.judging import Judge, find_programs, measure
from mutation.plan import DECIDERS, WORK, say
from mutation.rules import find_mutants
from mutation.sleeping import Builder
from mutation.survivors import check_survivors, listed, read_survivors


def choose(mutants, options):
    chosen = mutants
    if options.only:
        wanted = re.compile(options.only)
        chosen = [m for m in chosen if wanted.search(m.name) or wanted.search(m.content)]
    if options.shard:
        chosen = chosen[options.shard[0] - 1::options.shard[1]]
    if options.sample and options.sample < len(chosen):
        chosen = [chosen[index * len(chosen) // options.sample] for index in range(options.sample)]
    if options.skip_listed:
        survivors = read_survivors()
        chosen = [m for m in chosen if not listed(m.content, survivors)]
    return chosen


class Report:
    def __init__(self, total, options):
        self.total, self.began = total, time.monotonic()
        self.results = {}
        self.lock = threading.Lock()
        self.file = open(os.path.join(WORK, "results.txt"), "a" if options.resume else "w", encoding="utf-8")

    def add(self, mutant, how, by=""):
        with self.lock:
            self.results[mutant.content] = (mutant, how)
            self.file.write(f"{how}\t{mutant.name}\t{mutant.content}\t{by}\n")
            self.file.flush()
            left = self.total - len(self.results)
            pace = (time.monotonic() - self.began) / len(self.results)
            word = "SURVIVES" if how == "survived" else how
            say(f"[{len(self.results)}/{self.total}, {int(left * pace / 60)} min left] {word}: {mutant.name}"
                f"{'  by ' + by if by else ''}")


def recorded():
    done = {}
    try:
        with open(os.path.join(WORK, "results.txt"), encoding="utf-8") as file:
            for line in file:
                how, _, content, by = line.rstrip("\n").split("\t")
                done[content] = (how, by)
    except (OSError, ValueError):
        pass
    return done


def run_asleep(mutants, judge, report, jobs):
    queue = collections.deque(mutants)

    def work():
        while True:
            try:
                mutant = queue.popleft()
            except IndexError:
                return
            tell(mutant, judge.judge(mutant, mutant.number), report)

    threads = [threading.Thread(target=work, daemon=True) for _ in range(jobs)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()


def tell(mutant, verdict, report):
    if verdict is None:
        report.add(mutant, "survived")
    else:
        program, outcome = verdict
        report.add(mutant, "hangs" if outcome.how == "hangs" else "killed", f"{program}: {outcome.test} {outcome.how}")


class Refused(Exception):
    pass


def run_awake(mutants, builder, judge, report, jobs):
    """One at a time, each built by itself, program by program until one notices."""
    def prepare(program):
        if builder.build([program], jobs):
            raise Refused

    previous = None
    for mutant in mutants:
        if previous and previous != mutant.file:
            builder.rewrite(previous)
        previous = mutant.file
        source = builder.sources[mutant.file]
        builder.write_source(mutant.file, source.text[:mutant.start] + mutant.changed + source.text[mutant.end:])
        try:
            tell(mutant, judge.judge(mutant, 0, prepare), report)
        except Refused:
            report.add(mutant, "refused", "the compiler")
    if previous:
        builder.rewrite(previous)


def summary(report, mutants):
    expected = read_survivors()
    results = report.results
    counts = collections.Counter(how for _, how in results.values())
    noticed = counts["killed"] + counts["hangs"] + counts["refused"]
    survivors = sorted((mutant for mutant, how in results.values() if how == "survived"),
                       key=lambda each: (each.file, each.start))
    new = [mutant for mutant in survivors if not listed(mutant.content, expected)]
    minutes = (time.monotonic() - report.began) / 60
    say("")
    say(f"{len(results)} of {len(mutants)} mutants in {minutes:.0f} min: {counts['killed']} killed by a failing test, "
        f"{counts['hangs']} by their time-out, {counts['refused']} refused by the compiler, {len(survivors)} survived")
    if results:
        say(f"noticed: {100 * noticed / len(results):.1f} %; of those that survived {len(survivors) - len(new)} are "
            "listed with their reasons")
    for mutant in survivors:
        say(f"survived{'' if mutant in new else ', listed'}: {mutant.name}\n  {mutant.content}")
    for entry in expected:
        same = [mutant.content for mutant in mutants if listed(mutant.content, {entry: ""})]
        if all(content in results and results[content][1] != "survived" for content in same):
            say(f"scripts/survivors.txt: a test notices this by now: {entry}")
    return max(check_survivors(mutants), 1 if new else 0)


def parse(arguments):
    def shard(text):
        match = re.fullmatch(r"(\d+)/(\d+)", text)
        if not match or not 1 <= int(match.group(1)) <= int(match.group(2)):
            raise argparse.ArgumentTypeError(f"\"{text}\" is no shard: write I/N, such as 1/4")
        return int(match.group(1)), int(match.group(2))

    def positive(text):
        if not re.fullmatch(r"[1-9]\d*", text):
            raise argparse.ArgumentTypeError(f"\"{text}\" is no number above 0")
        return int(text)

    parser = argparse.ArgumentParser(
        prog="./check --mutate", description="Changes the plug-in's sources in one place at a time; for each change some "
        "test has to fail. docs/mutation.md says more.")
    parser.add_argument("--list", action="store_true", help="name the mutants and end")
    parser.add_argument("--only", metavar="PATTERN", help="those whose name or content has this regular expression")
    parser.add_argument("--shard", metavar="I/N", type=shard, help="the I-th of N parts, for N machines")
    parser.add_argument("--sample", metavar="N", type=positive, help="N of them, always the same")
    parser.add_argument("--skip-listed", action="store_true",
                        help="leave out what scripts/survivors.txt lists, which takes longest to try")
    parser.add_argument("--resume", action="store_true", help="go on with a run that was interrupted")
    parser.add_argument("--jobs", metavar="N", type=positive, default=len(os.sched_getaffinity(0)),
                        help="so many mutants at once (default: the cores)")
    options = parser.parse_args(arguments)
    try:
        re.compile(options.only or "")
    except re.error as error:
        parser.error(f"\"{options.only}\" is no regular expression: {error}")
    return options


def main(arguments):
    options = parse(arguments)
    sources, mutants = find_mutants()
    chosen = choose(mutants, options)
    if options.list:
        for mutant in chosen:
            say(f"{mutant.name}\t{mutant.content}")
        return check_survivors(mutants)
    if not chosen:
        say("There is no such mutant.")
        return 2
    os.makedirs(WORK, exist_ok=True)
    done = recorded() if options.resume else {}
    # The copy holds all mutants, whichever are chosen: the next choice then needs no build.
    builder = Builder(sources, [m for m in mutants if m.can_sleep()])
    builder.write_tree()
    builder.configure()
    names = {program for _, programs in DECIDERS for program in programs
             if any(fnmatch.fnmatch(m.file, pattern) for pattern, each in DECIDERS if program in each for m in chosen)}
    say(f"{len(chosen)} of {len(mutants)} mutants; building {len(names)} test programs in {os.path.relpath(WORK)}")
    # What the compiler refuses shows in the rooms already, before the tests take their time.
    refused = builder.build_asleep(["ZoIoHandler"], options.jobs) + builder.build_asleep(sorted(names), options.jobs)
    awake = set(refused) | {m for m in mutants if not m.can_sleep()}
    programs = find_programs(names)
    missing = names - programs.keys()
    if missing:
        sys.exit(f"There are no such test programs: {' '.join(sorted(missing))}")
    say("Without any mutant:")
    judge = Judge(programs, measure(programs, options.jobs))
    report = Report(len(chosen), options)
    for mutant in chosen:
        if mutant.content in done:
            report.results[mutant.content] = (mutant, done[mutant.content][0])
    open_ones = [m for m in chosen if m.content not in done]
    run_asleep([m for m in open_ones if m not in awake], judge, report, options.jobs)
    run_awake([m for m in open_ones if m in awake], builder, judge, report, options.jobs)
    return summary(report, mutants)


if __name__ == "__main__":
    try:
        sys.exit(main(sys.argv[1:]))
    except KeyboardInterrupt:
        sys.exit(130)
