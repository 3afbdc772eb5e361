#!/usr/bin/env python3
"""Changes one operator or constant of the numerical core at a time and looks who notices.

The tree is copied and built once (light optimisation, assertions on). A mutant is one changed
source file: what depends on it is compiled anew into a folder of its own, linked with the untouched
rest, and the test programs run until one of them fails. See README.md beside this file.
"""

import argparse
import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import resource
import shlex
import shutil
import signal
import subprocess
import sys
import threading
import time

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
CORE = ("linalg", "observations", "unknowns", "adjustment")
# Behind the program of the mutant's own folder: quick ones first, those of large networks last.
OTHERS = ("adjustment", "observations", "unknowns", "golden", "network", "api", "protocol",
          "linalg", "engine", "networks")
MEMORY = 6 << 30
# Containers check their indices: what reads beyond the end is noticed without a sanitizer.
FLAGS = "-O1 -w -D_GLIBCXX_ASSERTIONS"
# The kernels fuse products and sums at full optimisation only, and their tests know it.
KERNELS = """
set_property(SOURCE linalg/dense_kernels.cpp linalg/leading_kernels.cpp
  APPEND PROPERTY COMPILE_OPTIONS -O3)
"""


# ---------------------------------------------------------------- sites


def code_mask(text):
    """True for every character that is neither comment, literal text, directive nor assertion."""
    mask = [True] * len(text)

    def hide(first, last):
        for k in range(first, min(last, len(text))):
            mask[k] = False

    i = 0
    while i < len(text):
        if text.startswith("//", i):
            end = text.find("\n", i)
            end = len(text) if end < 0 else end
        elif text.startswith("/*", i):
            end = text.find("*/", i) + 2
        elif text[i] == '"' or (text[i] == "'" and not (i > 0 and text[i - 1].isalnum())):
            end = i + 1
            while text[end] != text[i]:
                end += 2 if text[end] == "\\" else 1
            end += 1
        elif text[i] == "#" and text[text.rfind("\n", 0, i) + 1:i].strip() == "":
            end = i
            while True:
                end = text.find("\n", end)
                if end < 0:
                    end = len(text)
                elif text[end - 1] == "\\":
                    end += 1
                    continue
                break
        else:
            i += 1
            continue
        hide(i, end)
        i = end
    for match in re.finditer(r"\b(static_assert|assert)\s*\(|\[\[|\b__attribute__\s*\(\(|"
                             r"\btemplate\s*<|\boperator\s*[^\w\s]+|\bnoexcept\s*\(|\.reserve\(", text):
        if not mask[match.start()]:
            continue
        end = match.end()
        opening = text[end - 1]
        closing = {"(": ")", "[": "]", "<": ">"}.get(opening)
        depth = 1
        if closing:
            while end < len(text) and depth > 0:
                depth += (text[end] == opening) - (text[end] == closing)
                end += 1
        hide(match.start(), end)
    return mask


# Pattern and replacements. Operators stand between blanks, as the formatter writes them; that tells
# them from pointers, references and template brackets.
RULES = [
    (r"(?<=\s)\+(?=\s)", ["-"]),
    (r"(?<=\s)-(?=\s)", ["+"]),
    (r"(?<=\s)\*(?=\s)", ["/"]),
    (r"(?<=\s)/(?=\s)", ["*"]),
    (r"(?<=\s)%(?=\s)", ["*"]),
    (r"(?<=\s)\+=(?=\s)", ["-="]),
    (r"(?<=\s)-=(?=\s)", ["+="]),
    (r"(?<=\s)\*=(?=\s)", ["/="]),
    (r"(?<=\s)/=(?=\s)", ["*="]),
    (r"(?<=\s)<(?=\s)", ["<=", ">="]),
    (r"(?<=\s)<=(?=\s)", ["<", ">"]),
    (r"(?<=\s)>(?=\s)", [">=", "<="]),
    (r"(?<=\s)>=(?=\s)", [">", "<"]),
    (r"(?<=\s)==(?=\s)", ["!="]),
    (r"(?<=\s)!=(?=\s)", ["=="]),
    (r"(?<=\s)&&(?=\s)", ["||"]),
    (r"(?<=\s)\|\|(?=\s)", ["&&"]),
    (r"(?<=[\s(\[{,])-(?=[\w(])", [""]),  # the sign
    (r"(?<=[\s(])!(?=[\w(])", [""]),
    (r"\btrue\b", ["false"]),
    (r"\bfalse\b", ["true"]),
    (r"\bstd::sin\b", ["std::cos"]),
    (r"\bstd::cos\b", ["std::sin"]),
    (r"\bstd::min\b", ["std::max"]),
    (r"\bstd::max\b", ["std::min"]),
    (r"\bstd::abs\b", [""]),
    (r"\bcontinue;", [";"]),
    (r"\bbreak;", [";"]),
    (r"\breturn;", [";"]),
    (r"\breturn (?=true;|false;)", None),  # the statement behind a condition is dropped
    (r"(?<![\w.])(?:\d+\.\d*(?:e[-+]?\d+)?|\d+e[-+]?\d+)(?![\w.])", "real"),
    (r"(?<![\w.])\d+(?:'\d+)*[uU]?(?![\w.])", "whole"),
]


def replacements(kind, found, text, start, end):
    if kind == "real":
        value = float(found)
        if value == 0.0:
            return ["1.0"]
        return [repr(value * 1.5), "0.0"] if value != 1.0 else ["2.0", "0.0"]
    if kind == "whole":
        if text[end] == ">" or (text[end:end + 2] == ", " and in_template(text, end)):
            return []
        line = text[text.rfind("\n", 0, start) + 1:start]
        if text[end:end + 1] == ";" and line.endswith((") = ", "override = ", "const = ")):
            return []
        # A longer array changes nothing.
        if re.match(r"\s*(?:static |constexpr |const )*[\w:]+ \w+\[$", line):
            return []
        value = int(found.rstrip("uU").replace("'", ""))
        return ["1"] if value == 0 else [str(value + 1), str(value - 1)]
    return kind


def in_template(text, end):
    """Whether the closing bracket behind an argument list is an angle."""
    match = re.compile(r"[^;(){}]*?([>;(){}])").match(text, end)
    return bool(match) and match.group(1) == ">" and not re.search(r"\s>", match.group(0))


class Mutant:
    def __init__(self, path, text, start, end, new):
        self.path = path  # from the root of the tree
        self.start, self.end, self.new = start, end, new
        first = text.rfind("\n", 0, start) + 1
        last = text.find("\n", start)
        self.line = text.count("\n", 0, start) + 1
        self.column = start - first + 1
        self.before = text[first:last].strip()
        self.old = text[start:end]
        self.after = (text[first:start] + new + text[end:max(last, end)]).strip()
        # Survives a move of the line; equal lines of one file are told apart by their number.
        same = sum(other.strip() == self.before for other in text[:first].split("\n"))
        name = f"{path}|{self.before}|{same}|{start - first}|{self.old}|{new}"
        self.key = hashlib.sha256(name.encode()).hexdigest()[:10]
        self.folder = pathlib.PurePath(path).parts[1]


def mutants_of(tree, path):
    text = (tree / path).read_text()
    mask = code_mask(text)
    found = []
    for pattern, kind in RULES:
        for match in re.finditer(pattern, text):
            start, end = match.span()
            if not all(mask[start:end]):
                continue
            if kind is None:
                # An early return only: behind `if (...)`, not the last statement of a function.
                end = text.index(";", start) + 1
                line = text[text.rfind("\n", 0, start) + 1:start]
                if not re.search(r"\bif \(.*\) $", line):
                    continue
                news = [";"]
            else:
                news = replacements(kind, match.group(0), text, start, end)
            if kind == [";"] or match.group(0) == "return;":
                if re.match(r"\s*\}\s*\n\}", text[end:]) and match.group(0) == "return;":
                    continue
            found += [Mutant(path, text, start, end, new) for new in news]
    return found


def sample(tree, files, seed):
    """All mutants in the order of the sample. The rank of each depends on the seed and on its own
    line alone, so that a change elsewhere leaves the rest of the sample as it is."""
    every = [mutant for path in files for mutant in mutants_of(tree, path)]
    one = {}
    for mutant in every:
        rank = hashlib.sha256(f"{seed}|{mutant.key}".encode()).hexdigest()
        # One change of a place is enough: the others would be noticed by the same test.
        place = (mutant.path, mutant.start)
        if place not in one or rank < one[place][0]:
            one[place] = (rank, mutant)
    return [mutant for _, mutant in sorted(one.values(), key=lambda entry: entry[0])]


# ---------------------------------------------------------------- building


def run(command, timeout, cwd=None, env=None):
    """Return code, or None behind the time limit; output. No process stays behind."""
    def limit():
        resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))

    process = subprocess.Popen(command, cwd=cwd, env=env, stdout=subprocess.PIPE,
                               stderr=subprocess.STDOUT, start_new_session=True, preexec_fn=limit)
    try:
        output, _ = process.communicate(timeout=timeout)
        return process.returncode, output.decode(errors="replace")
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        process.communicate()
        return None, ""


class Base:
    """The untouched tree, built once: objects, their commands and what each depends on."""

    def __init__(self, source, work, jobs, programs):
        self.tree = work / "tree"
        self.build = work / "build"
        self.copy(source)
        cmake = ["cmake", "-S", str(self.tree), "-B", str(self.build), "-G", "Ninja",
                 "-DCMAKE_BUILD_TYPE=", f"-DCMAKE_CXX_FLAGS={FLAGS}",
                 "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON", "-DCARDO_BUNDLE_BUILD_TESTS=ON",
                 "-DCARDO_BUNDLE_BUILD_CLI=OFF", "-DCARDO_BUNDLE_BUILD_BENCH=OFF",
                 "-DCARDO_BUNDLE_BUILD_EXAMPLES=OFF"]
        if shutil.which("ccache"):
            cmake.append("-DCMAKE_CXX_COMPILER_LAUNCHER=ccache")
        subprocess.run(cmake, check=True, stdout=subprocess.DEVNULL)
        targets = [f"test_{program}" for program in programs]
        subprocess.run(["cmake", "--build", str(self.build), "-j", str(jobs), "--target",
                        "cardo_bundle_static", *targets], check=True, stdout=subprocess.DEVNULL)
        self.commands = {}
        for entry in json.loads((self.build / "compile_commands.json").read_text()):
            command = shlex.split(entry["command"])
            if os.path.basename(command[0]) == "ccache":
                del command[0]
            self.commands[command[command.index("-o") + 1]] = (command, entry["file"])
        self.users = {}
        deps = subprocess.run(["ninja", "-C", str(self.build), "-t", "deps"], check=True,
                              capture_output=True, text=True).stdout
        target = None
        for line in deps.splitlines():
            if line and not line.startswith(" "):
                target = line.split(": #deps")[0]
            elif line.strip().startswith(str(self.tree)):
                self.users.setdefault(os.path.relpath(line.strip(), self.tree), set()).add(target)
        self.objects = {
            program: sorted(o for o in self.commands
                            if o.startswith(f"tests/CMakeFiles/test_{program}.dir/"))
            for program in programs}
        self.libraries = [str(path) for name in ("cardo_golden", "cardo_reference", "TavriDllRNx64")
                          for path in sorted(self.build.rglob(f"lib{name}.a"))]
        self.seconds = {}
        self.left_out = {}

    def copy(self, source):
        """Copies what changed, so that a build that is there stays up to date."""
        names = ["CMakeLists.txt", "cmake", "src", "tests", "fuzz", "examples"]
        wanted = set()
        for name in names:
            start = source / name
            for path in [start] if start.is_file() else sorted(start.rglob("*")):
                relative = path.relative_to(source)
                if path.is_dir() or "__pycache__" in relative.parts or "results" in relative.parts:
                    continue
                wanted.add(relative)
                to = self.tree / relative
                content = path.read_bytes()
                if relative == pathlib.Path("src/CMakeLists.txt"):
                    content += KERNELS.encode()
                if not to.exists() or to.read_bytes() != content:
                    to.parent.mkdir(parents=True, exist_ok=True)
                    to.write_bytes(content)
        for path in sorted(self.tree.rglob("*")):
            if path.is_file() and path.relative_to(self.tree) not in wanted:
                path.unlink()

    def parts(self, program):
        """Objects that a program is made of, with those of the libraries."""
        own = set(self.objects[program])
        return own | {o for o in self.commands
                      if o.startswith(("src/", "tests/CMakeFiles/cardo_"))}

    def link(self, program, changed, output):
        """Objects that stand before the libraries take their place there."""
        own = [str(changed.get(o, self.build / o)) for o in self.objects[program]]
        rest = [str(path) for o, path in changed.items()
                if not o.startswith("tests/CMakeFiles/test_")]
        linker = ["-fuse-ld=lld"] if shutil.which("ld.lld") or shutil.which("lld") else []
        return run(["c++", *linker, "-o", str(output), *own, *rest, *self.libraries, "-lgmock_main",
                    "-lgmock", "-lgtest", "-lpthread"], 300)

    def measure(self, programs, work):
        """Times of the untouched programs set the limits. Tests that fail or die in this build
        without a change are named and left out."""
        for program in programs:
            binary = work / f"base_{program}"
            code, output = self.link(program, {}, binary)
            if code != 0:
                sys.exit(f"mutate.py: test_{program} does not link:\n{output}")
            self.left_out[program] = []
            while True:
                started = time.monotonic()
                code, output = run([str(binary), self.selection(program)], 900, cwd=work)
                if code == 0:
                    break
                failed = re.findall(r"^\[  FAILED  \] ([\w./]+)(?:,.*)? \(", output, re.MULTILINE)
                if "tests ran." not in output:
                    failed += re.findall(r"^\[ RUN      \] ([\w./]+)", output, re.MULTILINE)[-1:]
                if not failed:
                    sys.exit(f"mutate.py: test_{program} fails without a change:\n{output[-3000:]}")
                print(f"left out, fails without a change: {program} {' '.join(failed)}", flush=True)
                self.left_out[program] += failed
            self.seconds[program] = time.monotonic() - started
            binary.unlink()

    def selection(self, program):
        return "--gtest_filter=*" + "".join(f"-{name}" if k == 0 else f":{name}"
                                            for k, name in enumerate(self.left_out[program]))


def judge(base, mutant, programs, work):
    """One of killed, survived, timeout, not compiled; the test that noticed it."""
    scratch = work / f"mutant_{mutant.key}"
    shutil.rmtree(scratch, ignore_errors=True)
    overlay = scratch / "overlay"
    changed_file = overlay / mutant.path
    changed_file.parent.mkdir(parents=True)
    text = (base.tree / mutant.path).read_text()
    changed_file.write_text(text[:mutant.start] + mutant.new + text[mutant.end:])
    changed = {}

    def compile_all(objects):
        for name in sorted(objects):
            if name in changed:
                continue
            command, source = base.commands[name]
            output = scratch / name
            output.parent.mkdir(parents=True, exist_ok=True)
            new = [command[0], f"-I{overlay / 'src'}"]
            for argument in command[1:]:
                if argument == source and os.path.relpath(source, base.tree) == mutant.path:
                    argument = str(changed_file)
                elif argument == name:
                    argument = str(output)
                new.append(argument)
            code, _ = run(new, 600, cwd=base.build)
            if code != 0:
                return False
            changed[name] = output
        return True

    try:
        users = base.users.get(mutant.path, set())
        for program in programs:
            if not compile_all(users & base.parts(program)):
                return "not compiled", ""
            binary = scratch / f"test_{program}"
            code, output = base.link(program, changed, binary)
            if code != 0:
                return "not compiled", ""
            limit = 20.0 + 15.0 * base.seconds[program]
            environment = dict(os.environ, GTEST_FAIL_FAST="1", GTEST_COLOR="no")
            code, output = run([str(binary), base.selection(program)], limit, cwd=scratch, env=environment)
            if code is None:
                return "timeout", program
            if code != 0:
                failed = re.search(r"\[  FAILED  \] ([\w./]+)", output)
                if failed is None:
                    starts = re.findall(r"\[ RUN      \] ([\w./]+)", output)
                    return "killed", f"{program}: ended in {starts[-1] if starts else 'the start'}"
                return "killed", f"{program}: {failed.group(1)}"
            binary.unlink()
        return "survived", ""
    finally:
        shutil.rmtree(scratch, ignore_errors=True)


# ---------------------------------------------------------------- the run


def equivalents():
    path = HERE / "equivalent.txt"
    reasons = {}
    if path.exists():
        for line in path.read_text().splitlines():
            if line.strip() and not line.startswith("#"):
                key, _, reason = line.partition(" ")
                reasons[key] = reason.strip()
    return reasons


def summary(log, order):
    reasons = equivalents()
    count = {"killed": 0, "timeout": 0, "survived": 0, "not compiled": 0}
    alike = 0
    survivors = []
    for mutant in order:
        entry = log.get(mutant.key)
        if entry is None:
            continue
        count[entry["outcome"]] += 1
        if entry["outcome"] == "survived":
            if mutant.key in reasons:
                alike += 1
            else:
                survivors.append(mutant)
    noticed = count["killed"] + count["timeout"]
    judged = noticed + count["survived"]
    print(f"mutants {judged}: killed {count['killed']}, timeout {count['timeout']}, survived "
          f"{count['survived']} (of these {alike} equivalent); not compiled {count['not compiled']}")
    if judged:
        print(f"noticed {100.0 * noticed / judged:.1f} % of all", end="")
        if judged > alike:
            print(f", {100.0 * noticed / (judged - alike):.1f} % without the equivalent ones")
    for mutant in survivors:
        print(f"survivor {mutant.key} {mutant.path}:{mutant.line}:{mutant.column}")
        print(f"    - {mutant.before}\n    + {mutant.after}")
    stale = set(reasons) - {key for key, entry in log.items() if entry["outcome"] == "survived"}
    for key in sorted(stale & set(log)):
        print(f"equivalent.txt lists {key}, which was noticed")
    return noticed, judged - alike


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--count", type=int, default=200, help="mutants that compile")
    parser.add_argument("--seed", default="1")
    parser.add_argument("--files", nargs="*", default=[], metavar="TEXT",
                        help="only files whose path contains one of these")
    parser.add_argument("--work", type=pathlib.Path, default=ROOT / "build" / "mutation")
    parser.add_argument("--source", type=pathlib.Path, default=ROOT, help="tree to copy")
    parser.add_argument("--log", type=pathlib.Path, help="default: log.json in --work")
    parser.add_argument("--jobs", type=int, default=1)
    parser.add_argument("--minutes", type=float, help="starts no mutant behind this time")
    parser.add_argument("--again", choices=["survived", "all"],
                        help="judge these of the log anew, after new tests")
    parser.add_argument("--list", action="store_true", help="print the sample, build nothing")
    parser.add_argument("--report", action="store_true", help="print the log's result, run nothing")
    parser.add_argument("--threshold", type=float, default=95.0,
                        help="per cent below which the program ends with 1")
    options = parser.parse_args()

    work = options.work.resolve()
    work.mkdir(parents=True, exist_ok=True)
    log_path = options.log or work / "log.json"
    log = json.loads(log_path.read_text()) if log_path.exists() else {}
    deadline = time.monotonic() + 60.0 * options.minutes if options.minutes else None

    def in_core(tree):
        return [str(path.relative_to(tree)) for folder in CORE
                for path in sorted((tree / "src" / folder).iterdir())
                if path.suffix in (".cpp", ".h")
                and (not options.files or any(name in str(path) for name in options.files))]

    source = options.source.resolve()
    order = sample(source, in_core(source), options.seed)
    if options.list:
        for mutant in order[:options.count]:
            print(f"{mutant.key} {mutant.path}:{mutant.line}:{mutant.column}\n    - {mutant.before}"
                  f"\n    + {mutant.after}")
        print(f"{len(order)} places")
        return 0
    if not options.report:
        programs = list(OTHERS)
        base = Base(source, work, options.jobs, programs)
        base.measure(programs, work)
        print("untouched: " + ", ".join(f"{p} {s:.1f} s" for p, s in base.seconds.items()),
              flush=True)
        lock = threading.Lock()
        queue = iter(order)
        judged = [0]

        def worker():
            while True:
                with lock:
                    if deadline and time.monotonic() > deadline:
                        return
                    while True:
                        if judged[0] >= options.count:
                            return
                        mutant = next(queue, None)
                        if mutant is None:
                            return
                        entry = log.get(mutant.key)
                        outcome = entry["outcome"] if entry else None
                        if outcome != "not compiled":
                            judged[0] += 1
                        if entry is None or options.again in ("all", outcome):
                            break
                started = time.monotonic()
                outcome, by = judge(
                    base, mutant, list(dict.fromkeys([mutant.folder, *programs])), work)
                with lock:
                    if outcome == "not compiled":
                        judged[0] -= 1
                    log[mutant.key] = {
                        "outcome": outcome, "by": by, "file": mutant.path, "line": mutant.line,
                        "before": mutant.before, "after": mutant.after,
                        "seconds": round(time.monotonic() - started, 1)}
                    partial = log_path.with_suffix(".partial")
                    partial.write_text(json.dumps(log, indent=1))
                    partial.replace(log_path)
                    print(f"{judged[0]:4d} {outcome:12s} {mutant.key} {mutant.path}:{mutant.line}:"
                          f"{mutant.column} {mutant.old} -> {mutant.new or 'nothing'}  {by}",
                          flush=True)

        with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
            for future in [pool.submit(worker) for _ in range(options.jobs)]:
                future.result()
    noticed, of = summary(log, order)
    return 0 if of and 100.0 * noticed >= options.threshold * of else 1


if __name__ == "__main__":
    sys.exit(main())
