#!/usr/bin/env python3
"""Runs the programs on the device rows of a file: rows.py KAVSETUP KAVDATA ROWS

A file of rows is blocks parted by blank lines. The first block is the device
every row starts from; each later block is one row: its "# " lines name it,
its other lines add image entries (tools/make-image), and
  $ COMMAND ...   runs kavsetup or kavdata with arguments ("$ nobody COMMAND"
                  as the user nobody, which needs root; "< PATH" at its end
                  reads the image's PATH on standard input); the lines below it
                  up to the next "$" are about that run. A row without "$"
                  runs kavsetup, after "kavdata show", whose Next* values must
                  then be what the start leaves, and which must change nothing;
  show NAME=VALUE is a line that kavdata show must write there;
  | TEXT          is a line the run must write to standard output, whole;
  kavsetup: ...   is a line it must write to standard error, whole (with the
  kavdata: ...    escapes of image entries);
  status N        is the exit status wanted (default 0);
  => ENTRY        is how the device must differ after the last run;
  umask N         is the umask to run it under (default 022);
  nofile N        is the limit on open files to run it under.
Rows that give files to other users ("own") or run as nobody need root.
Run as root, it runs kavdata's read-only commands again as an ordinary user,
who must be told the same.
Apart from the differences the row lists, every path under /var and
/usr/share must be as before, type, mode, content and target alike.
"""
import concurrent.futures
import os
import re
import shlex
import stat
import subprocess
import sys
import tempfile
from importlib.machinery import SourceFileLoader

sys.dont_write_bytecode = True
TOOLS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../tools")
image_builder = SourceFileLoader("make_image", TOOLS + "/make-image").load_module()
TZ = image_builder.TZ
ERR = ("kavsetup: ", "kavdata: ")
AS_USER = os.geteuid() == 0  # only root can start a program as another user
READ_ONLY = ("status", "show", "check", "diff")


class Run:
    def __init__(self, argv):
        self.user = argv[:1] == ["nobody"]
        self.argv, self.out, self.err, self.status = argv[self.user:], [], [], 0
        self.stdin = self.argv[-1] if self.argv[-2:-1] == ["<"] else None
        self.argv = self.argv[:-2] if self.stdin else self.argv


class Row:
    def __init__(self, block):
        self.name = " ".join(l[2:] for l in block if l.startswith("# "))
        self.tree = [l for l in block if not l.startswith(
            ("#", "$ ", "|", "=> ", "status ", "umask ", "nofile ", "show ") + ERR)]
        self.shown = [l[5:].encode() for l in block if l.startswith("show ")]
        self.after = [l[3:] for l in block if l.startswith("=> ")]
        self.umask = int(next((l[6:] for l in block if l.startswith("umask ")), "022"), 8)
        self.nofile = next((l[7:] for l in block if l.startswith("nofile ")), None)
        self.predicted = not any(l.startswith("$ ") for l in block)
        self.runs, run = [], None
        for line in block:
            if line.startswith("$ "):
                run = None
            elif not line.startswith(("|", "status ") + ERR):
                continue
            if run is None:
                run = Run(shlex.split(line[2:]) if line.startswith("$ ") else ["kavsetup"])
                self.runs.append(run)
            if line.startswith("|"):
                run.out.append(line[2:].encode())
            elif line.startswith("status "):
                run.status = int(line[7:])
            elif line.startswith(ERR):
                run.err.append(image_builder.expand(line))
        self.runs = self.runs or [Run(["kavsetup"])]


def read_rows(path):
    blocks = [b.splitlines() for b in open(path).read().split("\n\n") if b.strip()]
    return Row(blocks[0]).tree, [Row(block) for block in blocks[1:]]


class Image:
    """A throwaway directory holding a device, removed on exit."""

    def __init__(self, lines):
        self.root = tempfile.mkdtemp(prefix="kavsetup-image-")
        image_builder.build(self.root, lines)

    def command(self, program, arguments=(), wrapper=(), user=False):
        """The command line that runs PROGRAM in the image."""
        options = ["--wrap", " ".join(wrapper)] if wrapper else []
        return [TOOLS + "/run-in-root", *options, *["--user"][:user], self.root, program,
                *arguments]

    def run(self, program, arguments=(), wrapper=(), umask=0o22, user=False, stdin=None,
            nofile=None):
        """Runs PROGRAM in the image, as root or as the user nobody, reading
        the image's file STDIN, with at most NOFILE open files; returns
        (status, stdout lines, stderr lines)."""
        limit = ["prlimit", f"--nofile={nofile}", "--"] if nofile else []
        try:
            with open(self.root + stdin if stdin else os.devnull, "rb") as given:
                done = subprocess.run(limit + self.command(program, arguments, wrapper, user),
                                      stdin=given, capture_output=True, umask=umask, timeout=60)
        except subprocess.TimeoutExpired:
            return "none: still running after 60 s", [], []
        err = done.stderr.splitlines()
        if done.returncode == 125 and err and err[-1].startswith(b"run-in-root: "):
            sys.exit(err[-1].decode())
        return done.returncode, done.stdout.splitlines(), err

    def state(self):
        """Every path under /var and /usr/share, with what it holds."""
        return {path[len(self.root):]: held(path) for top in ("/var", "/usr/share")
                for directory, dirs, files in os.walk(self.root + top)
                for path in (os.path.join(directory, name) for name in dirs + files)}

    def left(self, status):
        """What a start left, as kavdata show names it."""
        def link(path):
            return os.readlink(self.root + path).encode() if os.path.islink(self.root + path) else b""
        record = self.root + TZ + "TZVersionDiffRecord"
        return {b"NextZoneinfo": link(TZ + "zoneinfo"), b"NextICU": link("/var/db/icutz"),
                b"NextLocaltime": link(TZ + "localtime"),
                b"NextMarker": b"yes" if os.path.lexists(self.root + TZ + "needs_cleanup") else b"no",
                b"NextRecord": open(record, "rb").read() if os.path.isfile(record) else b"",
                b"NextExitStatus": str(status).encode()}

    def __enter__(self):
        return self

    def __exit__(self, *_):
        image_builder.remove(self.root)


def held(path):
    """A link's target, or the mode and the content of a file or directory
    (its size past 4 MiB)."""
    if os.path.islink(path):
        return "-> " + os.readlink(path)
    status = os.lstat(path)
    mode = f"{status.st_mode & 0o7777:o}"
    if not stat.S_ISREG(status.st_mode):
        return mode + (" dir" if stat.S_ISDIR(status.st_mode) else " fifo")
    with open(path, "rb") as data:
        content = data.read(1 << 22)
    return f"{mode} {content!r}" + (f" of {status.st_size} bytes" * (status.st_size > len(content)))


def properties(lines):
    """The NAME=VALUE lines of kavdata show, their values unescaped."""
    unescape = lambda m: b"\\" if m[1] == b"\\" else bytes([int(m[1][1:], 16)])
    return {name: re.sub(rb"\\(\\|x[0-9a-f]{2})", unescape, value)
            for name, _, value in (line.partition(b"=") for line in lines)}


def differences(got, wanted):
    return [f"{path}: {got.get(path, 'absent')[:200]}, not {wanted.get(path, 'absent')[:200]}"
            for path in sorted(set(got) | set(wanted)) if got.get(path) != wanted.get(path)]


def outcome(status, out, err):
    return (f"status {status}, messages:\n    " + "\n    ".join(
        line.decode(errors="replace")[:300] for line in [*out, b"--", *err]))


def unprintable(argv, out):
    """Every line of kavdata show lies between 0x20 and 0x7e."""
    return [f"kavdata show wrote {line[:200]!r}" for line in out
            if argv[:2] == ["kavdata", "show"] and re.search(rb"[^\x20-\x7e]", line)]


def run_both_ways(image, program, argv, umask, user=False, stdin=None, nofile=None):
    """Runs a command; a read-only one of kavdata's is run again as an
    ordinary user. Returns what it got and the problems."""
    got = image.run(program, argv[1:], umask=umask, user=user, stdin=stdin, nofile=nofile)
    if user or not (AS_USER and argv[0] == "kavdata" and argv[1:2] and argv[1] in READ_ONLY):
        return got, []
    as_user = image.run(program, argv[1:], umask=umask, user=True, stdin=stdin, nofile=nofile)
    return got, [] if as_user == got else [f"as nobody, $ {shlex.join(argv)}: " +
                                           outcome(*as_user)]


def check(programs, device, row):
    with Image(device + row.tree) as image, Image(device + row.tree + row.after) as wanted:
        problems = []
        if row.predicted:
            before = image.state()
            (_, out, _), problems = run_both_ways(image, programs["kavdata"], ["kavdata", "show"],
                                                  row.umask)
            problems += unprintable(["kavdata", "show"], out)
            predicted = properties(out)
            problems += [f"kavdata show did not write {line}" for line in row.shown
                         if line not in out]
            problems += [f"kavdata show changed {d}" for d in differences(image.state(), before)]
        for run in row.runs:
            (status, out, err), as_user = run_both_ways(image, programs[run.argv[0]], run.argv,
                                                        row.umask, run.user, run.stdin, row.nofile)
            problems += as_user + unprintable(run.argv, out)
            if (status, out, err) != (run.status, run.out, run.err):
                problems.append(f"$ {shlex.join(run.argv)}: " + outcome(status, out, err))
        problems += differences(image.state(), wanted.state())
        if row.predicted:
            problems += [f"kavdata show predicted {name.decode()}={value[:200]!r}, "
                         f"the start left {predicted.get(name, b'nothing')[:200]!r}"
                         for name, value in image.left(status).items()
                         if predicted.get(name) != value]
        return problems


def main(kavsetup, kavdata, path):
    device, rows = read_rows(path)
    # Only root can run a command as another user, or give a file to one.
    rows = [row for row in rows if AS_USER or not (any(run.user for run in row.runs) or
                                                   any(re.search(r"(^|;)\s*own ", l) for l in row.tree))]
    programs = {"kavsetup": kavsetup, "kavdata": kavdata}
    os.environ["KAVDATA"] = os.path.abspath(kavdata)  # the image builder's "pack"
    # The threads mostly wait for the programs they start.
    with concurrent.futures.ThreadPoolExecutor(4 * os.cpu_count()) as pool:
        results = list(pool.map(lambda row: check(programs, device, row), rows))
    for row, problems in zip(rows, results):
        if problems:
            print("FAIL", row.name, *problems, sep="\n  ")
    failed = sum(map(bool, results))
    print(f"{len(rows)} rows, {failed} failed" +
          ("" if AS_USER else "; kavdata was not run as an ordinary user, which needs root"))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
