#!/usr/bin/env python3
"""Fails the programs at every file-system call of the first run of some
rows, and kills them at every call that changes the file system, and checks
what follows: faults.py KAVSETUP KAVDATA ROWS. KAVSETUP and KAVDATA are
static builds. doc/testing.md says what it proves."""
import codecs
import concurrent.futures
import glob
import os
import re
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import time

from rows import Image, image_builder, read_rows

STARTS = ("a switch between downloads that corrects the local time link",
          "a download in use older than the system's is refused",
          "a local time link into the older location is corrected",
          "stage copies a data set whole", "after an interrupted switch, stage replaces",
          "clean deletes what no link names", "after an interrupted switch, clean keeps",
          "with a key trusted, stage takes an archive", "latest first settles")
CALLS = ("openat", "read", "write", "close", "unlink", "unlinkat", "rmdir", "mkdir", "mkdirat",
         "symlink", "symlinkat", "readlink", "readlinkat", "rename", "renameat", "renameat2",
         "access", "faccessat", "fstat", "newfstatat", "statx", "getdents64", "fchdir", "fcntl",
         "fsync", "syncfs", "chmod", "fchmod", "fchmodat", "fchown", "fchownat", "flock", "statfs",
         "fstatfs")
# One plausible error each; a failed exchange of two names makes stage take
# its way for file systems that cannot swap them.
ERROR = dict.fromkeys(CALLS, "EIO") | {"openat": "EACCES", "unlink": "EROFS", "unlinkat": "EROFS",
                                       "rmdir": "EROFS", "symlink": "ENOSPC", "symlinkat": "ENOSPC",
                                       "write": "ENOSPC", "mkdir": "ENOSPC", "mkdirat": "ENOSPC",
                                       "renameat2": "EINVAL", "flock": "ENOLCK"}
TZ = image_builder.TZ
ZONEINFO, ICUTZ, LOCALTIME = TZ + "zoneinfo", "/var/db/icutz", TZ + "localtime"
LATEST, MARKER, RECORD = TZ + "tz_latest", TZ + "needs_cleanup", TZ + "TZVersionDiffRecord"
LOCK, REQUEST = TZ + "kavdata.lock", TZ + "kavdata.needs_cleanup"
DEFAULT_LOCALTIME = "-> " + ZONEINFO + "/America/Los_Angeles"
EXITING = re.compile(rb"kavsetup: Unable to (prepare time zone directories|"
                     rb"reset to system partition|reset localtime link); exiting: ")
# A kill before any other call leaves the files as one before the next of these.
CHANGES = re.compile(r"(write|unlinkat|unlink|rmdir|mkdirat|mkdir|symlinkat|symlink|renameat2|"
                     r"renameat|rename|chmod|fchmodat|fchmod|fchownat|fchown)\(|"
                     r"openat\(.*O_(CREAT|TRUNC)")
LEFTOVER = re.compile(re.escape(TZ) + r"(tz/\.(staging|replaced)-[^/]*|\.tz_latest\.staging)$")
ANY_LEFTOVER = re.compile(re.escape(TZ) + r"(tz/\.(staging|replaced|deleting)-[^/]*|\.tz_latest\.staging)$")
SETS = TZ + "tz"
PID = re.compile(r"^\d+ +")


def operand(line):
    """The first argument of a call that strace -y wrote, and for a call
    relative to a directory the name after it, without what differs from run
    to run: the image's place, a copy's random suffix, a pipe's number, a
    nameless file's inode number. (A failed call shows no buffer it would
    have filled.)"""
    first = re.match(r'(?:\d+ +)?\w+(?:(?<=at)|(?<=at2))\(([^,)]*(?:, "(?:[^"\\]|\\.)*")?)|'
                     r'(?:\d+ +)?\w+\(([^,)]*)', line)
    return re.sub(r"/[^<>\"]*kavsetup-image-[^/>\"]*|(?<=\.staging-)([^/>\"]*)-\w{6}\b|(?<=:\[)\d+|"
                  r"(?<=/#)\d+", lambda m: m[1] or "", first[1] or first[2]) if first else ""


def program_calls(log, name):
    """(call, n, action, operand) for each fault to inject: the nth
    occurrence of a file-system call the program makes in the trace, whose
    first calls are the runner's, failed, and killed before the first and
    every change."""
    seen, found, started = {}, [], False
    for line in (PID.sub("", line, 1) for line in log.splitlines()):
        started = started or line.startswith(f'execve("/usr/sbin/{name}"')
        call = (re.match(r"\w+", line) or [""])[0]
        seen[call] = seen.get(call, 0) + 1
        if started and call in CALLS:
            found.append((call, seen[call], f"error={ERROR[call]}", operand(line)))
            if len(found) == 1 or CHANGES.match(line):
                found.append((call, seen[call], "signal=SIGKILL", operand(line)))
    return found


def traced(image, program, run, umask, injection):
    with tempfile.NamedTemporaryFile("r") as log:
        status, out, err = image.run(program, run.argv[1:], ["strace", "-o", log.name, *injection],
                                     umask, stdin=run.stdin)
        return status, out, err, log.read()


def allowed(path, final, expected, interrupted, old_record):
    """Whether kavsetup(8), under INTERRUPTED RUNS, lists this difference a
    fault or crash of a start may leave."""
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


def arguments(text):
    """The top-level arguments of a call that strace wrote as text, which
    begins after its "(", and what follows the ")" that closes them."""
    args, depth, start, i = [], 0, 0, 0
    while i < len(text):
        if text[i] in "\"<":  # a string or a descriptor's path
            close, i = ">" if text[i] == "<" else '"', i + 1
            while i < len(text) and text[i] != close:
                i += 2 if text[i] == "\\" else 1
        elif text[i] in "([{":
            depth += 1
        elif text[i] in ")]}" and depth:
            depth -= 1
        elif text[i] in ",)":
            args.append(text[start:i].strip())
            if text[i] == ")":
                return args, text[i + 1:]
            start = i + 1
        i += 1
    return args, ""


def calls(log, root):
    """(call, paths, descriptors, other arguments, success) of each call in a
    trace written with -y, paths as the program sees them: each string taken
    as a name relative to the descriptor before it, or to /."""
    def inside(shown):
        shown = shown.removesuffix(" (deleted)")
        return "/" + shown[len(root):].lstrip("/") if (shown + "/").startswith(root + "/") else None
    for line in log.splitlines():
        call, _, text = PID.sub("", line, 1).partition("(")
        if not call.isidentifier() or "<unfinished" in text:
            continue
        args, rest = arguments(text)
        paths, fds, flags, after_fd = [], [], "", False
        for arg in args:
            string, fd = (re.fullmatch(r'"(.*)"(?:\.\.\.)?', arg, re.S),
                          re.fullmatch(r"\w*<(.*)>(?:\(deleted\))?", arg))
            if string:
                name = codecs.escape_decode(string[1].encode())[0].decode(errors="surrogateescape")
                base = (paths.pop() if after_fd else None) or "/"
                paths.append(os.path.normpath(os.path.join(base, name)) if name else base)
            elif fd:
                paths.append(inside(fd[1]))
                fds.append(paths[-1])
            else:
                flags += arg + " "
            after_fd = bool(fd)
        yield call, paths, fds, flags, bool(re.match(r" *= \d", rest))


class Entry:
    """A file, directory or link that a traced run changed or synced; its last
    change is (call number, call)."""

    def __init__(self, made=False, link=False):
        self.made, self.link, self.changed, self.synced = made, link, None, -1


def order(log, root):
    """What an uninterrupted kavdata command leaves undurable when a later
    change depends on it: the copy's files before its rename, that rename
    before tz_latest's, tz_latest's before the exit, a rename to .deleting-
    before deleting under it, and the deletions before the marker's. A kill
    cannot show it; a power loss can keep the later change and lose this."""
    entries, problems, synced_all, published, moved, marker, doomed = {}, [], -1, None, None, None, {}
    entry = lambda path: entries.setdefault(path, Entry())
    durable = lambda path, since: max(entry(path).synced, synced_all) > since
    below = lambda top: [path for path in entries if path == top or path.startswith(top + "/")]
    in_sets = lambda path, prefix: (os.path.dirname(path) == SETS and
                                    os.path.basename(path).startswith(prefix))
    for i, (call, paths, fds, flags, done) in enumerate(calls(log, root)):
        what, target = f"{call} {paths[-1] if paths else ''}", (paths or [None])[-1]
        if call in ("unlink", "unlinkat") and target == MARKER:
            if entry(SETS).changed and not durable(SETS, entry(SETS).changed[0]):
                problems.append(f"{MARKER} is unlinked before {entry(SETS).changed[1]} is durable: "
                                f"no fsync of {SETS}, nor syncfs, in between")
            marker = i
        if not done or None in paths:  # a pipe, say
            continue
        changes = []
        if call in ("mkdir", "mkdirat", "symlink", "symlinkat", "link", "linkat", "creat") or (
                call in ("open", "openat") and "O_CREAT" in flags):
            entries.setdefault(target, Entry(True, call.startswith("symlink")))
            changes = [target, os.path.dirname(target)]
        elif call in ("open", "openat") and "O_TRUNC" in flags or call in (
                "fchownat", "fchmodat", "chmod", "chown", "lchown"):
            changes = [paths[0]]
        elif call in ("write", "pwrite64", "writev", "pwritev", "pwritev2", "ftruncate",
                      "fallocate", "fchmod", "fchown", "sendfile", "copy_file_range"):
            changes = [fds[-1] if call == "copy_file_range" else fds[0]]
        elif call in ("fsync", "fdatasync") and fds[0]:
            # A link is durable with the directory that holds it.
            for path in [fds[0]] + [p for p in entries if entries[p].link and
                                    os.path.dirname(p) == fds[0]]:
                entry(path).synced = i
        elif call in ("syncfs", "sync"):
            synced_all = i
        elif call.startswith("rename"):
            source, target = paths[:2]
            if in_sets(source, ".staging-") and not in_sets(target, "."):
                late = [entries[p] for p in below(source) if entries[p].made
                        and not durable(p, entries[p].changed[0])]
                if late:
                    problems.append(f"{late[0].changed[1]} is not durable before the copy's rename to "
                                    f"{target}: no fsync of {'its directory' if late[0].link else 'it'}"
                                    ", nor syncfs, in between" +
                                    (f" ({len(late) - 1} more like it)" if late[1:] else ""))
                published = i, f"{call} {source} -> {target}"
            if target == LATEST:
                if published and not durable(SETS, published[0]):
                    problems.append(f"{published[1]} is not durable before {LATEST} is replaced: "
                                    f"no fsync of {SETS}, nor syncfs, in between")
                moved = i
            if in_sets(target, ".deleting-"):
                doomed[target] = i
            moving = {path: entries.pop(path) for path in below(source)}
            swapped = {path: entries.pop(path) for path in below(target)}
            entries.update({target + path[len(source):]: e for path, e in moving.items()})
            if "RENAME_EXCHANGE" in flags:
                entries.update({source + path[len(target):]: e for path, e in swapped.items()})
            changes = [os.path.dirname(source), os.path.dirname(target)]
        elif call in ("unlink", "unlinkat", "rmdir"):
            if marker is not None and target != MARKER:
                problems.append(f"{what} deletes after {MARKER} is unlinked")
                marker = None  # once is enough
            for top in [top for top in doomed if target == top or target.startswith(top + "/")]:
                if not durable(SETS, doomed.pop(top)):
                    problems.append(f"the rename to {top} is not durable before {what}: "
                                    f"no fsync of {SETS}, nor syncfs, in between")
            for path in below(target):
                del entries[path]
            changes = [os.path.dirname(target)]
        for path in filter(None, changes):  # a pipe, or standard error, has no path
            entry(path).changed = i, what
    if moved is not None and not durable(TZ[:-1], moved):
        problems.append(f"the rename over {LATEST} is not durable before the command exits: "
                        f"no fsync of {TZ[:-1]}, nor syncfs, after it")
    return problems


class Start:
    """A row's first run, done whole: the states before and after it. After
    a kavdata command, running it again changes nothing."""

    def __init__(self, programs, device, row):
        self.row, self.tree, self.run = row, device + row.tree, row.runs[0]
        self.program = programs[self.run.argv[0]]
        self.kavdata = self.run.argv[0] == "kavdata"
        with Image(self.tree) as image:
            self.before = image.state()
            _, _, _, log = traced(image, self.program, self.run, row.umask, ["-f", "-y"])
            self.faults = program_calls(log, self.run.argv[0])
            self.order = order(log, os.path.realpath(image.root)) if self.kavdata else []
            self.after = image.state()
            image.run(self.program, self.run.argv[1:], umask=row.umask, stdin=self.run.stdin)
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


def check(start, call, n, action, expected):
    """The problems of one run faulted or killed at the nth `call`, and of
    the run after it. A kavdata command run again must leave exactly what an
    uninterrupted run leaves, so that the next start of kavsetup does too.
    The failed call must be the one the whole run made: on `expected`."""
    problems, umask = [], start.row.umask
    with Image(start.tree) as image:
        # Only the faulted call stops the program when it is failed; strace
        # 6.1 does not deliver a signal so, which kills must wait for.
        filtered = ["-f", "--seccomp-bpf"] if action.startswith("error") else []
        status, out, err, log = traced(image, start.program, start.run, umask, [
            *filtered, "-y", "-e", f"trace={call}", "-e", f"inject={call}:{action}:when={n}"])
        if "(INJECTED)" not in log and "killed by SIGKILL" not in log:
            problems.append("nothing injected in the program")
        failed = [operand(line) for line in log.splitlines() if "(INJECTED)" in line]
        if failed and failed[0] != expected:
            problems.append(f"failed on {failed[0]}, where the whole run made it on {expected}")
        problems += start.ended(action, status, out, err)
        if (call, action) == ("renameat2", "error=EINVAL") and status != 0:
            problems.append("a file system that cannot swap two names made it fail")
        interrupted = image.state()
        if start.kavdata:
            start.kept(interrupted, problems)
            if status == 1 and start.run.argv[1] == "stage":
                # Only a leftover that cannot be deleted, and says so.
                problems += [f"{path} is left behind" for path in interrupted
                             if LEFTOVER.match(path) and not any(
                                 f"left {path} behind".encode() in line for line in err)]
        final = start.known(interrupted)
        if final is None and start.kavdata and action == "signal=SIGKILL":
            problems += rolled_back(image, start)
        if final is None:
            status, out, _ = image.run(start.program, start.run.argv[1:], umask=umask,
                                       stdin=start.run.stdin)
            if status:
                problems.append(f"run again, it ended with status {status}")
            final = image.state()
        problems += [f"{path} is {final.get(path)}, not {start.after.get(path)}"
                     for path in set(final) | set(start.after)
                     if final.get(path) != start.after.get(path) and (start.kavdata or not
                     allowed(path, final, start.after, interrupted, start.before.get(RECORD)))
                     # left by the latest in between, for what it took out of use
                     and not (path == REQUEST and path not in start.after)]
    return [f"{call} #{n} {action}: {problem}" for problem in problems]


def rolled_back(image, start):
    """After a kill, an update engine's rollback puts tz_latest back as it was
    before the command, with `kavdata latest`, which must succeed, leave it
    so byte for byte and settle every leftover. Returns the problems."""
    was = start.before.get(LATEST, "")
    target = os.fsencode(was[3:]) if was.startswith("-> ") else None
    shown = None if target is None else "".join(
        chr(b) if 0x20 <= b <= 0x7e and b != 0x5c else "\\\\" if b == 0x5c else f"\\x{b:02x}"
        for b in target)
    argv = ["latest", "none"] if target is None else ["latest", "--target", shown]
    status, _, err = image.run(start.program, argv)
    state = image.state()
    left = [path for path in state if ANY_LEFTOVER.match(path)]
    if status != 0 or state.get(LATEST) != start.before.get(LATEST) or left:
        return [f"then kavdata {' '.join(argv)} ended with status {status}, {err}, "
                f"tz_latest {state.get(LATEST)}, leftovers {left}"]
    return []


def stopped(session):
    """Whether a kavdata that `session` started is stopped."""
    for stat in glob.glob("/proc/[0-9]*/stat"):
        try:
            name, _, fields = open(stat).read().partition(" (")[2].rpartition(") ")
        except OSError:  # gone meanwhile
            continue
        if name == "kavdata" and fields.split()[0] in "tT" and int(fields.split()[3]) == session:
            return True
    return False


def serialized(kavdata, device, rows):
    """A stage and a clean started together run one after the other, in
    either order: the first is stopped right after it takes the lock until
    the second has said that it waits and for whom; both then end as when
    run one after the other."""
    row = next(r for r in rows if r.name.startswith(STARTS[3]))
    commands, problems = {"stage": row.runs[0].argv[1:], "clean": ["clean"]}, []
    for first, second in (("stage", "clean"), ("clean", "stage")):
        with Image(device + row.tree) as image:
            image.run(kavdata, commands[first])
            image.run(kavdata, commands[second])
            wanted = image.state()
        with Image(device + row.tree) as image:
            holder = subprocess.Popen(image.command(kavdata, commands[first], [
                "strace", "-o", "/dev/null", "-e", "inject=flock:signal=SIGSTOP:when=1"]),
                stdout=subprocess.DEVNULL, start_new_session=True)
            for _ in range(600):  # until it has taken the lock and stopped
                if holder.poll() is not None or stopped(holder.pid):
                    break
                time.sleep(0.1)
            waiting = subprocess.Popen(image.command(kavdata, commands[second]),
                                       stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
            said = waiting.stderr.readline() if select.select([waiting.stderr], [], [], 60)[0] else b""
            os.killpg(holder.pid, signal.SIGCONT)
            _, rest = waiting.communicate(timeout=60)
            holder.wait(60)
            apart = "" if image.state() == wanted else "; the files differ from two runs in turn"
            # Without a trusted key, a stage also says that it checked no signature.
            rest = b"".join(line for line in rest.splitlines(True)
                            if not line.startswith(b"kavdata: stage: no key is trusted"))
            if holder.returncode or waiting.returncode or rest or apart or not re.fullmatch(
                    rb"kavdata: waiting for process \d+ \(/usr/sbin/kavdata " + first.encode() +
                    rb"[^)]*\), which holds " + LOCK.encode() + rb"\n", said):
                problems.append(f"a {second} started while a {first} holds the lock: status "
                                f"{holder.returncode}, {waiting.returncode}, said {said + rest}{apart}")
    return problems


def main(kavsetup, kavdata, rows_path):
    device, rows = read_rows(rows_path)
    # Copies, so that every run starts the same program even when the build
    # changes meanwhile; named as the traces and messages expect.
    pinned = tempfile.TemporaryDirectory()
    programs = {name: shutil.copy2(path, os.path.join(pinned.name, name))
                for name, path in (("kavsetup", kavsetup), ("kavdata", kavdata))}
    os.environ["KAVDATA"] = programs["kavdata"]  # the image builder's "pack"
    failures, tried = [], {}
    with concurrent.futures.ThreadPoolExecutor(2 * os.cpu_count()) as pool:
        for row in (r for r in rows if r.name.startswith(STARTS)):
            start = Start(programs, device, row)
            if not start.settled:
                failures.append(f"{row.name}: run again after a whole run, it changed the files")
            failures += [f"{row.name}: order: {problem}" for problem in start.order]
            name = " ".join(start.run.argv[:2])
            kills = sum(action == "signal=SIGKILL" for _, _, action, _ in start.faults)
            failed, killed = tried.get(name, (0, 0))
            tried[name] = failed + len(start.faults) - kills, killed + kills
            jobs = [pool.submit(check, start, *fault) for fault in start.faults]
            failures += [f"{row.name}: {p}" for job in jobs for p in job.result()]
    failures += serialized(programs["kavdata"], device, rows)
    print(*[f"FAIL {failure}" for failure in failures], sep="\n")
    print("calls failed, and killed: " + ", ".join(
        f"{name} {failed} and {killed}" for name, (failed, killed) in tried.items()) +
          f"; {len(failures)} problems")
    return 1 if failures or len(tried) < 3 else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
