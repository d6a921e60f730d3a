#!/usr/bin/env python3
"""Runs kavsetup on the device rows of a file: rows.py PROGRAM ROWS

A file of rows is blocks parted by blank lines. The first block is the device
every row starts from; each later block is one row: its "# " lines name it,
its other lines add image entries (tools/make-image), and
  kavsetup: ...   is a line the program must write to standard error, whole
                  (with the escapes of image entries);
  => ENTRY        is how the device must differ afterwards;
  status N        is the exit status wanted (default 0);
  umask N         is the umask to run it under (default 022).
Apart from the differences the row lists, every path under /var and
/usr/share must be as before, type, mode, content and target alike.
"""
import concurrent.futures
import os
import subprocess
import sys
import tempfile
from importlib.machinery import SourceFileLoader

sys.dont_write_bytecode = True
TOOLS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../tools")
image_builder = SourceFileLoader("make_image", TOOLS + "/make-image").load_module()


class Row:
    def __init__(self, block):
        self.name = " ".join(l[2:] for l in block if l.startswith("# "))
        self.tree = [l for l in block
                     if not l.startswith(("#", "kavsetup: ", "=> ", "status ", "umask "))]
        self.err = [image_builder.expand(l) for l in block if l.startswith("kavsetup: ")]
        self.after = [l[3:] for l in block if l.startswith("=> ")]
        self.status = int(next((l[7:] for l in block if l.startswith("status ")), 0))
        self.umask = int(next((l[6:] for l in block if l.startswith("umask ")), "022"), 8)


def read_rows(path):
    blocks = [b.splitlines() for b in open(path).read().split("\n\n") if b.strip()]
    return Row(blocks[0]).tree, [Row(block) for block in blocks[1:]]


class Image:
    """A throwaway directory holding a device, removed on exit."""

    def __init__(self, lines):
        self.root = tempfile.mkdtemp(prefix="kavsetup-image-")
        image_builder.build(self.root, lines)

    def run(self, program, wrapper=(), umask=0o22):
        """Runs PROGRAM in the image; returns (status, stdout, stderr lines)."""
        done = subprocess.run([TOOLS + "/run-in-root", self.root, program, *wrapper],
                              capture_output=True, umask=umask, timeout=60)
        err = done.stderr.splitlines()
        if done.returncode == 125 and err and err[-1].startswith(b"run-in-root: "):
            sys.exit(err[-1].decode())
        return done.returncode, done.stdout, err

    def state(self):
        """Every path under /var and /usr/share, with what it holds."""
        return {path[len(self.root):]: held(path) for top in ("/var", "/usr/share")
                for directory, dirs, files in os.walk(self.root + top)
                for path in (os.path.join(directory, name) for name in dirs + files)}

    def __enter__(self):
        return self

    def __exit__(self, *_):
        image_builder.remove(self.root)


def held(path):
    """A link's target, or the mode and the content of a file or directory."""
    if os.path.islink(path):
        return "-> " + os.readlink(path)
    mode = f"{os.lstat(path).st_mode & 0o7777:o}"
    if os.path.isdir(path):
        return mode + " dir"
    with open(path, "rb") as data:
        return f"{mode} {data.read()!r}"


def differences(got, wanted):
    return [f"{path}: {got.get(path, 'absent')[:200]}, not {wanted.get(path, 'absent')[:200]}"
            for path in sorted(set(got) | set(wanted)) if got.get(path) != wanted.get(path)]


def check(program, device, row):
    with Image(device + row.tree) as image, Image(device + row.tree + row.after) as wanted:
        status, out, err = image.run(program, umask=row.umask)
        problems = differences(image.state(), wanted.state())
        if (status, out, err) != (row.status, b"", row.err):
            problems.append(f"status {status}, out {out!r}, messages:\n    " +
                            "\n    ".join(line.decode(errors="replace")[:300] for line in err))
        return problems


def main(program, path):
    device, rows = read_rows(path)
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        results = list(pool.map(lambda row: check(program, device, row), rows))
    for row, problems in zip(rows, results):
        if problems:
            print("FAIL", row.name, *problems, sep="\n  ")
    failed = sum(map(bool, results))
    print(f"{len(rows)} rows, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
