"""Which lines of the libraries each test program executes."""
import bisect
import glob
import hashlib
import json
import os
import subprocess
import tempfile

# Their child processes end with _exit, which does not write the counters.
UNKNOWN = {"NoPromptTest", "SystemRootsCacheTest", "SystemRootsMemoryTest"}


class Coverage:
    """A second build of the libraries counts its lines. Each program runs once with them. The results are kept until
    the program or a library changes."""
    def __init__(self, build):
        self.build = build
        self.folder = folder = f"{build.folder}-coverage"
        # Without symbolic functions a program would execute its own copies of a header's functions.
        subprocess.run(["cmake", "--preset", "dev", "-B", folder, "-DBUILD_SHARED_LIBS=ON",
                        "-DFOUNDATION_CERTIFICATES_COVERAGE=ON", "-DCMAKE_SHARED_LINKER_FLAGS=-Wl,-Bsymbolic-functions"],
                       check=True, stdout=subprocess.DEVNULL)
        subprocess.run(["cmake", "--build", folder, "--target", *(f"foundation_{library}" for library in build.links)],
                       check=True)
        self.libraries = [f"{folder}/foundation/{library}" for library in build.links]
        self.kept = f"{build.folder}/coverage"
        os.makedirs(self.kept, exist_ok=True)
        self.sources = {}
        for source, command in build.commands.items():
            self.sources[f"{folder}/{command[command.index('-o') + 1]}"[:-len(".o")]] = source
        self.state = hashlib.sha256()
        for path in (path for each in self.libraries for path in glob.glob(f"{each}/*.so")):
            with open(path, "rb") as library:
                self.state.update(library.read())
        self.code = self.lines_with_code() # by file
        # For each program by file: the executed lines, each with the sources it was compiled for. A program without an
        # entry counts as one that executes everything.
        self.executed = {}

    def lines_with_code(self):
        """Returns for each file its lines with code, in order, and the first and last lines of its functions."""
        found = {}
        with tempfile.TemporaryDirectory(prefix="coverage-", ignore_cleanup_errors=True) as folder:
            for _, report in self.reports(folder, [f"{base}.gcno" for base in self.sources]):
                for file, lines, functions in report:
                    code, extents = found.setdefault(file, (set(), set()))
                    code.update(number for number, _ in lines)
                    extents.update(functions)
        return {file: (sorted(code), extents) for file, (code, extents) in found.items()}

    def reports(self, folder, counters):
        """Returns for each counter file its source, and for each file of the libraries in it the numbers of the lines
        with their counts and the first and last lines of the functions."""
        process = subprocess.run(["gcov", "--json-format", "--stdout", *counters], cwd=folder, check=True,
                                 capture_output=True, text=True)
        for line in process.stdout.splitlines():
            report = json.loads(line)
            base = os.path.splitext(report["data_file"])[0]
            source = self.sources[base[base.index(self.folder):]]
            files = []
            for of_file in report["files"]:
                file = os.path.relpath(os.path.join(report["current_working_directory"], of_file["file"]),
                                       self.build.root)
                if file.startswith("foundation/"):
                    files.append((file, [(line["line_number"], line["count"]) for line in of_file["lines"]],
                                  [(each["start_line"], each["end_line"]) for each in of_file["functions"]]))
            yield source, files

    def measure(self, program, deadline):
        """Finds out what the program executes, unless it is in UNKNOWN or fails."""
        state = self.state.copy()
        with open(program.command[0], "rb") as executable:
            state.update(executable.read())
        kept = f"{self.kept}/{program.name}.json"
        if os.path.exists(kept):
            with open(kept) as record:
                known = json.load(record)
            if known["state"] == state.hexdigest():
                self.keep(program, known["executed"])
                return
        executed = None
        if program.name not in UNKNOWN:
            with tempfile.TemporaryDirectory(prefix="coverage-", ignore_cleanup_errors=True) as folder:
                passed, _, seconds, elapsed = self.build.execute(
                    program, ":".join(self.libraries), deadline, folder, {"GCOV_PREFIX": folder})
                if passed:
                    executed = self.lines_executed(folder)
                    if not program.seconds:
                        self.build.keep_time(program, seconds, elapsed)
        if not deadline.passed():
            with open(kept, "w") as record:
                json.dump({"state": state.hexdigest(), "executed": executed}, record)
        self.keep(program, executed)

    def lines_executed(self, folder):
        """Returns the executed lines by file and source. The folder has the counters at their absolute paths."""
        counters = []
        for base in self.sources:
            if os.path.exists(f"{folder}/{base}.gcda"):
                os.symlink(f"{base}.gcno", f"{folder}/{base}.gcno")
                counters.append(f"{folder}/{base}.gcda")
        executed = {}
        for source, files in self.reports(folder, counters) if counters else ():
            for file, lines, _ in files:
                numbers = sorted({number for number, count in lines if count})
                if numbers:
                    executed.setdefault(file, {})[source] = numbers
        return executed

    def keep(self, program, executed):
        if isinstance(executed, dict):
            by_file = self.executed[program] = {}
            for file, sources in executed.items():
                by_line = by_file[file] = {}
                for source, numbers in sources.items():
                    for number in numbers:
                        by_line.setdefault(number, []).append(source)

    def lines_of(self, file, first, last):
        """Returns the lines that have the code of a part of the file; an empty list if they are not known."""
        code, functions = self.code.get(file, ([], ()))
        inside = code[bisect.bisect_left(code, first):bisect.bisect_right(code, last)]
        if inside:
            return inside
        # A continued statement may have its code in an earlier line.
        before = code[:bisect.bisect_left(code, first)][-1:]
        if any(before and start <= before[0] and first <= end for start, end in functions):
            return before
        return []

    def executes(self, program, file, lines):
        if program not in self.executed or not lines:
            return True
        return any(line in self.executed[program].get(file, ()) for line in lines)

    def sources_of(self, file, lines):
        """Returns the sources whose copies of the header's lines the programs execute."""
        return {source for executed in self.executed.values()
                for line in lines for source in executed.get(file, {}).get(line, ())}
