#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Runs benchmark programs and prints what they say as one table; see scripts/bench.

    report.py time <build folder> <family>...      the table, with goals
    report.py count <build folder> <family>...     fails if a work takes more instructions than
                                                   instructions.txt allows
    report.py keep <build folder> <family>...      writes instructions.txt
    report.py size <build folder>                  the library's size, and what each module adds
"""
import glob
import json
import os
import re
import statistics
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
INSTRUCTIONS = os.path.join(HERE, "instructions.txt")
REPETITIONS = 15
DEARER = 1.05  # instructions beside those of instructions.txt; more than that fails

# What is to be reached: works (a regular expression), beside whom, and the most that our time may
# be of theirs. "At least 1.5 times the speed" is 1 / 1.5 of the time.
GOALS = [
    (r"an entry published", "spdlog", 0.75),
    (r"an entry written at once", "write()", 1.1),
    (r"an entry written at once|10 entries and a flush", "spdlog", 0.75),
    (r"a pass, 8 sub-loops", "floor", 1.25),
    (r"a pass, .* pending events", "floor", 1.25),
    (r"a pass, .* pending events", "floor, 3 readings", 1.25),
    (r"1000 due events", "libuv", 0.7),
    (r"(a byte answered|100000 timers|1000000 timers).*", "libuv", 1),
    (r"(a byte answered|100000 timers|1000000 timers).*", "lib(ev|event)", 1.25),
    (r"saving a list of .*", "TinyXML", 1.15),
    (r"saving durably a list of .*", "libplist", 1),
    (r"loading a list of .*", "TinyXML", 1.2),
    (r"base64.*", "OpenSSL", 1 / 1.3),
    (r"script text of 100 KB", "RapidJSON", 1),
    (r"JSON .*", "nlohmann", 1),
    (r"sorting .*", "strverscmp", 1 / 1.5),
    (r"reading a configuration of 50 shares", "TinyXML", 1.15),
    (r"(copying|moving|destroying) a tree of 10000 values.*", "nlohmann", 1),
    (r"enumerating interfaces", "getifaddrs", 1.3),
    (r"signing .*", "MD5 functions", 1.1),
]

# The same for a work by itself: nanoseconds and allocations, and for what is above another's time.
LIMITS = {
    "a message dropped": (2, 0),
    "a message dropped, with checkpoint": (10, 0),
}
ABOVE = {"starting a program": ("TinyXML, libcrypto", 100_000)}
NO_ALLOCATION = r"moving a tree.*"

# The stripped libraries, with less than how many bytes, and others' to compare with the first.
LIBRARIES = [("libnasutil.so", 198_656), ("libnasutil-service.so", 150_001)]
OTHERS = ["libuv.so.1", "libevent-2.1.so.*", "libPocoFoundation.so.*", "libglib-2.0.so.0"]


def program(build, family):
    return os.path.join(build, "bench", family + "_bench")


def print_table(rows):
    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
    for row in rows:
        cells = [row[0].ljust(widths[0]), row[1].ljust(widths[1])]
        cells += [cell.rjust(width) for cell, width in zip(row[2:-1], widths[2:-1])]
        print("  ".join(cells + [row[-1]]).rstrip())


def shown_time(ns):
    for unit, size in (("ms", 1e6), ("us", 1e3)):
        if ns >= size:
            return f"{ns / size:.3g} {unit}" if ns < 1000 * size else f"{ns / size:.0f} {unit}"
    return f"{ns:.3g} ns"


def measured(build, family):
    """{work: {who: (nanoseconds, allocations)}}, medians, in the order of the program."""
    with tempfile.NamedTemporaryFile(suffix=".json") as out:
        subprocess.run(
            [program(build, family), f"--benchmark_repetitions={REPETITIONS}",
             "--benchmark_enable_random_interleaving=true", "--benchmark_min_time=0.05",
             f"--benchmark_out={out.name}", "--benchmark_out_format=json"],
            check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        runs = json.load(out)["benchmarks"]
    cases = {}
    for run in runs:
        if run["run_type"] == "iteration":
            cases.setdefault(run["family_index"], []).append(run)
    works = {}
    for _, repeated in sorted(cases.items()):
        work, who = repeated[0]["run_name"].rsplit("/", 1)
        # What other processes and threads do takes real time, all else this one's own, whatever
        # else runs.
        clock = "real_time" if re.match(r"starting|a byte answered", work) else "cpu_time"
        time = statistics.median(run[clock] for run in repeated)
        used = statistics.median(run["allocations"] for run in repeated)
        works.setdefault(work, {})[who] = (time, used)
    return works


def verdict(reached):
    return "reached" if reached else "MISSED"


def goal_of(work, who, whole):
    """What is said of the case beside its figures."""
    time, used = whole["ours"]
    if who == "ours":
        if work in LIMITS:
            most, blocks = LIMITS[work]
            return f"<= {most} ns, {blocks} allocations: {verdict(time <= most and used <= blocks)}"
        if re.fullmatch(NO_ALLOCATION, work):
            return f"0 allocations: {verdict(round(used) == 0)}"
        return ""
    if work in ABOVE and ABOVE[work][0] == who:
        above = time - whole[who][0]
        return f"{shown_time(abs(above))} {'above' if above > 0 else 'below'}, " \
               f"<= {shown_time(ABOVE[work][1])}: {verdict(above <= ABOVE[work][1])}"
    for pattern, beside, most in GOALS:
        if re.fullmatch(beside, who) and re.fullmatch(pattern, work):
            return f"<= {most:.2f}: {verdict(time / whole[who][0] <= most)}"
    return ""


def time(build, families):
    rows = [("work", "who", "time", "ours is", "allocations", "goal")]
    for family in families:
        for work, whole in measured(build, family).items():
            for who, (ns, used) in whole.items():
                ratio = "" if who == "ours" else f"{whole['ours'][0] / ns:.2f}"
                rows.append((work if who == "ours" else "", who, shown_time(ns), ratio,
                             f"{used:.0f}", goal_of(work, who, whole)))
    print_table(rows)
    if "daemon" in families:
        print()
        idle(build)


def idle(build):
    """What loops that do something once a second ask of the system."""
    seconds = 3  # kSeconds
    rows = [("an idle second", "who", "system calls", "context switches", "")]
    for who in "ours", "libuv", "libev", "libevent":
        with tempfile.NamedTemporaryFile(mode="r") as calls:
            command = [os.path.join(build, "bench", "idle_daemon"), who]
            switches = subprocess.run(command, check=True, text=True, stdout=subprocess.PIPE).stdout
            subprocess.run(["strace", "-f", "-o", calls.name, *command], check=True,
                           stdout=subprocess.DEVNULL)
            between = calls.read().split("getppid()")[1]
        rows.append(("", who, f"{(between.count(chr(10)) - 1) / seconds:.1f}",
                     f"{int(switches) / seconds:.1f}", ""))
    print_table(rows)


def counted(build, families):
    """{work: instructions of one unit of ours}."""
    units = 10  # kCountedUnits
    counts = {}
    for family in families:
        # Valgrind does not follow the programs that are started, and runs one thread at a time.
        if family in ("startup", "daemon"):
            continue
        with tempfile.TemporaryDirectory() as folder:
            out = os.path.join(folder, "out")
            works = subprocess.run(
                ["valgrind", "--tool=callgrind", "--instr-atstart=no",
                 "--callgrind-out-file=" + out, program(build, family), "--count"],
                check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
            for part, work in enumerate(works.stdout.splitlines(), 1):
                with open(f"{out}.{part}", encoding="utf-8") as file:
                    total = re.search(r"^totals: (\d+)$", file.read(), re.MULTILINE)
                counts[work] = round(int(total.group(1)) / units)
    return counts


def kept():
    """{work: instructions} of the committed file."""
    with open(INSTRUCTIONS, encoding="utf-8") as file:
        rows = [line.rstrip("\n").split("\t") for line in file if not line.startswith("#")]
    return {work: int(count) for work, count in rows}


def count(build, families):
    before = kept()
    now = counted(build, families)
    dearer = [work for work in now if now[work] > DEARER * before.get(work, 0)]
    for work in dearer:
        old = f"{before[work]:,}" if work in before else "not known"
        print(f"{work}: {now[work]:,} instructions, before: {old}")
    if dearer:
        sys.exit("Some works are dearer by more than 5 %, or new; scripts/bench --keep accepts that.")
    print(f"None of {len(now)} works takes more than 5 % more instructions than before.")


def keep(build, families):
    counts = {**kept(), **counted(build, families)}
    with open(INSTRUCTIONS, "w", encoding="utf-8") as file:
        file.write("# Instructions of one unit of work, by scripts/bench --keep.\n")
        for work, number in counts.items():
            file.write(f"{work}\t{number}\n")


def stripped_size(path):
    with tempfile.NamedTemporaryFile() as out:
        subprocess.run(["strip", "--strip-unneeded", "-o", out.name, path], check=True)
        return os.path.getsize(out.name)


def library_folder():
    libc = subprocess.run(["cc", "-print-file-name=libc.so.6"], check=True, text=True,
                          stdout=subprocess.PIPE).stdout.strip()
    return os.path.dirname(os.path.realpath(libc))


def size(build):
    rows = [("stripped shared library", "who", "bytes", "ours is", "goal")]
    sizes = {name: stripped_size(os.path.join(build, name)) for name, _ in LIBRARIES}
    for name, limit in LIBRARIES:
        goal = f"< {limit:,}: {verdict(sizes[name] < limit)}"
        rows.append(("", name, f"{sizes[name]:,}", "", goal))
    ours = sizes[LIBRARIES[0][0]]
    folders = [library_folder(), "/usr" + library_folder(), "/usr/lib/x86_64-linux-gnu"]
    for pattern in OTHERS:
        found = [path for folder in folders for path in glob.glob(os.path.join(folder, pattern))]
        if not found:
            sys.exit(f"report.py: no {pattern}")
        other = stripped_size(os.path.realpath(sorted(found)[0]))
        rows.append(("", os.path.basename(found[0]), f"{other:,}", f"{ours / other:.2f}", ""))
    print_table(rows)
    print()
    rows = [("module", "", "code", "data", "")]
    objects = glob.glob(os.path.join(build, "CMakeFiles/nasutil*_objects.dir/**/*.o"), recursive=True)
    for path in sorted(objects, key=os.path.basename):
        sizes = subprocess.run(["size", path], check=True, text=True, stdout=subprocess.PIPE)
        text, data, bss = sizes.stdout.splitlines()[1].split()[:3]
        module = os.path.basename(path).replace(".cc.o", "")
        rows.append((module, "", f"{int(text):,}", f"{int(data) + int(bss):,}", ""))
    print_table(rows)


if __name__ == "__main__":
    command, folder, *asked = sys.argv[1:]
    if command == "time":
        time(folder, asked)
    elif command == "count":
        count(folder, asked)
    elif command == "keep":
        keep(folder, asked)
    else:
        size(folder)
