#!/usr/bin/env python3
"""mutate.py BUILD [N] [OPTION...] [FILE...]: see scripts/mutate."""
import argparse
import collections
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
from coverage import Coverage

ALONE = 4 # seconds of processor time: the likeliest programs run for a single mutant
AT_ONCE = 16 # survivors in one library
NEAR_LINES = 10 # at this distance another mutant's result says half as much
NEAR = 1000 # bytes: mutants that are nearer to each other can hide each other, and share no library
BATCH = 48 # mutants that are decided before the next ones
SLOW = 2 # seconds of processor time: slower programs run only for survivors of the others
MANY = 100 # mutants for which it is worth it to measure what each program executes
# These look at the locks and at the error queue of every operation.
LOCK_PROGRAM, SCOPE_PROGRAM = "LockOrderTest", "ErrorQueueTest"
# These replace functions of the library, which the library of a changed header does not allow.
REPLACING = {"CRLFetchFailureTest", "PKCS7VerificationTest", "PathValidationSuiteTest"}


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
    """Returns the numbers of the lines that the range has changed, for each file of the libraries. Returns None if a
    shallow clone does not have the range."""
    diff = subprocess.run(["git", "diff", "--unified=0", "--no-prefix", git_range, "--", "foundation"],
                          capture_output=True, text=True)
    if diff.returncode != 0:
        shallow = subprocess.run(["git", "rev-parse", "--is-shallow-repository"], capture_output=True, text=True)
        if shallow.stdout.strip() != "true":
            sys.exit(diff.stderr)
        print(f"This shallow clone does not have {git_range}. Mutants of all lines are taken instead.")
        return None
    lines = {}
    for line in diff.stdout.splitlines():
        if line.startswith("+++ "):
            of_file = lines.setdefault(line[4:], set())
        elif hunk := re.match(r"@@ -\S+ \+(\d+)(?:,(\d+))? @@", line):
            start = int(hunk[1])
            of_file.update(range(start, start + int(hunk[2] or 1)))
    return lines


class Equivalents:
    """The list of mutants that no test can notice. It has for each its file, the lines before and after, and the reason:
        foundation/a.cpp
        - before
        + after
        reason
    with empty lines between the mutants and # at the start of a comment. An `after` of three dots means every change
    of the line. If the file has such a line more than once, the line above it comes first, after an equals sign."""
    def __init__(self, file):
        self.entries = set()
        with open(file) as content:
            text = "\n".join(line for line in content.read().splitlines() if not line.startswith("#"))
        for block in filter(None, (block.strip() for block in text.split("\n\n"))):
            name, *lines = block.splitlines()
            above = lines.pop(0)[2:] if lines[0].startswith("= ") else None
            if len(lines) < 3 or not lines[0].startswith("- ") or not lines[1].startswith("+ "):
                sys.exit(f"{file}: this entry has not the form of the list:\n{block}")
            self.entries.add((name, above, lines[0][2:], lines[1][2:]))

    def contain(self, mutant, source):
        before, after = mutant.change(source)
        return any((mutant.file, above, before, change) in self.entries
                   for above in (None, mutant.line_above(source)) for change in (after, "..."))


class Run:
    def __init__(self, build, deadline, workers, record):
        self.build = build
        self.coverage = None
        self.deadline = deadline
        self.workers = workers
        self.record = record
        self.sources = {}
        self.runs = collections.defaultdict(list) # by file and program: each mutant's line, and whether it was noticed
        self.passed = collections.defaultdict(set) # the programs that did not notice the mutant
        self.outcomes = {}
        self.printing = threading.Lock()

    def key(self, mutant):
        """Returns what names the mutant in the file of results. A changed file's mutants have no results."""
        content = hashlib.sha256(self.source(mutant.file)).hexdigest()[:16]
        return " ".join(json.dumps(word) for word in (mutant.file, content, mutant.start, mutant.end, mutant.text))

    def continue_with(self, mutants):
        """Takes the results of the file for mutants that need not run again. Returns the other mutants."""
        if self.record and os.path.exists(self.record):
            with open(self.record) as record:
                known = {key: (outcome, *killer) for outcome, key, *killer in
                         (line.rstrip("\n").split("\t") for line in record)}
            for mutant in mutants:
                outcome, *killer = known.get(self.key(mutant), ("",))
                if outcome in ("killed", "same code", "no code"):
                    self.outcomes[mutant] = outcome
                    for name in killer:
                        self.count(mutant, name, True)
        return [mutant for mutant in mutants if mutant not in self.outcomes]

    def source(self, file):
        if file not in self.sources:
            with open(file, "rb") as content:
                self.sources[file] = content.read()
        return self.sources[file]

    def describe(self, mutant):
        source = self.source(mutant.file)
        before, after = mutant.change(source)
        return f"{mutant.file}:{mutant.line(source)} ({mutant.kind})\n- {before}\n+ {after}"

    def note(self, mutant, outcome, detail="", killer=None):
        with self.printing:
            self.outcomes[mutant] = outcome
            if self.record:
                with open(self.record, "a") as record:
                    print(outcome, self.key(mutant), *([killer.name] if killer else []), sep="\t", file=record)
            if killer:
                detail = f" by {killer.name}"
            print(f"[{len(self.outcomes)}] {outcome}{detail}: {self.describe(mutant)}", flush=True)

    def note_survivor(self, mutant, detail=""):
        changed = {mutant.file: mutant.applied_to(self.source(mutant.file))}
        is_same = self.in_folder(lambda folder: self.build.has_same_code(changed, folder, self.deadline))
        self.note(mutant, "same code" if is_same else "SURVIVED", detail)

    def count(self, mutant, name, is_killed):
        with self.printing:
            self.runs[mutant.file, name].append((mutant.line(self.source(mutant.file)), is_killed))

    def prepare(self, pool):
        """Does what takes a while and makes each of many mutants faster."""
        self.build.build_programs()
        self.build.compile_heads()
        self.coverage = Coverage(self.build)
        for measure in (self.coverage.measure, self.build.measure):
            for _ in pool.map(lambda program: measure(program, self.deadline), self.build.programs):
                pass

    def executed_lines(self, mutant):
        source = self.source(mutant.file)
        first = mutant.line(source)
        return self.coverage.lines_of(mutant.file, first, first + source.count(b"\n", mutant.start, mutant.end))

    def programs_of(self, mutant):
        """Returns the programs that can notice the mutant, because they execute its lines, and have not run yet."""
        lines = self.executed_lines(mutant) if self.coverage else []
        return [program for program in self.build.programs if program not in self.passed[mutant] and
                (not self.coverage or self.coverage.executes(program, mutant.file, lines)) and
                not (program.name in REPLACING and mutant.file.endswith(".hpp"))]

    def users_of(self, mutant):
        """Returns the sources whose copies of the header's functions the programs execute."""
        users = self.build.users.get(mutant.file, ())
        return self.coverage and self.coverage.sources_of(mutant.file, self.executed_lines(mutant)) or users

    def share_of_noticed(self, file, line, program, expected):
        """Returns the share of the file's mutants that the program noticed. Near mutants count more, and `expected`
        counts as one mutant."""
        noticed, all_runs = expected, 1
        for other_line, is_killed in self.runs[file, program.name]:
            weight = NEAR_LINES / (NEAR_LINES + abs(line - other_line))
            noticed += weight * is_killed
            all_runs += weight
        return noticed / all_runs

    def likeliest_programs(self, mutant):
        """Returns the programs that notice the mutant most likely for their time, judged by the other mutants of its
        file, most of all by the near ones, and by the programs' names and folders."""
        file = mutant.file
        line = mutant.line(self.source(file))
        stem = re.sub(r"Impl$", "", os.path.splitext(os.path.basename(file))[0])
        folder = re.sub(r"^foundation/(certificates/)?(src/|include/foundation/certificates/)?", "",
                        os.path.dirname(file))
        if "/include/" in file and not file.startswith("foundation/toolkit"):
            source = os.path.basename(file).replace(".hpp", ".cpp")
            folder = next((other.split("/src/")[1].removesuffix(source).rstrip("/") for other in self.build.commands
                           if os.path.basename(other) == source), "") or "base"
        folder = {"log": "base"}.get(folder.split("/")[0], folder.split("/")[0])
        own = None
        if mutant.kind == "guard":
            own = LOCK_PROGRAM if "lock" in mutant.change(self.source(file))[0].lower() else SCOPE_PROGRAM

        def value(program):
            expected = 0.01 if self.coverage and program not in self.coverage.executed else 0.1
            if program.folder.split("/")[0] == folder:
                expected = 0.9 if program.name.startswith(stem) else 0.5
            share = self.share_of_noticed(file, line, program, expected)
            return share / (0.1 + (program.seconds or 1)) + (100 if program.name == own else 0)
        likeliest, seconds = [], 0
        for program in sorted(self.programs_of(mutant), key=value, reverse=True):
            seconds += 0.1 + (program.seconds or 1)
            if seconds > ALONE:
                break
            likeliest.append(program)
        return likeliest

    def in_folder(self, function):
        with tempfile.TemporaryDirectory(prefix="mutant-", ignore_cleanup_errors=True) as folder:
            return function(folder)

    def killer(self, mutants, programs, folder):
        """Returns the first of the programs that fails with the mutants; None if all pass; False if they do not
        compile."""
        changed, users = {}, {}
        for mutant in sorted(mutants, key=lambda mutant: -mutant.start): # so that the places before stay valid
            changed[mutant.file] = mutant.applied_to(changed.get(mutant.file, self.source(mutant.file)))
            users.setdefault(mutant.file, set()).update(self.users_of(mutant))
        if not self.build.compile_and_link(changed, users, folder, self.deadline):
            return False
        for program in programs:
            passes = self.build.passes(program, folder, self.deadline)
            if self.deadline.passed():
                return None
            for mutant in mutants:
                self.count(mutant, program.name, not passes)
            if not passes:
                return program
            for mutant in mutants:
                self.passed[mutant].add(program)
        return None

    def survives(self, mutant, programs):
        """Whether the mutant passes the programs. Notes the outcome if not."""
        killer = self.in_folder(lambda folder: self.killer([mutant], programs, folder))
        if self.deadline.passed():
            self.note(mutant, "undecided")
        elif killer is False:
            self.note(mutant, "no code")
        elif killer is not None:
            self.note(mutant, "killed", killer=killer)
        else:
            return True
        return False

    def failing(self, pool, group, programs, folder):
        """Returns those of the programs that fail with all mutants of the group at once."""
        if self.killer(group, [], folder) is False:
            return programs
        passed = pool.map(lambda item: self.build.passes(item[1], self.own_copy(folder, item[0]), self.deadline),
                          enumerate(programs))
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

    def survives_likeliest(self, mutant):
        if self.deadline.passed():
            self.note(mutant, "not reached")
            return False
        if not self.programs_of(mutant):
            self.note_survivor(mutant, ", no test executes it")
            return False
        return self.survives(mutant, self.likeliest_programs(mutant))

    @staticmethod
    def next_group(mutants):
        """Takes from the list mutants that fit into one library."""
        group = []
        for mutant in list(mutants):
            is_near = any(other.file == mutant.file and other.start < mutant.end + NEAR and
                          mutant.start < other.end + NEAR for other in group)
            if len(group) < AT_ONCE and not is_near:
                group.append(mutant)
                mutants.remove(mutant)
        return group

    def survivors_of(self, pool, mutants, is_slow):
        """Returns the mutants that pass the slow or the other programs. Many share a library and so a run of each
        program."""
        passing = []
        while mutants:
            group = self.next_group(mutants)
            able = {mutant: {program for program in self.programs_of(mutant) if (program.seconds >= SLOW) == is_slow}
                    for mutant in group}
            programs = sorted(set().union(*able.values()), key=lambda program: program.seconds)
            failing = self.in_folder(lambda folder: self.failing(pool, group, programs, folder))
            if self.deadline.passed():
                for mutant in group:
                    self.note(mutant, "undecided", ", passed the likeliest tests")
            else:
                own = [[program for program in failing if program in able[mutant]] for mutant in group]
                passing += [mutant for mutant, survives in zip(group, pool.map(
                    lambda mutant, programs: not programs or self.survives(mutant, programs), group, own)) if survives]
        return passing

    def mutate(self, pool, mutants):
        # Those that most likely survive come first.
        mutants = sorted(mutants, key=lambda mutant: len(self.programs_of(mutant)))
        for start in range(0, len(mutants), BATCH):
            batch = mutants[start:start + BATCH]
            left = [mutant for mutant, survives in zip(batch, pool.map(self.survives_likeliest, batch)) if survives]
            for is_slow in (False, True):
                left = self.survivors_of(pool, left, is_slow)
            for _ in pool.map(self.note_survivor, left):
                pass

    def print_summary(self, known):
        """Prints the outcomes of each kind. `known` counts the equivalents, by kind."""
        print("\n==== Summary")
        columns = ("killed", "SURVIVED", "undecided", "not reached", "same code", "no code")
        counts = {kind: [0] * len(columns) for kind in {*known, *(mutant.kind for mutant in self.outcomes)}}
        for mutant, outcome in self.outcomes.items():
            counts[mutant.kind][columns.index(outcome)] += 1
        total = [sum(row[column] for row in counts.values()) for column in range(len(columns))]
        for kind, row in [*sorted(counts.items()), ("all", total)]:
            share = f"{100 * row[0] / (row[0] + row[1]):5.1f} % killed" if row[0] + row[1] else "no result"
            equivalents = sum(known.values()) if kind == "all" else known.get(kind, 0)
            print(f"{kind:10} {share:>14}: " + ", ".join(
                f"{count} {column}" for count, column in zip([*row, equivalents], [*columns, "equivalent"]) if count))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("words", nargs="*")
    parser.add_argument("--seed", type=int, default=int(time.time()))
    parser.add_argument("--range")
    parser.add_argument("--minutes", type=float)
    parser.add_argument("--kind", action="append")
    parser.add_argument("--required", type=float, default=100)
    parser.add_argument("--continue", dest="record")
    arguments = parser.parse_intermixed_args()
    files = arguments.words
    number = int(files.pop(0)) if files and files[0].isdigit() else None
    deadline = Deadline(arguments.minutes)
    build = Build(os.getcwd(), os.path.abspath(arguments.build))

    lines = changed_lines(arguments.range) if arguments.range else None
    files = build.files(files or ["foundation"])
    if lines is not None:
        files = [file for file in files if file in lines]
    equivalents = Equivalents(f"{os.path.dirname(__file__)}/equivalents")
    run = Run(build, deadline, os.cpu_count(), arguments.record)
    mutants, known = [], {}
    with concurrent.futures.ThreadPoolExecutor(run.workers) as pool:
        for found in pool.map(lambda file: candidates(build, file), files):
            for mutant in found:
                source = run.source(mutant.file)
                if arguments.kind and mutant.kind not in arguments.kind:
                    continue
                if lines is not None and mutant.line(source) not in lines.get(mutant.file, ()):
                    continue
                if equivalents.contain(mutant, source):
                    known[mutant.kind] = known.get(mutant.kind, 0) + 1
                else:
                    mutants.append(mutant)
    random.Random(arguments.seed).shuffle(mutants)
    chosen = mutants[:number]
    left = run.continue_with(chosen)
    print(f"{len(left)} of {len(mutants)} mutants in {len(files)} files; {sum(known.values())} known equivalents; "
          f"seed {arguments.seed}", flush=True)
    with concurrent.futures.ThreadPoolExecutor(run.workers) as pool:
        if len(left) >= MANY:
            run.prepare(pool)
        run.mutate(pool, left)

    unused = sorted(program.name for program in build.programs if program.fails_always)
    if unused:
        print(f"Not used, because they fail without a mutant: {', '.join(unused)}")
    survivors = [mutant for mutant in chosen if run.outcomes[mutant] == "SURVIVED"]
    for mutant in survivors:
        print(f"\nSURVIVED: {run.describe(mutant)}")
    run.print_summary(known)
    print(f"seed {arguments.seed}")
    noticed = sum(run.outcomes[mutant] == "killed" for mutant in chosen)
    sys.exit(1 if 100 * noticed < arguments.required * (noticed + len(survivors)) else 0)


main()
