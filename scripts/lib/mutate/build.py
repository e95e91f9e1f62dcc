"""The build that mutants are put into: its compile and link commands, its test programs and its headers' users."""
import glob
import hashlib
import json
import os
import re
import resource
import shlex
import signal
import subprocess
import sys
import tempfile
import threading
import time

LONGEST = 600 # seconds of processor time for one run of a program
WAITING = 60 # seconds: a program that uses less than IDLE seconds of processor time in them waits
IDLE = 0.3


class Program:
    """A test program, with the time that it takes without a mutant."""
    def __init__(self, entry, command, folder):
        self.name = entry["name"]
        self.command = command
        self.folder = folder
        properties = {item["name"]: item["value"] for item in entry["properties"]}
        self.directory = properties["WORKING_DIRECTORY"]
        self.environment = dict(item.split("=", 1) for item in properties.get("ENVIRONMENT", []))
        self.needs_lock = "RESOURCE_LOCK" in properties
        # Tests of threads, waiting times and connections can fail because of the machine's load.
        self.depends_on_load = self.needs_lock or bool({"slow", "threads"} & set(properties.get("LABELS", ())))
        self.lock = threading.Lock()
        self.seconds = 0 # of processor time; 0: not measured yet
        self.elapsed = 0
        self.fails_always = False


class Build:
    def __init__(self, root, folder):
        self.root = root
        self.folder = folder
        with open(f"{folder}/compile_commands.json") as commands:
            entries = json.load(commands)
        self.links = {}
        for library in ("certificates", "log", "toolkit"):
            commands = subprocess.run(
                ["ninja", "-C", folder, "-t", "commands", f"foundation/{library}/libfoundation_{library}.so"],
                check=True, capture_output=True, text=True).stdout.splitlines()
            link, = (line for line in commands if " -shared " in line and f"libfoundation_{library}.so" in line)
            self.links[library] = shlex.split(link.removeprefix(": && ").removesuffix(" && :"))
        linked = set().union(*self.links.values())
        self.commands = {}
        folders = {}
        for entry in entries:
            file = os.path.relpath(entry["file"], root)
            command = shlex.split(entry["command"])
            if file.startswith("foundation/") and command[command.index("-o") + 1] in linked: # not in a program
                self.commands[file] = command
            elif file.startswith("tests/"):
                name = os.path.splitext(os.path.basename(file))[0]
                folders[name] = os.path.dirname(file)[len("tests/"):]
        tests = json.loads(subprocess.run(["ctest", "--test-dir", folder, "--show-only=json-v1"],
                                          check=True, capture_output=True, text=True).stdout)["tests"]
        commands = self.commands_of_tests()
        self.programs = [Program(entry, commands[entry["name"]], folders.get(entry["name"], "documentation"))
                         for entry in tests if entry["name"] in commands]
        self.building = threading.Lock()
        self.heads = None
        self.users = self.users_of_headers()
        # A network of its own lets programs that serve on fixed ports run at the same time.
        self.own_network = ["unshare", "--net", "sh", "-c", 'ip link set lo up; exec "$@"', "sh"]
        if subprocess.run([*self.own_network, "true"], capture_output=True).returncode != 0:
            self.own_network = []
        self.network = threading.Lock()
        self.record = f"{folder}/durations.json"
        self.record_lock = threading.Lock()
        if os.path.exists(self.record):
            with open(self.record) as record:
                known = json.load(record)
            for program in self.programs:
                program.seconds, program.elapsed = known.get(program.name, (0, 0))

    def commands_of_tests(self):
        """Returns the command of each test. CTest prints only those of programs that exist."""
        commands = {}
        for path in glob.glob(f"{self.folder}/tests/**/CTestTestfile.cmake", recursive=True):
            with open(path) as file:
                for name, command in re.findall(r"^add_test\(\[=\[(.*?)\]=\] (.*)\)$", file.read(), re.MULTILINE):
                    commands[name] = shlex.split(command)
        return commands

    def users_of_headers(self):
        """Returns for each header of the libraries the sources that include it."""
        users = {}
        deps = subprocess.run(["ninja", "-C", self.folder, "-t", "deps"],
                              check=True, capture_output=True, text=True).stdout
        for block in deps.split("\n\n"):
            paths = [os.path.relpath(os.path.join(self.folder, line.strip()), self.root)
                     for line in block.splitlines()[1:]]
            if paths and paths[0] in self.commands:
                for path in paths[1:]:
                    users.setdefault(path, []).append(paths[0])
        return users

    def files(self, paths):
        """Returns the libraries' files that the paths name, or that are in a folder of that name."""
        files = {file for file in {*self.commands, *self.users} if file.startswith("foundation/")}
        found = set()
        for path in paths:
            named = {file for file in files if f"{file}/".startswith(f"{path.rstrip('/')}/")}
            if not named:
                sys.exit(f"The libraries are not built from {path}.")
            found |= named
        return sorted(found)

    def options(self, file):
        """Returns the preprocessor's options for a file: for a header those of a source that includes it."""
        source = file if file in self.commands else self.users[file][0]
        command = self.commands[source]
        options = [word for word in command if word.startswith(("-I", "-D", "-std="))]
        for word, following in zip(command, command[1:]):
            if word == "-isystem":
                options += [word, following]
        return options + (["-xc++"] if file.endswith(".hpp") else [])

    def compile_and_link(self, changed, users, folder, deadline):
        """Builds the libraries with the changed files, a map of names and contents, in the folder. `users` has the
        sources that are compiled for changed headers. Returns whether they compile."""
        sources = set()
        includes = []
        for file, content in changed.items():
            if file.endswith(".cpp"):
                sources.add(file)
                path = f"{folder}/{file}"
            else:
                sources.update(users[file])
                root = next(root for root in ("/include/", "/src/") if root in file)
                path = f"{folder}/include/{file.split(root, 1)[1]}"
                includes = [f"-I{folder}/include"]
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "wb") as output:
                output.write(content)
        objects = {}
        for source in sorted(sources):
            target = objects[self.object_of(source)] = f"{folder}/{len(objects)}.o"
            path = f"{folder if source in changed else self.root}/{source}"
            head = [] if includes else self.compiled_head(source, deadline)
            if not self.run([*self.compiler(source, includes), *head, "-c", path, "-o", target], deadline):
                return False
        for library, command in self.links.items():
            if any(word in objects for word in command):
                target = f"{folder}/libfoundation_{library}.so.1"
                command = [objects.get(word, word) for word in command]
                command[command.index("-o") + 1] = target
                # Programs contain their own copies of a header's functions, which must not replace the mutant.
                symbolic = ["-Wl,-Bsymbolic-functions"] if includes else []
                if not self.run([*command, "-s", *symbolic], deadline):
                    return False
        return True

    def object_of(self, source):
        command = self.commands[source]
        return command[command.index("-o") + 1]

    def compiler(self, source, includes=()):
        """Returns the command that compiles the source, without files. clang++ takes less time than g++."""
        words = self.commands[source]
        options = [word for word in words[1:words.index("-o")] if not word.startswith("-W") and word != "-g"]
        return ["clang++", *includes, *options, "-w", "-O0"]

    def compile_heads(self):
        """Makes compiled_head compile the includes of each source once, until a header changes."""
        self.heads = f"{self.folder}/heads"
        os.makedirs(self.heads, exist_ok=True)
        newest = max(os.path.getmtime(os.path.join(self.root, header)) for header in self.users)
        for path in glob.glob(f"{self.heads}/*"):
            if os.path.getmtime(path) < newest:
                os.remove(path)

    def compiled_head(self, source, deadline):
        """Returns the options that begin a source with its includes, compiled before. They take most of the time, and
        included a second time they do nothing."""
        if not self.heads:
            return []
        with open(f"{self.root}/{source}") as content:
            head = self.head_of(content.read())
        header = f"{self.heads}/{hashlib.sha256((source + head).encode()).hexdigest()}.hpp"
        with self.building:
            if not os.path.exists(f"{header}.pch"):
                with open(header, "w") as output:
                    output.write(head)
                self.run([*self.compiler(source), "-x", "c++-header", header, "-o", f"{header}.pch"], deadline)
        return ["-include-pch", f"{header}.pch"] if os.path.exists(f"{header}.pch") else []

    @staticmethod
    def head_of(content):
        """Returns the part of a source before its first statement."""
        head, depth, end = content.splitlines(keepends=True), 0, 0
        for number, line in enumerate(head, 1):
            if line.startswith("#"):
                depth += line.startswith("#if") - line.startswith("#endif")
            elif line.strip() and not line.startswith("//"):
                break
            if depth == 0:
                end = number
        return "".join(head[:end])

    def has_same_code(self, changed, folder, deadline):
        """Whether the compiler makes the same code of the changed sources as of the originals."""
        for source, content in changed.items():
            path = f"{folder}/{source}"
            os.makedirs(os.path.dirname(path), exist_ok=True)
            objects = []
            with open(f"{self.root}/{source}", "rb") as original:
                versions = (original.read(), content)
            for version in versions:
                with open(path, "wb") as output:
                    output.write(version)
                if source not in self.commands or not self.run(
                        [*self.compiler(source), "-O2", "-c", path, "-o", f"{path}.o"], deadline):
                    return False
                with open(f"{path}.o", "rb") as compiled:
                    objects.append(compiled.read())
            if objects[0] != objects[1]:
                return False
        return True

    def run(self, command, deadline):
        try:
            return subprocess.run(command, cwd=self.folder, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                  stderr=subprocess.DEVNULL, timeout=deadline.left()).returncode == 0
        except subprocess.TimeoutExpired:
            return False

    def passes(self, program, folder, deadline):
        """Runs the program with the libraries of the folder. It has failed if it fails or takes much longer than without a
        mutant. If the machine's load could be the reason, it has to fail twice, and to pass without the mutant. A program
        that fails without a mutant counts as passed."""
        self.measure(program, deadline)
        if program.fails_always or deadline.passed():
            return True
        for _ in range(2 if program.depends_on_load else 1):
            passed, is_stuck = self.execute(program, folder, deadline, folder)[:2]
            if passed or deadline.passed():
                return True
            if is_stuck:
                break
        return program.depends_on_load and not self.execute(program, None, deadline, folder)[0]

    def build_programs(self):
        subprocess.run(["ninja", "-C", self.folder], check=True)

    def measure(self, program, deadline):
        """Builds the program and measures how long it takes without a mutant, unless that has been done."""
        with program.lock:
            if program.seconds or program.fails_always or deadline.passed():
                return
            target = os.path.relpath(program.command[0], self.folder)
            with self.building:
                subprocess.run(["ninja", "-C", self.folder, target], check=True, stdout=subprocess.DEVNULL)
            with tempfile.TemporaryDirectory(prefix="measured-", ignore_cleanup_errors=True) as folder:
                passed, _, seconds, elapsed = self.execute(program, None, deadline, folder)
            if passed:
                self.keep_time(program, seconds, elapsed)
            else:
                program.fails_always = not deadline.passed()

    def keep_time(self, program, seconds, elapsed):
        with self.record_lock:
            program.seconds, program.elapsed = max(0.01, seconds), elapsed
            with open(self.record, "w") as record:
                json.dump({each.name: (each.seconds, each.elapsed) for each in self.programs if each.seconds}, record)

    def execute(self, program, libraries, deadline, folder, variables={}):
        """Runs the program. Returns whether it passes, whether it was stopped because it took too long, its processor
        time and the time that it took."""
        temporary = f"{folder}/tmp"
        os.makedirs(temporary, exist_ok=True)
        environment = {**os.environ, **program.environment, **variables, "TMPDIR": temporary, "GTEST_FAIL_FAST": "1"}
        if libraries:
            environment["LD_LIBRARY_PATH"] = libraries
        # Processor time does not depend on the machine's load.
        limit = int(5 * program.seconds) + 10 if program.seconds else LONGEST

        def set_up():
            os.setpgrp() # to be stopped with its children; a session of its own would have a priority of its own
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
            resource.setrlimit(resource.RLIMIT_CPU, (limit, limit))
            resource.setrlimit(resource.RLIMIT_FSIZE, (1 << 30, 1 << 30))
            resource.setrlimit(resource.RLIMIT_DATA, (4 << 30, 4 << 30)) # for endless loops that allocate

        lock = self.network if program.needs_lock and not self.own_network else threading.Lock()
        with lock:
            start = time.monotonic()
            process = subprocess.Popen([*self.own_network, *program.command], cwd=program.directory, env=environment,
                                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                       stderr=subprocess.DEVNULL, preexec_fn=set_up)
            ended = threading.Event()
            watch = threading.Thread(target=self.stop_waiting, args=[process.pid, program, deadline, ended])
            watch.start()
            _, status, usage = os.wait4(process.pid, 0)
            ended.set()
            watch.join()
            process.returncode = os.waitstatus_to_exitcode(status)
            self.kill(process.pid) # its children too
            elapsed = time.monotonic() - start
            return (process.returncode == 0, process.returncode == -signal.SIGKILL,
                    usage.ru_utime + usage.ru_stime, elapsed)

    def stop_waiting(self, group, program, deadline, ended):
        """Stops a program at the deadline, and one that waits although it should have ended. One that only runs slowly
        goes on."""
        patience = 5 * program.elapsed + 30 if program.seconds else LONGEST
        start = active = time.monotonic()
        used = 0
        while not ended.wait(5):
            now = time.monotonic()
            used_now = self.processor_time(group)
            if abs(used_now - used) > IDLE:
                used, active = used_now, now
            if deadline.passed() or now > max(start + patience, active + WAITING):
                self.kill(group)

    @staticmethod
    def processor_time(ancestor):
        """Returns the processor time of a process and its descendants, also of those that have ended."""
        times, parents = {}, {}
        for path in glob.glob("/proc/[0-9]*/stat"):
            try:
                with open(path) as stat:
                    fields = stat.read().rpartition(")")[2].split()
            except OSError:
                continue # it has ended
            process = int(path.split("/")[2])
            parents[process] = int(fields[1])
            times[process] = sum(map(int, fields[11:15]))

        def belongs(process):
            return process == ancestor or process in parents and belongs(parents[process])
        return sum(time for process, time in times.items() if belongs(process)) / os.sysconf("SC_CLK_TCK")

    @staticmethod
    def kill(group):
        try:
            os.killpg(group, signal.SIGKILL)
        except ProcessLookupError:
            pass
