#!/usr/bin/python3
"""Mutation check of the daemon's folders. See docs/reliability.md, and scripts/mutate --help.

The tree is copied, and the copy's sources are rewritten so that all trial faults of a folder are
compiled in at once (mutant.h). One run of every test program tells which of them it comes past;
then each fault is chosen in turn by the environment and those test programs of its folder run that
come past it, two at a time, each in a process, network, and System V IPC namespace and a /tmp of
its own. What can only be changed before the compiler sees it (tables, initialisers of constants)
is sampled, one build each.
"""
import argparse, collections, concurrent.futures, ctypes, fcntl, hashlib, json, math, os, re
import resource, shutil, signal, socket, struct, subprocess, sys, time
import clang.cindex as cindex
from finder import Finder, Source

FOLDERS = ["transfer", "core", "rcm", "variables", "reporters", "local", "platform/common"]
# They kill processes at random instants or measure real time.
LEFT_OUT = {"nvram_crash_test", "loop_realtime_test"}
HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
EQUIVALENT = os.path.join(HERE, "equivalent.txt")
WORK = f"/var/tmp/rcmd-mutate.{os.getuid()}"  # one path for all runs, so that ccache knows it
TREE, BUILD = WORK + "/tree", WORK + "/build"
PLACES = ["/tmp", "/dev/shm"]
AT_ONCE = 2
MEMORY_BYTES = 4_000_000 * 1024

# Building ---------------------------------------------------------------------------------------

def run(*command, **options):
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          **options)


def copy_tree():
    shutil.rmtree(WORK, ignore_errors=True)
    os.makedirs(TREE)
    names = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
                           cwd=ROOT, stdout=subprocess.PIPE, check=True).stdout
    for name in filter(None, names.decode().split("\0")):
        source, target = os.path.join(ROOT, name), os.path.join(TREE, name)
        if os.path.exists(source):
            os.makedirs(os.path.dirname(target), exist_ok=True)
            shutil.copy2(source, target)


def configure():
    environment = {"CCACHE_BASEDIR": WORK, "CCACHE_NOHASHDIR": "1", "CCACHE_SLOPPINESS":
                   "pch_defines,time_macros,include_file_mtime,include_file_ctime"}
    launcher = ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"] if shutil.which("ccache") else []
    os.environ.update(environment)
    result = run("cmake", "-S", TREE, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=None",
                 "-DCMAKE_CXX_FLAGS=-O1 -g1 -w -Wno-narrowing -Wno-error",
                 "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON", *launcher)
    if result.returncode != 0:
        sys.exit(result.stdout)


def tests_of(folder):
    path = os.path.join(TREE, "tests", folder.split("/")[0], "CMakeLists.txt")
    with open(path) as file:
        names = re.findall(r"add_unit_test\((\w+)", file.read())
    return [name for name in names if name not in LEFT_OUT]


def build(targets):
    return run("nice", "-n", "5", "ninja", "-C", BUILD, "-k", "0", "-j", str(AT_ONCE), *targets)


def build_all(sources, targets):
    """Leaves out what does not compile, line by line, until the rest does."""
    for source in sources.values():
        source.write()
    for _ in range(12):
        result = build(targets)
        if result.returncode == 0:
            return
        complaints = [line for line in result.stdout.splitlines()
                      if re.search(r"error|required from", line)]
        places = set(re.findall(r"tree/([-\w/]+\.(?:cpp|h)):(\d+)", "\n".join(complaints)))
        touched = set()
        for path, line in places:
            source = sources.get(path)
            for mutant in source.mutants if source else []:
                if (source.line(mutant.start) <= int(line) <= source.line(mutant.end)
                        and mutant.state != "dropped"):
                    mutant.state = "dropped"
                    touched.add(source)
        if not touched:
            sys.exit("does not build:\n" + result.stdout[-4000:])
        for source in touched:
            source.write()
    sys.exit("does not build, whatever is left out")


# Running ----------------------------------------------------------------------------------------

def enter_rooms_of_its_own():
    """A worker's own network with a loopback, and its own places for temporary files."""
    libc = ctypes.CDLL(None, use_errno=True)
    new_mounts, new_network = 0x00020000, 0x40000000
    recursive, private = 0x4000, 1 << 18
    if (libc.unshare(new_mounts | new_network) != 0
            or libc.mount(b"none", b"/", None, recursive | private, None) != 0
            or any(libc.mount(b"tmpfs", place.encode(), b"tmpfs", 0, b"size=512m") != 0
                   for place in PLACES)):
        raise OSError(ctypes.get_errno(), "no namespace of its own")
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as any_socket:
        set_flags, up_and_running = 0x8914, 0x41
        fcntl.ioctl(any_socket, set_flags, struct.pack("16sh22x", b"lo", up_and_running))
    os.nice(10)


class Cost:
    """What a run of a test takes, and from that, what it may take with a fault. A fault that runs
    in circles shows in processor time, however busy the machine is; one that waits, in real
    time."""

    def __init__(self, real_s, processor_s):
        self.real_s, self.processor_s = real_s, processor_s

    def least(self, other):
        return Cost(min(self.real_s, other.real_s), min(self.processor_s, other.processor_s))

    def limits(self):
        return max(20, 20 * self.real_s), max(3, math.ceil(5 * self.processor_s))


def run_test(name, number, cost, reached=None):
    """@return whether it passed, and its cost"""
    real_limit_s, processor_limit_s = cost.limits()
    environment = {**os.environ, "RCMD_MUTANT": str(number)}
    if reached:
        environment["RCMD_MUTANTS_REACHED"] = reached
    command = ["unshare", "--ipc", "--pid", "--fork", "--kill-child", "--mount-proc",
               "sh", "-c", '"$0" "$@"; exit $?', f"{BUILD}/tests/{name}", "--gtest_brief=1",
               "--gtest_fail_fast"]

    def limit():
        resource.setrlimit(resource.RLIMIT_AS, (MEMORY_BYTES,) * 2)
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
        resource.setrlimit(resource.RLIMIT_CPU, (processor_limit_s,) * 2)

    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    began = time.monotonic()
    try:
        passed = subprocess.run(command, env=environment, timeout=real_limit_s, cwd="/tmp",
                                stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                stderr=subprocess.DEVNULL, preexec_fn=limit).returncode == 0
    except subprocess.TimeoutExpired:
        passed = False
    real_s = time.monotonic() - began
    behind = resource.getrusage(resource.RUSAGE_CHILDREN)
    for path in [os.path.join(place, left) for place in PLACES for left in os.listdir(place)]:
        shutil.rmtree(path, ignore_errors=True) if os.path.isdir(path) else os.unlink(path)
    processor_s = behind.ru_utime + behind.ru_stime - before.ru_utime - before.ru_stime
    return passed, Cost(real_s, processor_s)


def first_that_fails(tests, number, costs):
    for name in tests:
        if not run_test(name, number, costs[name])[0]:
            return name
    return None


def measure(pool, tests, count):
    """@return each test's cost, and the numbers of the faults that it comes past"""
    costs, past = {}, {}
    for _ in range(3):
        jobs = {}
        for name in tests:
            path = f"{WORK}/reached.{name}"
            with open(path, "wb") as file:
                file.truncate(count + 1)
            jobs[name] = pool.submit(run_test, name, 0, Cost(15, 60), path)
        for name, job in jobs.items():
            passed, cost = job.result()
            costs[name] = cost.least(costs.get(name, cost))
            if not passed:
                sys.exit(f"{name} does not always pass without a fault")
            with open(f"{WORK}/reached.{name}", "rb") as file:
                past.setdefault(name, set()).update(i for i, byte in enumerate(file.read()) if byte)
    return costs, past


# Telling ----------------------------------------------------------------------------------------

def name_all(mutants, sources):
    """A key that outlives edits elsewhere: file, function, line, change, and a count of equals."""
    counts = collections.Counter()
    for mutant in sorted(mutants, key=lambda m: (m.file, m.start, -m.end)):
        text = sources[mutant.file].line_text(mutant.start)
        key = f"{mutant.file} | {mutant.function} | {text} | {mutant.change()}"
        counts[key] += 1
        mutant.key = key if counts[key] == 1 else f"{key} #{counts[key]}"


def read_equivalent():
    entries = {}
    if os.path.exists(EQUIVALENT):
        with open(EQUIVALENT, encoding="latin-1") as file:
            for line in file:
                if line.startswith("  "):
                    entries[line.strip()] = True
    return entries


def show(mutant, sources):
    line = sources[mutant.file].line(mutant.start)
    print(f"{mutant.file}:{line}: {mutant.state}: {mutant.key}", flush=True)


def tell(folders, mutants, sources, equivalent, whole):
    by_folder = collections.defaultdict(list)
    for mutant in mutants:
        by_folder[next(f for f in folders if mutant.file.startswith(f + "/"))].append(mutant)
    for mutant in mutants:
        if mutant.state in ("survived", "unreached"):
            if mutant.key in equivalent:
                mutant.state = "equivalent"
                continue
            if mutant.state == "unreached":
                show(mutant, sources)
    states = {m.key: m.state for m in mutants}
    for key in equivalent:
        folder = next((f for f in folders if key.startswith(f + "/")), None)
        if folder and whole and states.get(key) != "equivalent":
            print(f"equivalent.txt: {states.get(key, 'no such change')}: {key}")
    print(f"\n{'folder':16} {'made':>6} {'killed':>7} {'equivalent':>11} {'survived':>9} "
          f"{'unreached':>10} {'killed of the others':>21}")
    for folder in folders:
        counts = collections.Counter(m.state for m in by_folder[folder])
        made = sum(counts[s] for s in ("killed", "equivalent", "survived", "unreached"))
        others = made - counts["equivalent"]
        share = f"{100 * counts['killed'] / others:.1f} %" if others else "-"
        print(f"{folder:16} {made:6} {counts['killed']:7} {counts['equivalent']:11} "
              f"{counts['survived']:9} {counts['unreached']:10} {share:>21}")
        for state, text in (("dropped", "do not compile"), ("compiler", "only the compiler runs"),
                            ("unsampled", "need a build each and were not in the sample")):
            if counts[state]:
                print(f"{'':16} {counts[state]:6} {text}")


def main():
    parser = argparse.ArgumentParser(prog="scripts/mutate", description=__doc__.split("\n")[0])
    parser.add_argument("folders", nargs="*", metavar="FOLDER", help=" ".join(FOLDERS))
    parser.add_argument("--alone", type=int, default=20, metavar="N",
                        help="build so many changed constants and table rows per folder (20)")
    parser.add_argument("--list", action="store_true", help="only tell what can be changed")
    parser.add_argument("--only", metavar="REGEX", help="only what matches, of FILE:LINE: KEY")
    arguments = parser.parse_args()
    folders = arguments.folders or FOLDERS
    if not set(folders) <= set(FOLDERS):
        parser.error("the folders are " + " ".join(FOLDERS))
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    lock = open(f"/var/tmp/rcmd-mutate.{os.getuid()}.lock", "w")
    fcntl.flock(lock, fcntl.LOCK_EX)
    try:
        check(folders, arguments)
    finally:
        os.environ.get("KEEP") or shutil.rmtree(WORK, ignore_errors=True)


def check(folders, arguments):
    began = time.monotonic()
    copy_tree()
    configure()
    cindex.Config.set_library_file("libclang-14.so.1")
    with open(BUILD + "/compile_commands.json") as file:
        commands = {os.path.relpath(c["file"], TREE): c for c in json.load(file)}
    sources = {}
    for folder in folders:
        for name in sorted(os.listdir(os.path.join(TREE, folder))):
            if name.endswith((".cpp", ".h")):
                sources[f"{folder}/{name}"] = Source(TREE, f"{folder}/{name}")
    finder = Finder(sources)
    for path in sources:
        if path in commands:
            finder.read(cindex.Index.create(), commands[path])
    equivalent, mutants = read_equivalent(), []
    for source in sources.values():
        mutants += source.mutants
    for number, mutant in enumerate(mutants, 1):
        mutant.number = number
    alone = [m for key, m in finder.constants if key is None or key not in finder.used]
    name_all(mutants + alone, sources)
    chosen = lambda m: not arguments.only or re.search(
        arguments.only, f"{m.file}:{sources[m.file].line(m.start)}: {m.key}")
    if arguments.list:
        for mutant in filter(chosen, mutants + alone):
            print(f"{mutant.file}:{sources[mutant.file].line(mutant.start)}: {mutant.key}")
        return
    print(f"{len(mutants)} changes, {len(alone)} that need a build each; building", flush=True)

    tests = {folder: tests_of(folder) for folder in folders}
    every_test = sorted({t for names in tests.values() for t in names})
    build_all(sources, every_test)
    print(f"built after {time.monotonic() - began:.0f} s", flush=True)
    pool = concurrent.futures.ProcessPoolExecutor(AT_ONCE, initializer=enter_rooms_of_its_own)
    try:
        costs, past = measure(pool, every_test, len(mutants))
        jobs = {}
        for mutant in mutants:
            folder = next(f for f in folders if mutant.file.startswith(f + "/"))
            who = sorted((t for t in tests[folder] if mutant.number in past[t]), 
                         key=lambda t: costs[t].real_s)
            if mutant.state == "dropped":
                continue
            if not who:
                mutant.state = "compiler" if mutant.constexpr else "unreached"
            elif chosen(mutant):
                jobs[pool.submit(first_that_fails, who, mutant.number, costs)] = mutant
        for done, job in enumerate(concurrent.futures.as_completed(jobs), 1):
            jobs[job].state = "killed" if job.result() else "survived"
            if jobs[job].state == "survived" and jobs[job].key not in equivalent:
                show(jobs[job], sources)
            if done % 250 == 0:
                print(f"{done} of {len(jobs)} after {time.monotonic() - began:.0f} s", flush=True)
        check_alone(pool, alone, sources, tests, folders, arguments.alone, chosen, costs, equivalent)
    finally:
        pool.shutdown(cancel_futures=True)
    shown = [m for m in mutants + alone if chosen(m)]
    tell(folders, shown, sources, equivalent, not arguments.only)
    print(f"\n{time.monotonic() - began:.0f} s")


def check_alone(pool, alone, sources, tests, folders, limit, chosen, costs, equivalent):
    for folder in folders:
        here = [m for m in alone if m.file.startswith(folder + "/")]
        here.sort(key=lambda m: hashlib.sha256(m.key.encode()).hexdigest())
        for i, mutant in enumerate(here):
            if i >= limit or not chosen(mutant):
                mutant.state = "unsampled"
                continue
            sources[mutant.file].write(mutant)
            result = build(tests[folder])
            if result.returncode != 0:
                mutant.state = "killed" if "static assertion" in result.stdout else "dropped"
            else:
                jobs = [pool.submit(first_that_fails, [t], 0, costs) for t in tests[folder]]
                mutant.state = "killed" if any([j.result() for j in jobs]) else "survived"
                if mutant.state == "survived" and mutant.key not in equivalent:
                    show(mutant, sources)
            sources[mutant.file].write()


if __name__ == "__main__":
    main()
