#!/usr/bin/env python3
"""Kills, then fails, the program at every file-system call of three starts
from the device rows, and checks the start after each: faults.py
STATIC_PROGRAM ROWS. README.md ("Tests") says what it proves."""
import concurrent.futures
import os
import re
import sys
import tempfile

from rows import Image, image_builder, read_rows

STARTS = ("a switch between downloads that corrects the local time link",
          "a download in use older than the system's is refused",
          "a local time link into the older location is corrected")
CALLS = ("openat", "read", "write", "close", "unlink", "rmdir", "symlink", "readlink",
         "access", "fstat", "newfstatat", "getdents64", "fchdir", "fcntl")
ERROR = dict.fromkeys(CALLS, "EIO") | {"openat": "EACCES", "unlink": "EROFS",
                                       "rmdir": "EROFS", "symlink": "ENOSPC"}
TZ = image_builder.TZ
ZONEINFO, ICUTZ, LOCALTIME = TZ + "zoneinfo", "/var/db/icutz", TZ + "localtime"
MARKER, RECORD = TZ + "needs_cleanup", TZ + "TZVersionDiffRecord"
DEFAULT_LOCALTIME = "-> " + ZONEINFO + "/America/Los_Angeles"
PROGRAM_START = 'execve("/usr/sbin/kavsetup"'
EXITING = re.compile(rb"kavsetup: Unable to (prepare time zone directories|"
                     rb"reset to system partition|reset localtime link); exiting: ")


def program_calls(log):
    """(call, n) for each file-system call the program makes: its nth
    occurrence in the trace, whose first calls are the runner's."""
    seen, found, started = {}, [], False
    for line in log.splitlines():
        started = started or line.startswith(PROGRAM_START)
        name = (re.match(r"\w+", line) or [""])[0]
        seen[name] = seen.get(name, 0) + 1
        if started and name in CALLS:
            found.append((name, seen[name]))
    return found


def traced(image, program, row, injection):
    with tempfile.NamedTemporaryFile("r") as log:
        status, out, err = image.run(program, wrapper=["strace", "-o", log.name, *injection], umask=row.umask)
        return status, out, err, log.read()


def allowed(path, final, expected, interrupted, old_record):
    """Whether README.md lists this difference a fault or crash may leave."""
    in_use = expected.get(ZONEINFO, "").split("/")[-2]
    return {ICUTZ: interrupted.get(ZONEINFO) == expected.get(ZONEINFO)
                   and final.get(ICUTZ) == interrupted.get(ICUTZ),
            LOCALTIME: final.get(path) == DEFAULT_LOCALTIME
                       and interrupted.get(path) in (None, DEFAULT_LOCALTIME),
            MARKER: path not in final,
            RECORD: final.get(path) in ("644 b''", old_record,
                                        f"644 b'2014b.1.0_{in_use}'")}.get(path, False)


def check(program, tree, row, expected, old_record, call, n, action):
    """The problems of one run faulted or killed at the nth `call`, and of
    the start after it."""
    problems = []
    with Image(tree) as image:
        status, out, err, log = traced(image, program, row,
                                       ["-e", f"inject={call}:{action}:when={n}"])
        landed = log.split(PROGRAM_START)[-1]
        if "(INJECTED)" not in landed and "killed by SIGKILL" not in landed:
            problems.append("nothing injected in the program")
        elif action.startswith("error") and (out or status not in (0, 1) or status == 1
                                             and not EXITING.match(err[-1])):
            problems.append(f"ended with status {status}, out {out!r}, err {err}")
        interrupted = image.state()
        status, out, _ = image.run(program, umask=row.umask)
        if status or out:
            problems.append(f"the next start ended with status {status}, out {out!r}")
        final = image.state()
        problems += [f"{path} is {final.get(path)}, not {expected.get(path)}"
                     for path in set(final) | set(expected)
                     if final.get(path) != expected.get(path) and not
                     allowed(path, final, expected, interrupted, old_record)]
    return [f"{call} #{n} {action}: {problem}" for problem in problems]


def main(program, rows_path):
    device, rows = read_rows(rows_path)
    failures, tried = [], 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for row in (r for r in rows if r.name.startswith(STARTS)):
            with Image(device + row.tree) as image:
                old_record = image.state().get(RECORD)
                status, _, _, log = traced(image, program, row, [])
                expected = image.state()
            calls = program_calls(log)
            tried += len(calls)
            jobs = [pool.submit(check, program, device + row.tree, row, expected, old_record,
                                *c, action)
                    for c in calls for action in (f"error={ERROR[c[0]]}", "signal=SIGKILL")]
            failures += [f"{row.name}: {p}" for job in jobs for p in job.result()]
    print(*[f"FAIL {failure}" for failure in failures], sep="\n")
    print(f"{tried} calls of {len(STARTS)} starts each failed once and killed once; "
          f"{len(failures)} problems")
    return 1 if failures or tried == 0 else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
