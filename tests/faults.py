#!/usr/bin/env python3
"""Fails the programs at every file-system call of the first run of some
rows, and kills them at every call that changes the file system, and checks
what follows: faults.py KAVSETUP KAVDATA ROWS. KAVSETUP and KAVDATA are
static builds. README.md ("Tests") says what it proves."""
import concurrent.futures
import fcntl
import os
import re
import subprocess
import sys
import tempfile
import time

from rows import Image, image_builder, read_rows

STARTS = ("a switch between downloads that corrects the local time link",
          "a download in use older than the system's is refused",
          "a local time link into the older location is corrected",
          "stage copies a data set whole", "after an interrupted switch, stage replaces",
          "clean deletes what no link names", "after an interrupted switch, clean keeps")
CALLS = ("openat", "read", "write", "close", "unlink", "rmdir", "mkdir", "symlink", "readlink",
         "rename", "renameat2", "access", "fstat", "newfstatat", "getdents64", "fchdir",
         "fcntl", "fsync", "fchmod", "fchown", "fchownat", "flock", "statfs")
# One plausible error each; a failed exchange of two names makes stage take
# its way for file systems that cannot swap them.
ERROR = dict.fromkeys(CALLS, "EIO") | {"openat": "EACCES", "unlink": "EROFS", "rmdir": "EROFS",
                                       "symlink": "ENOSPC", "write": "ENOSPC", "mkdir": "ENOSPC",
                                       "renameat2": "EINVAL", "flock": "ENOLCK"}
TZ = image_builder.TZ
ZONEINFO, ICUTZ, LOCALTIME = TZ + "zoneinfo", "/var/db/icutz", TZ + "localtime"
LATEST, MARKER, RECORD = TZ + "tz_latest", TZ + "needs_cleanup", TZ + "TZVersionDiffRecord"
LOCK = TZ + "kavdata.lock"
DEFAULT_LOCALTIME = "-> " + ZONEINFO + "/America/Los_Angeles"
EXITING = re.compile(rb"kavsetup: Unable to (prepare time zone directories|"
                     rb"reset to system partition|reset localtime link); exiting: ")
# A kill before any other call leaves the files as one before the next of these.
CHANGES = re.compile(r"(write|unlink|rmdir|mkdir|symlink|rename|renameat2|fchmod|fchown|fchownat)\(|"
                     r"openat\(.*O_(CREAT|TRUNC)")
LEFTOVER = re.compile(re.escape(TZ) + r"(tz/\.staging-[^/]*|\.tz_latest\.staging)$")


def program_calls(log, name):
    """(call, n, action) for each fault to inject: the nth occurrence of a
    file-system call the program makes in the trace, whose first calls are the
    runner's, failed, and killed before the first and every change."""
    seen, found, started = {}, [], False
    for line in log.splitlines():
        started = started or line.startswith(f'execve("/usr/sbin/{name}"')
        call = (re.match(r"\w+", line) or [""])[0]
        seen[call] = seen.get(call, 0) + 1
        if started and call in CALLS:
            found.append((call, seen[call], f"error={ERROR[call]}"))
            if len(found) == 1 or CHANGES.match(line):
                found.append((call, seen[call], "signal=SIGKILL"))
    return found


def traced(image, program, run, umask, injection):
    with tempfile.NamedTemporaryFile("r") as log:
        status, out, err = image.run(program, run.argv[1:], ["strace", "-o", log.name, *injection],
                                     umask)
        return status, out, err, log.read()


def allowed(path, final, expected, interrupted, old_record):
    """Whether README.md lists this difference a fault or crash of a start
    may leave."""
    in_use = expected.get(ZONEINFO, "").split("/")[-2]
    return {ICUTZ: interrupted.get(ZONEINFO) == expected.get(ZONEINFO)
                   and final.get(ICUTZ) == interrupted.get(ICUTZ),
            LOCALTIME: final.get(path) == DEFAULT_LOCALTIME
                       and interrupted.get(path) in (None, DEFAULT_LOCALTIME),
            MARKER: path not in final,
            RECORD: final.get(path) in ("644 b''", old_record,
                                        f"644 b'2014b.1.0_{in_use}'")}.get(path, False)


def data_set(state, link):
    """The files of the data set that `link` names, by their paths in it."""
    target = state.get(link, "")[3:]
    if not target.startswith(TZ + "tz/"):
        return None
    root = TZ + "tz/" + target[len(TZ) + 3:].split("/")[0]
    return {path[len(root):]: held for path, held in state.items()
            if path == root or path.startswith(root + "/")}


class Start:
    """A row's first run, done whole: the states before and after it. After
    a kavdata command, running it again changes nothing."""

    def __init__(self, programs, device, row):
        self.row, self.tree, self.run = row, device + row.tree, row.runs[0]
        self.program = programs[self.run.argv[0]]
        self.kavdata = self.run.argv[0] == "kavdata"
        with Image(self.tree) as image:
            self.before = image.state()
            _, _, _, log = traced(image, self.program, self.run, row.umask, [])
            self.faults = program_calls(log, self.run.argv[0])
            self.after = image.state()
            image.run(self.program, self.run.argv[1:], umask=row.umask)
            self.settled = not self.kavdata or image.state() == self.after

    def known(self, state):
        """The state that a run from `state` leaves, when one was seen: the
        programs are deterministic, and the lock file's mere presence changes
        nothing."""
        unlocked = {path: held for path, held in state.items() if path != LOCK}
        if unlocked == {path: held for path, held in self.before.items() if path != LOCK}:
            return self.after
        return self.after if self.kavdata and state == self.after else None

    def kept(self, state, problems):
        """The data sets that the links named before must stay whole; tz_latest
        may name the one it named before or, after a stage, its new one."""
        for link in (ZONEINFO, ICUTZ, LATEST):
            was, now = data_set(self.before, link), data_set(state, link)
            if was is not None and now not in (was, data_set(self.after, link)):
                problems.append(f"the data set that {link} named is no longer whole")

    def ended(self, action, status, out, err):
        """What is wrong with how a faulted run ended."""
        if not action.startswith("error") or status == 0:
            return []
        if status == 1 and err and (err[-1].startswith(b"kavdata: ") if self.kavdata else
                                    EXITING.match(err[-1])):
            return []
        return [f"ended with status {status}, out {out!r}, err {err}"]


def check(start, call, n, action):
    """The problems of one run faulted or killed at the nth `call`, and of
    the run after it. A kavdata command run again must leave exactly what an
    uninterrupted run leaves, so that the next start of kavsetup does too."""
    problems, umask = [], start.row.umask
    with Image(start.tree) as image:
        # Only the faulted call stops the program when it is failed; strace
        # 6.1 does not deliver a signal so, which kills must wait for.
        filtered = ["-f", "--seccomp-bpf"] if action.startswith("error") else []
        status, out, err, log = traced(image, start.program, start.run, umask, [
            *filtered, "-e", f"trace={call}", "-e", f"inject={call}:{action}:when={n}"])
        if "(INJECTED)" not in log and "killed by SIGKILL" not in log:
            problems.append("nothing injected in the program")
        problems += start.ended(action, status, out, err)
        interrupted = image.state()
        if start.kavdata:
            start.kept(interrupted, problems)
            if status == 1 and start.run.argv[1] == "stage":
                # Only a leftover that cannot be deleted, and says so.
                problems += [f"{path} is left behind" for path in interrupted
                             if LEFTOVER.match(path) and not any(
                                 f"left {path} behind".encode() in line for line in err)]
        final = start.known(interrupted)
        if final is None:
            status, out, _ = image.run(start.program, start.run.argv[1:], umask=umask)
            if status:
                problems.append(f"run again, it ended with status {status}")
            final = image.state()
        problems += [f"{path} is {final.get(path)}, not {start.after.get(path)}"
                     for path in set(final) | set(start.after)
                     if final.get(path) != start.after.get(path) and (start.kavdata or not
                     allowed(path, final, start.after, interrupted, start.before.get(RECORD)))]
    return [f"{call} #{n} {action}: {problem}" for problem in problems]


def serialized(kavdata, device, rows):
    """A clean started while a stage holds the lock waits, says who holds
    it, and ends as a clean after that stage does."""
    row = next(r for r in rows if r.name.startswith(STARTS[3]))
    stage = row.runs[0].argv[1:]
    with Image(device + row.tree) as image:
        image.run(kavdata, stage)
        image.run(kavdata, ["clean"])
        wanted = image.state()
    with Image(device + row.tree) as image:
        slow = subprocess.Popen(image.command(kavdata, stage, ["strace", "-o", "/dev/null", "-e",
                                                               "inject=rename:delay_enter=1s"]),
                                stdout=subprocess.DEVNULL)
        for _ in range(100):  # until the stage holds the lock
            time.sleep(0.1)
            if os.path.exists(image.root + LOCK):
                with open(image.root + LOCK) as lock:
                    try:
                        fcntl.flock(lock, fcntl.LOCK_SH | fcntl.LOCK_NB)
                    except BlockingIOError:
                        break
        status, _, err = image.run(kavdata, ["clean"])
        slow.wait(60)
        said = err and re.fullmatch(rb"kavdata: waiting for process \d+ \(/usr/sbin/kavdata stage "
                                    rb"[^)]*\), which holds " + LOCK.encode(), err[0])
        if status or slow.returncode or not said or image.state() != wanted:
            return [f"a clean beside a stage: status {status}, {slow.returncode}, said {err}"]
    return []


def main(kavsetup, kavdata, rows_path):
    device, rows = read_rows(rows_path)
    programs = {"kavsetup": kavsetup, "kavdata": kavdata}
    failures, tried = [], {}
    with concurrent.futures.ThreadPoolExecutor(2 * os.cpu_count()) as pool:
        for row in (r for r in rows if r.name.startswith(STARTS)):
            start = Start(programs, device, row)
            if not start.settled:
                failures.append(f"{row.name}: run again after a whole run, it changed the files")
            name = " ".join(start.run.argv[:2])
            kills = sum(action == "signal=SIGKILL" for *_, action in start.faults)
            failed, killed = tried.get(name, (0, 0))
            tried[name] = failed + len(start.faults) - kills, killed + kills
            jobs = [pool.submit(check, start, *fault) for fault in start.faults]
            failures += [f"{row.name}: {p}" for job in jobs for p in job.result()]
    failures += serialized(kavdata, device, rows)
    print(*[f"FAIL {failure}" for failure in failures], sep="\n")
    print("calls failed, and killed: " + ", ".join(
        f"{name} {failed} and {killed}" for name, (failed, killed) in tried.items()) +
          f"; {len(failures)} problems")
    return 1 if failures or len(tried) < 3 else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
