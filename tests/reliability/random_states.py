#!/usr/bin/env python3
"""Runs the program on device states drawn from a fixed seed:
random_states.py STATIC_PROGRAM [COUNT]

Link targets of odd bytes and lengths up to and past the 1024 bytes the
program reads, files and directories where links belong, names that are and
are not versions, ICU data files of every kind, missing directories. Each run
must end as documented, never by a signal, with nothing on standard output;
unless it ended with status 1, the zoneinfo link must then name the system
data or a data set no older than the system's whose ICU tag is the system's.
"""
import os
import random
import re
import stat
import sys

from device import (ICUTZ, LATEST, LOCALTIME, MARKER, RECORD, SYSTEM_ZONEINFO, TZ,
                    ZONEINFO, Image, Program, as_bytes, d, ended_as_documented, f, l)

SEED = 20141105
VERSION = re.compile(rb"([0-9]+)([a-z]+)(?:\.([0-9]+))?(?:\.([0-9]+))?")
DATA_FILE = re.compile(rb"icutz([0-9]+[lbe])\.dat")
NAMES = ["2013a.1.0", "2014b.1.0", "2014f.1.0", "2015a.1.0", "2015a", "2099z.9.9",
         "2014b.0.9", "foo", "2015A.1.0", "2015a.1.0x", "1.0", "99999999999a.1.0",
         "2015a.1.0.1", "2015a.-1"]
TAGS = ["44l", "44l", "45b", "44b", "1e", "l", "44x", ""]


def version(text):
    """The version of a data set name, ordered as the program orders them."""
    match = VERSION.fullmatch(text)
    if not match:
        return (-1, b"", -1, -1)
    number = lambda group: int(group) if group is not None else -1
    return (int(match[1]), match[2], number(match[3]), number(match[4]))


def odd_bytes(rng, length):
    return bytes(rng.choice(b"/./az09_\xff\x80 \n") if rng.random() < 0.7
                 else rng.randrange(1, 256) for _ in range(length))


def long_target(rng, base):
    """A target past the read limit, or ending right at it."""
    length = rng.choice([1023, 1024, 1025, rng.randrange(900, 1200)])
    filler = b"/" if rng.random() < 0.3 else b"z"
    return (as_bytes(base) + filler * length)[:length]


def link_or_not(rng, path, targets):
    kind = rng.random()
    if kind < 0.1:
        return []
    if kind < 0.15:
        return [f(path, "not a link")]
    if kind < 0.2:
        return [f(path + "/inside")]
    return [l(path, rng.choice(targets)(rng))]


def icu_directory(rng, root):
    """An ICU directory with at most one data file the program may take."""
    root = root.decode("latin-1")
    entries = []
    for _ in range(rng.randrange(4)):
        tag = rng.choice(TAGS)
        name = rng.choice(["icutz%s.dat.bak", "xicutz%s.dat", "icutz%s.DAT", "icutz%s"])
        entries.append(f(root + "/" + name % tag))
    layout = rng.random()
    tag = "44l" if rng.random() < 0.6 else rng.choice(TAGS)
    if layout < 0.5:
        entries.append(f(root + f"/icutz{tag}.dat", "ICU", rng.choice([0o644, 0o644, 0o640])))
    elif layout < 0.6:
        entries.append(d(root + f"/icutz{tag}.dat"))
    elif layout < 0.7:
        entries.append(l(root + f"/icutz{tag}.dat", "/usr/share/icu/icutzformat.txt"))
    elif layout < 0.8:
        entries.append(f(root + f"/sub/icutz{tag}.dat"))
    elif layout < 0.9:
        return [f(root, "a file where the directory belongs")]
    return entries or [d(root)]


def device_state(rng):
    tree = []
    if rng.random() < 0.95:
        word = rng.choice(["2014b", "2014b", "2014f", "2014b.1.0", "", "x", "99999999999b"])
        tree.append(f(SYSTEM_ZONEINFO + "/+VERSION", word + rng.choice(["\n", " tail", ""])))
    tree.append(f(SYSTEM_ZONEINFO + "/America/Los_Angeles", "TZif"))
    if rng.random() < 0.95:
        tree.append(f("/usr/share/icu/icutzformat.txt", rng.choice(["44l\n", " 44l", "45b", ""])))
    names = rng.sample(NAMES, rng.randrange(1, 5))
    names += [odd_bytes(rng, rng.randrange(1, 40)).replace(b"/", b"_")]
    for name in names:
        root = as_bytes(TZ) + as_bytes(name)
        if rng.random() < 0.9:
            tree.append(f(root + b"/zoneinfo/America/Los_Angeles", "TZif"))
        tree += [(as_bytes(path.encode("latin-1")), kind, data, mode)
                 for path, kind, data, mode in icu_directory(rng, root + b"/icutz")]
    some_root = lambda rng: as_bytes(TZ) + as_bytes(rng.choice(names))
    targets = [lambda rng: some_root(rng) + b"/zoneinfo",
               lambda rng: some_root(rng) + rng.choice([b"/other", b"/", b"", b"/zoneinfo/"]),
               lambda rng: some_root(rng),
               lambda rng: SYSTEM_ZONEINFO,
               lambda rng: odd_bytes(rng, rng.randrange(1, 64)),
               lambda rng: long_target(rng, some_root(rng) + b"/"),
               lambda rng: long_target(rng, TZ),
               lambda rng: TZ + "/zoneinfo"]
    tree += link_or_not(rng, ZONEINFO, targets)
    tree += link_or_not(rng, LATEST, targets)
    tree += link_or_not(rng, ICUTZ, targets)
    tree += link_or_not(rng, LOCALTIME, targets + [
        lambda rng: "/usr/share/zoneinfo/America/Los_Angeles",
        lambda rng: "/usr/share/zoneinfo/" + odd_bytes(rng, 1100).decode("latin-1")])
    if rng.random() < 0.2:
        tree.append(d(MARKER) if rng.random() < 0.5 else f(MARKER))
    if rng.random() < 0.2:
        tree.append(f(RECORD + "/inside") if rng.random() < 0.5 else f("/var/db/icu/x"))
    # Missing working directories: drop everything below one of them.
    missing = rng.random()
    if missing < 0.05:
        tree = [item for item in tree if not as_bytes(item[0]).startswith(b"/var/db/timezone/")]
    elif missing < 0.1:
        tree = [item for item in tree if not as_bytes(item[0]).startswith(as_bytes(TZ))]
    # The first entry for a path wins, so that a drawn name is made only once.
    return list({as_bytes(item[0]): item for item in reversed(tree)}.values())[::-1]


def first_word(image, path):
    try:
        with open(as_bytes(image.root) + as_bytes(path), "rb") as data:
            words = data.read().split()
    except OSError:
        return b""
    return words[0] if words else b""


def icu_tag(image, root):
    directory = as_bytes(image.root) + root + b"/icutz"
    try:
        names = os.listdir(directory)
    except OSError:
        return b""
    for name in names:
        info = os.lstat(directory + b"/" + name)
        match = DATA_FILE.fullmatch(name)
        if match and stat.S_ISREG(info.st_mode) and info.st_mode & stat.S_IROTH:
            return match[1]
    return b""


def named_data_is_allowed(image):
    """Whether the zoneinfo link names data that the rules accept."""
    try:
        target = os.readlink(as_bytes(image.root) + as_bytes(ZONEINFO))[:1024]
    except OSError as error:
        return f"the zoneinfo link cannot be read: {error}"
    if target == as_bytes(SYSTEM_ZONEINFO):
        return None
    prefix = as_bytes(TZ)
    last = target.rfind(b"/")
    if not target.startswith(prefix) or last <= len(prefix):
        return f"the zoneinfo link names no data set: {target!r}"
    root = target[:last]
    system_version = version(first_word(image, SYSTEM_ZONEINFO + "/+VERSION") + b".1.0")
    if system_version > version(root[len(prefix):]):
        return f"{root!r} is older than the system's data"
    system_tag = first_word(image, "/usr/share/icu/icutzformat.txt")
    if icu_tag(image, root) != system_tag:
        return f"{root!r} has an ICU tag other than {system_tag!r}"
    return None


def main():
    program = Program(sys.argv[1])
    count = int(sys.argv[2]) if len(sys.argv) > 2 else 300
    rng = random.Random(SEED)
    failures = 0
    statuses = {}
    for number in range(count):
        tree = device_state(rng)
        with Image(tree, program) as image:
            status, out, err = image.run()[:3]
            statuses[status] = statuses.get(status, 0) + 1
            problem = None
            if not ended_as_documented(status, out, err):
                problem = f"ended with status {status}, out {out!r}, err {err}"
            elif status == 0:
                problem = named_data_is_allowed(image)
            if problem:
                failures += 1
                print(f"FAIL random state {number} (seed {SEED}): {problem}")
                for entry in tree:
                    print("    ", entry)
    print(f"random states: {count} (exit statuses: {dict(sorted(statuses.items()))})")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
