# Copyright 2026 The libcorvane Authors
# SPDX-License-Identifier: Apache-2.0
"""Changes the library one line at a time and lists the changes that no test notices.

A mutant is one changed place of one line. The list is derived from the sources each time: relations
and boolean operators are turned, arithmetic is swapped, constants moved by one, conditions negated,
statements dropped. Text that cannot change behaviour (comments, includes, strings) is left alone, and
so are locks: a missing one is what ThreadSanitizer and the schedule search are for.

Each job works in a copy of the tree of its own, builds incrementally and runs the tests: first those of
the mutated folder, which are all that need linking for most mutants, then every one. A mutant is killed
when a test fails or hangs, invalid when it does not compile.
"""

import argparse
import concurrent.futures
import os
import queue
import random
import re
import shutil
import subprocess
import sys
import tempfile
import time
from typing import Iterator, List, NamedTuple

FOLDERS = ("base", "timer", "perf", "features", "gfr", "phr", "layers", "hooks")
TEST_TIMEOUT_S = 30  # no single test takes more than a few seconds
BUILD_TIMEOUT_S = 600

# What a token becomes. Longer tokens come first, so that "<=" is not taken for "<".
OPERATORS = (
    ("<=", ("<",)), (">=", (">",)), ("==", ("!=",)), ("!=", ("==",)), ("&&", ("||",)), ("||", ("&&",)),
    ("+=", ("-=",)), ("-=", ("+=",)), ("++", ("--",)), ("--", ("++",)),
    ("<", ("<=", ">=")), (">", (">=", "<=")), ("+", ("-",)), ("-", ("+",)), ("*", ("/",)), ("/", ("*",)),
    ("%", ("*",)),
)
# Operators that stand between two operands are surrounded by spaces in our layout; "&&" of a
# reference, "*" of a pointer and "<" of a template are not.
INFIX = re.compile(r" (%s) " % "|".join(re.escape(token) for token, _ in OPERATORS))
INCREMENT = re.compile(r"\+\+|--")
INTEGER = re.compile(r"(?<![\w.'])(\d[\d']*)(?![\w.'])")
FLOAT = re.compile(r"(?<![\w.'])(\d[\d']*\.\d+)(f?)(?![\w.'])")
BOOLEAN = re.compile(r"\b(true|false)\b")
CONDITION = re.compile(r"\b(if|while) \((?!const |auto )(.*)\)( \{| return.*;| continue;| break;)?$")
STATEMENT = re.compile(r"^\s+(?!return\b|delete\b|break\b|continue\b|using\b|throw\b|goto\b|static\b|case\b)"
                       r"[\w:>.\-\[\]*()]+(\(.*\)|\s[-+|&]?=\s.*|\+\+|--);$")
RETURN = re.compile(r"^(\s+(?:if \(.*\) )?)return;$")
IGNORED = re.compile(r"^\s*(#|//|\*|namespace\b|using\b|static_assert|class\b|struct\b|enum\b|template\b|friend\b)"
                     r"|Autolock|memory_order|GUARDED_BY|REQUIRES|EXCLUDES|= delete;|= default;")


class Mutant(NamedTuple):
    file: str
    line: int  # from 1
    old: str
    new: str
    what: str


def blank_strings(line: str) -> str:
    """The line with comments and literals masked, each by as many characters."""
    masked = re.sub(r'"(?:[^"\\]|\\.)*"|\'(?:[^\'\\]|\\.)\'', lambda m: "\x00" * len(m[0]), line)
    return re.sub(r"//.*$", lambda m: "\x00" * len(m[0]), masked)


def mutate_line(line: str) -> Iterator[tuple]:
    code = blank_strings(line)

    def replaced(begin: int, end: int, text: str) -> str:
        return line[:begin] + text + line[end:]

    for match in INFIX.finditer(code):
        if "template <" in code or match[1] in "<>" and re.search(r"\w<[^ ]*$", code[:match.start() + 1]):
            continue
        for new in dict(OPERATORS)[match[1]]:
            yield replaced(*match.span(1), new), f"{match[1]} to {new}"
    for match in INCREMENT.finditer(code):
        yield replaced(*match.span(), dict(OPERATORS)[match[0]][0]), "turned increment"
    for match in INTEGER.finditer(code):
        if code[match.end():match.end() + 1] == ">":  # a template's argument
            continue
        value = int(match[1].replace("'", ""))
        yield replaced(*match.span(), str(value + 1)), "constant plus 1"
        if value > 1:
            yield replaced(*match.span(), str(value - 1)), "constant less 1"
    for match in FLOAT.finditer(code):
        value = float(match[1].replace("'", ""))
        yield replaced(*match.span(), repr(value * 1.5 + 0.25) + match[2]), "constant half as large again"
    for match in BOOLEAN.finditer(code):
        yield replaced(*match.span(), "false" if match[1] == "true" else "true"), "turned boolean"
    match = CONDITION.search(code)
    if match and ";" not in match[2] and match[2].count("(") == match[2].count(")"):
        yield replaced(*match.span(2), f"!({line[match.start(2):match.end(2)]})"), "negated condition"
    if STATEMENT.match(code) and code.count("(") == code.count(")"):
        yield re.match(r"\s*", line)[0] + ";", "dropped statement"
    match = RETURN.match(code)
    if match:
        yield match[1] + ";", "dropped return"


def mutants_of(root: str, file: str) -> List[Mutant]:
    found = []
    with open(os.path.join(root, file), encoding="utf-8") as source:
        lines = source.read().split("\n")
    for number, line in enumerate(lines, 1):
        if IGNORED.search(line):
            continue
        for new, what in mutate_line(line):
            if new != line:
                found.append(Mutant(file, number, line, new, what))
    return found


def tracked_sources(root: str) -> List[str]:
    listed = subprocess.run(["git", "ls-files", "--", *FOLDERS], cwd=root, check=True,
                            capture_output=True, text=True).stdout.split()
    return [file for file in listed if file.endswith((".cpp", ".h"))]


class Tree:
    """A copy of the project with a build of its own."""

    def __init__(self, root: str, where: str, number: int):
        self.path = os.path.join(where, f"tree-{number}")
        os.makedirs(self.path)
        listed = subprocess.run(["git", "ls-files", "-z"], cwd=root, check=True, capture_output=True).stdout
        for file in listed.decode().split("\0"):
            if not file or not os.path.isfile(os.path.join(root, file)):
                continue
            target = os.path.join(self.path, file)
            os.makedirs(os.path.dirname(target), exist_ok=True)
            shutil.copy2(os.path.join(root, file), target)
        # Nothing of the optimiser is tested here, and every second of a build counts.
        self.run(["cmake", "--preset", "debug", "-DCMAKE_CXX_FLAGS=-O0 -g0",
                  "-DCMAKE_CXX_FLAGS_DEBUG=", "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld",
                  "-DCMAKE_SHARED_LINKER_FLAGS=-fuse-ld=lld"], BUILD_TIMEOUT_S, check=True)
        self.build = os.path.join(self.path, "build-debug")
        self.run(["cmake", "--build", self.build], 4 * BUILD_TIMEOUT_S, check=True)
        self.test(check=True)  # with a test that fails without any change there is nothing to measure

    def run(self, command: List[str], timeout: float, check: bool = False) -> bool:
        with tempfile.TemporaryFile() as output:
            process = subprocess.Popen(command, cwd=self.path, stdin=subprocess.DEVNULL, stdout=output,
                                       stderr=subprocess.STDOUT, start_new_session=True)
            try:
                code = process.wait(timeout)
            except subprocess.TimeoutExpired:
                os.killpg(process.pid, 9)
                process.wait()
                code = -1
            if check and code != 0:
                output.seek(0)
                sys.stderr.buffer.write(output.read()[-4000:])
                raise SystemExit(f"failed: {' '.join(command)}")
            return code == 0

    def compile(self, target: str = "all") -> bool:
        return self.run(["cmake", "--build", self.build, "--target", target], BUILD_TIMEOUT_S)

    def test(self, *selection: str, check: bool = False) -> bool:
        """Whether the selected tests pass, or all of them."""
        return self.run(["ctest", "--test-dir", self.build, "--stop-on-failure", "--no-tests=error",
                         "--timeout", str(TEST_TIMEOUT_S), *selection], 20 * TEST_TIMEOUT_S, check)

    def outcome(self, mutant: Mutant) -> str:
        path = os.path.join(self.path, mutant.file)
        with open(path, encoding="utf-8") as source:
            original = source.read()
        lines = original.split("\n")
        assert lines[mutant.line - 1] == mutant.old
        lines[mutant.line - 1] = mutant.new
        try:
            with open(path, "w", encoding="utf-8") as source:
                source.write("\n".join(lines))
            folder = mutant.file.split("/")[0]
            if not self.compile(f"tests/{folder}/all"):
                return "invalid"
            if not self.test("--label-regex", f"^{folder}$"):
                return "killed"
            if not self.compile():
                return "invalid"
            return "SURVIVED" if self.test() else "killed"
        finally:
            with open(path, "w", encoding="utf-8") as source:
                source.write(original)


def main() -> int:
    parser = argparse.ArgumentParser(prog="tools/mutate.sh", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("files", nargs="*", help="only these sources or folders")
    parser.add_argument("--sample", type=int, help="try so many mutants, chosen by the seed; default all")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--jobs", type=int, default=len(os.sched_getaffinity(0)))
    parser.add_argument("--list", action="store_true", help="only list the mutants")
    options = parser.parse_args()

    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    sources = [file for file in tracked_sources(root)
               if not options.files or any(file == f or file.startswith(f.rstrip("/") + "/")
                                           for f in options.files)]
    mutants = [mutant for file in sources for mutant in mutants_of(root, file)]
    total = len(mutants)
    if options.sample is not None and options.sample < total:
        mutants = random.Random(options.seed).sample(mutants, options.sample)
    print(f"{total} mutants of {len(sources)} files, {len(mutants)} of them tried, seed {options.seed}",
          flush=True)
    if options.list:
        for mutant in mutants:
            print(f"{mutant.file}:{mutant.line}: {mutant.what}: {mutant.new.strip()}")
        return 0

    counts = {"killed": 0, "SURVIVED": 0, "invalid": 0}
    with tempfile.TemporaryDirectory(prefix="corvane-mutate-") as where, \
            concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        trees: "queue.Queue[Tree]" = queue.Queue()
        for tree in pool.map(lambda number: Tree(root, where, number), range(options.jobs)):
            trees.put(tree)

        def attempt(mutant: Mutant):
            tree = trees.get()
            try:
                return mutant, tree.outcome(mutant)
            finally:
                trees.put(tree)

        begin = time.monotonic()
        running = [pool.submit(attempt, mutant) for mutant in mutants]
        for done, future in enumerate(concurrent.futures.as_completed(running), 1):
            mutant, outcome = future.result()
            counts[outcome] += 1
            if outcome == "SURVIVED":
                print(f"SURVIVED {mutant.file}:{mutant.line}: {mutant.what}\n"
                      f"  - {mutant.old.strip()}\n  + {mutant.new.strip()}", flush=True)
            if done % 20 == 0:
                print(f"  {done} of {len(mutants)} after {time.monotonic() - begin:.0f} s", flush=True)
    valid = counts["killed"] + counts["SURVIVED"]
    share = 100.0 * counts["killed"] / valid if valid else 0.0
    print(f"{counts['killed']} of {valid} killed ({share:.1f} %), {counts['SURVIVED']} survived, "
          f"{counts['invalid']} did not compile")
    return 0


if __name__ == "__main__":
    sys.exit(main())
