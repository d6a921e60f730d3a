#!/usr/bin/env python3
"""Fails, then kills, the program at every file-system call of three realistic
starts, and checks what it leaves behind: faults.py STATIC_PROGRAM

For each start, one run under strace lists the program's own file-system
calls. Then, for every occurrence of every such call:
  - a fault: the call fails with each plausible error number, and then fails
    for good, with every later call of its kind. The run must end as
    documented, write nothing on standard output and change nothing on the
    system partition or in the downloads; one more run without faults must
    leave the links as a run that never saw a fault, except for the
    differences that README.md lists (a reset local time link, an ICU link
    left as it was).
  - a crash: the process is killed as it makes the call. One more run must
    leave the links as an uninterrupted run does, except for the differences
    that README.md lists under "What a crash can leave behind", which are
    checked here to be exactly those.
The program must be statically linked, so that its first call is its own.
"""
import concurrent.futures
import re
import sys

from device import (DEFAULT_LOCALTIME, ICUTZ, LATEST, LOCALTIME, MARKER, RECORD,
                    TZ, ZONEINFO, Image, Program, data_set, ended_as_documented, f, in_use, l,
                    system)

OLD_RECORD = "2013a.1.0_2013b.1.0"
SYSTEM_VERSION = "2014b.1.0"
COMMON = (system() + data_set("2013a.1.0") + data_set("2014f.1.0") +
          data_set("2015a.1.0") + [f(RECORD, OLD_RECORD)])
SCENARIOS = {
    # An update in use, a newer download, a local time link in the old place.
    "switch to a newer download": COMMON + in_use("2014f.1.0") + [
        l(LATEST, TZ + "2015a.1.0"), f("/var/db/icu", "old"),
        l(LOCALTIME, "/usr/share/zoneinfo/Europe/Paris")],
    "steady on the newest download": COMMON + in_use("2015a.1.0") + [
        l(LATEST, TZ + "2015a.1.0"), l(LOCALTIME, ZONEINFO + "/Europe/Paris")],
    "refusal of data older than the system's": COMMON + in_use("2013a.1.0") + [
        l(LATEST, TZ + "2013a.1.0"), l(LOCALTIME, ZONEINFO + "/Europe/Paris")],
}

# The file-system calls the program makes, and the errors each may plausibly
# meet; a creating open may also meet a full or read-only file system.
ERRORS = {
    "openat": ("EIO", "EACCES"), "open": ("EIO", "EACCES"),
    "read": ("EIO",), "write": ("EIO", "ENOSPC"), "close": ("EIO",),
    "unlink": ("EIO", "EACCES", "EROFS"), "unlinkat": ("EIO", "EACCES", "EROFS"),
    "symlink": ("EIO", "EACCES", "EROFS", "ENOSPC"),
    "symlinkat": ("EIO", "EACCES", "EROFS", "ENOSPC"),
    "readlink": ("EIO", "EACCES"), "readlinkat": ("EIO", "EACCES"),
    "access": ("EIO", "EACCES"), "faccessat": ("EIO", "EACCES"),
    "faccessat2": ("EIO", "EACCES"), "fstat": ("EIO",), "newfstatat": ("EIO", "EACCES"),
    "statx": ("EIO", "EACCES"), "getdents64": ("EIO",), "fchdir": ("EIO", "EACCES"),
    "fcntl": ("EIO",), "rmdir": ("EIO", "EACCES", "EROFS"),
}
CREATING = ("EROFS", "ENOSPC")
CALL = re.compile(r"^(\w+)\(")


def program_start(lines):
    """The index of the launcher's execve of the program in a strace log."""
    return next(i for i, line in enumerate(lines)
                if line.startswith('execve("/usr/sbin/kavsetup"'))


def program_calls(log):
    """The file-system calls after the program's execve, each as (name, when,
    line): `when` counts that call's occurrences in the traced process, those
    of the launcher before execve included."""
    lines = log.splitlines()
    start = program_start(lines)
    seen, calls = {}, []
    for index, line in enumerate(lines):
        match = CALL.match(line)
        if not match:
            continue
        name = match.group(1)
        seen[name] = seen.get(name, 0) + 1
        if index > start and name in ERRORS:
            calls.append((name, seen[name], line))
    return calls


def errors_for(name, line):
    return ERRORS[name] + (CREATING if "O_CREAT" in line else ())


def injected_in_program(log, marker, once=True):
    """Whether `marker` shows in the log, in the program's part only, and only
    once unless the injection persists."""
    lines = log.splitlines()
    start = program_start(lines)
    hits = [i for i, line in enumerate(lines) if marker in line]
    return bool(hits) and (len(hits) == 1 or not once) and hits[0] > start


def leftover(path, state, expected, before):
    """Names the difference that a fault or crash may leave behind at `path`,
    which ends as `state` instead of `expected[path]` after one more run;
    `before` is what the interrupted run left. None when it may not."""
    if path == ICUTZ and before[ZONEINFO] == expected[ZONEINFO] and state == before[ICUTZ]:
        # The zoneinfo link was already settled: later runs never look at the
        # ICU link.
        return "ICU link left as it was"
    if (path == LOCALTIME and state == "-> " + DEFAULT_LOCALTIME
            and before[LOCALTIME] in ("absent", state)):
        # Reset on a failure, or found missing: either way the default zone.
        return "local time link reset to the default zone"
    if path == MARKER and state == "absent":
        return "clean-up marker lost"
    in_use = expected[ZONEINFO].rpartition("/zoneinfo")[0].rpartition("/")[2]
    if path == RECORD and state in ("file:", "file:" + OLD_RECORD):
        return "record " + ("left empty" if state == "file:" else "not written")
    if path == RECORD and state == "file:" + SYSTEM_VERSION + "_" + in_use:
        return "record names a switch from the system data"
    return None


def check(program, tree, expected, name, when, action):
    """Runs the program with `action` injected at the call, then once more
    plainly. Returns the problems and the differences left behind."""
    label = f"{name}#{when} {action}"
    with Image(tree, program) as image:
        digest = image.digest()
        status, out, err, log = image.run(["-e", f"inject={name}:{action}:when={when}"])
        problems, leftovers = [], []
        if action.startswith("signal"):
            if status != 128 + 9 or not injected_in_program(log, "+++ killed by SIGKILL"):
                problems.append(f"not killed in the program (status {status})")
        elif not injected_in_program(log, "(INJECTED)", once=not str(when).endswith("+")):
            problems.append("the fault did not land in the program")
        elif not ended_as_documented(status, out, err):
            problems.append(f"ended with status {status}, out {out!r}, err {err}")
        before, first_status = image.states(), status
        status, out, err, _ = image.run()
        if status != 0 or out:
            problems.append(f"the next run ended with status {status}, out {out!r}")
        if image.digest() != digest:
            problems.append("the system partition or a download changed")
        after = image.states()
        # A run that ends normally leaves its marker for the clean-up job, which
        # runs before the next start deletes it.
        if not action.startswith("signal") and before[MARKER] == expected[MARKER]:
            after[MARKER] = before[MARKER]
        for path, state in after.items():
            if state != expected[path]:
                kind = leftover(path, state, expected, before)
                if kind is None:
                    problems.append(f"{path} is {state!r}, not {expected[path]!r}")
                leftovers.append(kind)
        return [f"{label}: {problem}" for problem in problems], leftovers, first_status


def main():
    program = Program(sys.argv[1])
    failures, counts = [], {"fault": {}, "crash": {}}
    runs = {"fault": 0, "crash": 0}
    exited = 0
    with concurrent.futures.ThreadPoolExecutor(max_workers=2) as pool:
        for scenario, tree in SCENARIOS.items():
            with Image(tree, program) as image:
                status, out, err, log = image.run([])
                assert status == 0 and not out, (scenario, status, err)
                expected = image.states()
            jobs = []
            for name, when, line in program_calls(log):
                actions = [("fault", "error=" + error, when)
                           for error in errors_for(name, line)]
                # The storage fails for good: this call and every later one of
                # its kind.
                actions.append(("fault", "error=EIO", f"{when}+"))
                for kind, action, at in actions + [("crash", "signal=SIGKILL", when)]:
                    runs[kind] += 1
                    jobs.append((kind, pool.submit(check, program, tree, expected,
                                                   name, at, action)))
            for kind, job in jobs:
                problems, leftovers, status = job.result()
                exited += kind == "fault" and status == 1
                failures += [f"{scenario}: {problem}" for problem in problems]
                for leftover_kind in filter(None, leftovers):
                    counts[kind][leftover_kind] = counts[kind].get(leftover_kind, 0) + 1
    for failure in failures:
        print("FAIL", failure)
    print(f"calls faulted: {runs['fault']} ({exited} of them ended with status 1)")
    print(f"crash points tried: {runs['crash']}")
    for kind in ("fault", "crash"):
        for leftover_kind, count in sorted(counts[kind].items()):
            print(f"  left after a {kind} and one more run: {leftover_kind} ({count})")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
