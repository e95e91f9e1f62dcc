#!/usr/bin/env python3
"""mutate.py BUILD [N] [--seed S] [--range GIT-RANGE] [--minutes M] [--kind KIND] [FILE...]: see scripts/mutate."""
import argparse
import concurrent.futures
import hashlib
import json
import os
import random
import re
import subprocess
import sys
import tempfile
import threading
import time

import generator
from build import Build

AT_ONCE = 8 # survivors in one library
SLOW = 10 # seconds: slower programs run only for survivors of the others
# These look at the locks and the error queue of every operation.
GUARD_PROGRAMS = ("LockOrderTest", "ErrorQueueTest")


class Deadline:
    def __init__(self, minutes):
        self.end = time.monotonic() + 60 * minutes if minutes else None

    def left(self):
        return max(1, self.end - time.monotonic()) if self.end else 3600

    def passed(self):
        return self.end is not None and time.monotonic() >= self.end


def candidates(build, file):
    """Returns the mutants of the file. They are kept in the build's folder, because clang takes a second for a file."""
    options = build.options(file)
    key = hashlib.sha256(repr(options).encode())
    for path in (file, generator.__file__):
        with open(path, "rb") as content:
            key.update(content.read())
    kept = f"{build.folder}/candidates/{key.hexdigest()}.json"
    if os.path.exists(kept):
        with open(kept) as record:
            return [generator.Mutant(*fields) for fields in json.load(record)]
    mutants = generator.mutants_of(os.path.abspath(file), options, file)
    os.makedirs(os.path.dirname(kept), exist_ok=True)
    with open(kept, "w") as record:
        json.dump([[m.file, m.kind, m.start, m.end, m.text] for m in mutants], record)
    return mutants


def changed_lines(git_range):
    """Returns the numbers of the lines that the range has changed, for each file of the libraries."""
    diff = subprocess.run(["git", "diff", "--unified=0", "--no-prefix", git_range, "--", "foundation"],
                          check=True, capture_output=True, text=True).stdout
    lines = {}
    for line in diff.splitlines():
        if line.startswith("+++ "):
            of_file = lines.setdefault(line[4:], set())
        elif hunk := re.match(r"@@ -\S+ \+(\d+)(?:,(\d+))? @@", line):
            start = int(hunk[1])
            of_file.update(range(start, start + int(hunk[2] or 1)))
    return lines


def read_equivalents(file):
    """The list has for each mutant its file, the line before and after, and the reason:
        foundation/a.cpp
        - before
        + after
        reason
    with empty lines between the mutants and # at the start of a comment."""
    equivalents = {}
    with open(file) as content:
        text = "\n".join(line for line in content.read().splitlines() if not line.startswith("#"))
    for block in filter(None, (block.strip() for block in text.split("\n\n"))):
        name, before, after, *reason = block.splitlines()
        if not before.startswith("- ") or not after.startswith("+ ") or not reason:
            sys.exit(f"{file}: this entry has not the form of the list:\n{block}")
        equivalents[name, before[2:], after[2:]] = " ".join(reason)
    return equivalents


class Run:
    def __init__(self, build, deadline, workers):
        self.build = build
        self.deadline = deadline
        self.workers = workers
        self.sources = {}
        self.kills = {}
        self.outcomes = {}
        self.printing = threading.Lock()

    def source(self, file):
        if file not in self.sources:
            with open(file, "rb") as content:
                self.sources[file] = content.read()
        return self.sources[file]

    def describe(self, mutant):
        source = self.source(mutant.file)
        before, after = mutant.change(source)
        return f"{mutant.file}:{mutant.line(source)} ({mutant.kind})\n- {before}\n+ {after}"

    def note(self, mutant, outcome, detail=""):
        with self.printing:
            self.outcomes[mutant] = outcome
            print(f"[{len(self.outcomes)}] {outcome}{detail}: {self.describe(mutant)}", flush=True)

    def own_programs(self, mutant):
        """Returns the programs that belong to the mutant: those of its file's folder, the likeliest first."""
        file = mutant.file
        stem = re.sub(r"Impl$", "", os.path.splitext(os.path.basename(file))[0])
        folder = re.sub(r"^foundation/(certificates/)?(src/|include/foundation/certificates/)?", "",
                        os.path.dirname(file))
        if "/include/" in file and not file.startswith("foundation/toolkit"):
            folder = next((os.path.dirname(other).split("/src/")[1] for other in self.build.commands
                           if os.path.basename(other) == os.path.basename(file).replace(".hpp", ".cpp")), "base")
        folder = {"log": "base"}.get(folder.split("/")[0], folder.split("/")[0])
        own = [program for program in self.build.programs
               if program.folder.split("/")[0] == folder and program.seconds < SLOW]
        if mutant.kind == "guard":
            own += [program for program in self.build.programs if program.name in GUARD_PROGRAMS]
        return sorted(own, key=lambda program: (-self.kills.get((file, program.name), 0),
                                                mutant.kind != "guard" or program.name not in GUARD_PROGRAMS, not program.name.startswith(stem),
                                                program.seconds or SLOW))

    def in_folder(self, function):
        with tempfile.TemporaryDirectory(prefix="mutant-", ignore_cleanup_errors=True) as folder:
            return function(folder)

    def killer(self, mutants, programs, folder):
        """Returns the first of the programs that fails with the mutants; None if all pass; False if they do not
        compile."""
        changed = {}
        for mutant in sorted(mutants, key=lambda mutant: -mutant.start): # so that the places before stay valid
            changed[mutant.file] = mutant.applied_to(changed.get(mutant.file, self.source(mutant.file)))
        if not self.build.compile_and_link(changed, folder, self.deadline):
            return False
        for program in programs:
            if self.deadline.passed():
                return None
            if not self.build.passes(program, folder, self.deadline):
                return program
        return None

    def judge(self, mutant, programs, outcome_if_passed):
        killer = self.in_folder(lambda folder: self.killer([mutant], programs, folder))
        if self.deadline.passed():
            self.note(mutant, "undecided")
        elif killer is False:
            self.note(mutant, "no code")
        elif killer is not None:
            key = mutant.file, killer.name
            self.kills[key] = self.kills.get(key, 0) + 1
            self.note(mutant, "killed", f" by {killer.name}")
        elif outcome_if_passed:
            self.note(mutant, outcome_if_passed)
        else:
            return mutant
        return None

    def all_programs(self, group, folder):
        """Returns the programs that fail with all mutants of the group at once, of all programs."""
        if self.killer(group, [], folder) is False:
            return self.build.programs
        programs = sorted(self.build.programs, key=lambda program: program.seconds or SLOW)
        with concurrent.futures.ThreadPoolExecutor(self.workers) as pool:
            passed = list(pool.map(
                lambda item: self.deadline.passed() or
                self.build.passes(item[1], self.own_copy(folder, item[0]), self.deadline), enumerate(programs)))
        return [program for program, ok in zip(programs, passed) if not ok]

    @staticmethod
    def own_copy(folder, number):
        """Returns a folder with the same libraries, so that each program has temporary files of its own."""
        own = f"{folder}/{number}"
        os.makedirs(own)
        for name in os.listdir(folder):
            if ".so" in name:
                os.symlink(f"{folder}/{name}", f"{own}/{name}")
        return own

    def mutate(self, mutants):
        with concurrent.futures.ThreadPoolExecutor(self.workers) as pool:
            left = list(filter(None, pool.map(
                lambda mutant: self.judge(mutant, self.own_programs(mutant), None), mutants)))
            while left:
                group = []
                for mutant in list(left):
                    overlaps = any(other.file == mutant.file and other.start < mutant.end and
                                   mutant.start < other.end for other in group)
                    if len(group) < AT_ONCE and not overlaps:
                        group.append(mutant)
                        left.remove(mutant)
                failing = [] if self.deadline.passed() else self.in_folder(
                    lambda folder: self.all_programs(group, folder))
                if not failing or self.deadline.passed():
                    for mutant in group:
                        if self.deadline.passed():
                            self.note(mutant, "undecided", ", passed the tests of its folder")
                        else:
                            self.note(mutant, "SURVIVED")
                else:
                    list(pool.map(lambda mutant: self.judge(mutant, failing, "SURVIVED"), group))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("words", nargs="*")
    parser.add_argument("--seed", type=int, default=int(time.time()))
    parser.add_argument("--range")
    parser.add_argument("--minutes", type=float)
    parser.add_argument("--kind", action="append")
    arguments = parser.parse_intermixed_args()
    files = arguments.words
    number = int(files.pop(0)) if files and files[0].isdigit() else None
    deadline = Deadline(arguments.minutes)
    build = Build(os.getcwd(), os.path.abspath(arguments.build))

    lines = changed_lines(arguments.range) if arguments.range else None
    files = files or sorted(
        file for file in {*build.commands, *build.users}
        if file.startswith("foundation/") and (not arguments.range or file in lines))
    equivalents = read_equivalents(f"{os.path.dirname(__file__)}/equivalents")
    run = Run(build, deadline, os.cpu_count())
    mutants, known = [], 0
    with concurrent.futures.ThreadPoolExecutor(run.workers) as pool:
        for found in pool.map(lambda file: candidates(build, file), files):
            for mutant in found:
                source = run.source(mutant.file)
                if arguments.kind and mutant.kind not in arguments.kind:
                    continue
                if lines is not None and mutant.line(source) not in lines.get(mutant.file, ()):
                    continue
                if (mutant.file, *mutant.change(source)) in equivalents:
                    known += 1
                else:
                    mutants.append(mutant)
    random.Random(arguments.seed).shuffle(mutants)
    chosen = mutants[:number]
    print(f"{len(chosen)} of {len(mutants)} mutants in {len(files)} files; {known} known equivalents; "
          f"seed {arguments.seed}", flush=True)
    run.mutate(chosen)

    unused = sorted(program.name for program in build.programs if program.fails_always)
    if unused:
        print(f"Not used, because they fail without a mutant: {', '.join(unused)}")
    count = {outcome: list(run.outcomes.values()).count(outcome)
             for outcome in ("killed", "SURVIVED", "no code", "undecided")}
    survivors = [mutant for mutant in chosen if run.outcomes[mutant] == "SURVIVED"]
    for mutant in survivors:
        print(f"\nSURVIVED: {run.describe(mutant)}")
    judged = max(1, count["killed"] + count["SURVIVED"])
    print(f"\n==== Summary\n{count['killed']} killed ({100 * count['killed'] / judged:.1f} %), "
          f"{count['SURVIVED']} survived, {known} known equivalents left out, {count['no code']} did not compile, "
          f"{count['undecided']} undecided; seed {arguments.seed}")
    sys.exit(1 if survivors else 0)


main()
