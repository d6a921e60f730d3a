"""Throwaway device images for whole-program runs of kavsetup.

An image is a temporary directory holding a device tree; the program runs
in it through tools/run-in-root, so the host's own /var/db and /usr/share are
never read or written.
"""
import atexit
import hashlib
import os
import shutil
import stat
import subprocess
import tempfile

RUN_IN_ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)),
                           "../../tools/run-in-root")
TZ = "/var/db/timezone/tz/"
ZONEINFO = "/var/db/timezone/zoneinfo"
ICUTZ = "/var/db/icutz"
LATEST = "/var/db/timezone/tz_latest"
LOCALTIME = "/var/db/timezone/localtime"
MARKER = "/var/db/timezone/needs_cleanup"
RECORD = "/var/db/timezone/TZVersionDiffRecord"
SYSTEM_ZONEINFO = "/usr/share/zoneinfo.default"
DEFAULT_LOCALTIME = "/var/db/timezone/zoneinfo/America/Los_Angeles"
LINKS = (ZONEINFO, ICUTZ, LOCALTIME)
# The last warning of a run that ends with status 1.
EXITING = ("Unable to prepare time zone directories; exiting",
           "Unable to reset to system partition; exiting",
           "Unable to reset localtime link; exiting")


def as_bytes(text):
    return text if isinstance(text, bytes) else text.encode()


# Tree entries: (path, kind, data, mode); kind is "dir", "file" or "link".
def d(path, mode=0o755):
    return (path, "dir", b"", mode)


def f(path, data=b"", mode=0o644):
    return (path, "file", as_bytes(data), mode)


def l(path, target):
    return (path, "link", as_bytes(target), 0)


def data_set(name, tag="44l", zones=("Europe/Paris", "America/Los_Angeles")):
    """A download under /var/db/timezone/tz/NAME with one ICU data file."""
    root = TZ + name
    version = name.split(".")[0] + "\n"
    return ([f(root + "/zoneinfo/+VERSION", version)] +
            [f(root + "/zoneinfo/" + zone, "TZif") for zone in zones] +
            [f(root + "/icutz/icutz" + tag + ".dat", "ICU data")])


def system(version="2014b\n", tag="44l\n"):
    return [f(SYSTEM_ZONEINFO + "/+VERSION", version),
            f(SYSTEM_ZONEINFO + "/Europe/Paris", "TZif"),
            f(SYSTEM_ZONEINFO + "/America/Los_Angeles", "TZif"),
            f("/usr/share/icu/icutzformat.txt", tag),
            d(TZ)]


def in_use(name):
    if not name:
        return [l(ZONEINFO, SYSTEM_ZONEINFO)]
    return [l(ZONEINFO, TZ + name + "/zoneinfo"), l(ICUTZ, TZ + name + "/icutz")]


def _force_remove(function, path, _):
    os.chmod(os.path.dirname(path), 0o700)
    if os.path.isdir(path) and not os.path.islink(path):
        os.chmod(path, 0o700)
    function(path)


class Program:
    """The program staged once in the temporary directory, until exit, so
    that each image gets a hard link to it: a copy written while another
    thread starts a run could leave its descriptor open in that run and make
    the copy busy."""

    def __init__(self, path):
        directory = tempfile.mkdtemp(prefix="kavsetup-program-")
        atexit.register(shutil.rmtree, directory, ignore_errors=True)
        self.path = directory + "/kavsetup"
        shutil.copy(path, self.path)


class Image:
    """A device tree in a temporary directory, removed on close; `program` is
    a Program."""

    def __init__(self, tree, program):
        self.root = tempfile.mkdtemp(prefix="kavsetup-reliability-")
        for path, kind, data, mode in tree:
            self.add(path, kind, data, mode)
        sbin = self.root + "/usr/sbin"
        os.makedirs(sbin, exist_ok=True)
        os.link(program.path, sbin + "/kavsetup")

    def add(self, path, kind, data, mode):
        host = as_bytes(self.root) + as_bytes(path)
        os.makedirs(os.path.dirname(host), exist_ok=True)
        if kind == "dir":
            os.makedirs(host, exist_ok=True)
        elif kind == "file":
            with open(host, "wb") as out:
                out.write(data)
        else:
            os.symlink(data, host)
            return
        os.chmod(host, mode)

    def close(self):
        shutil.rmtree(self.root, onerror=_force_remove)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def run(self, strace=None):
        """Runs the program once, under strace with these arguments if given.
        Returns (status, stdout, stderr lines, strace log); status is 128 +
        the signal number for a run ended by a signal."""
        log_path = self.root + ".strace"
        command = [RUN_IN_ROOT, self.root, self.root + "/usr/sbin/kavsetup"]
        if strace is not None:
            command += ["strace", "-o", log_path] + strace
        done = subprocess.run(command, capture_output=True, timeout=20)
        log = ""
        if strace is not None:
            with open(log_path, errors="replace") as log_file:
                log = log_file.read()
            os.remove(log_path)
        status = done.returncode if done.returncode >= 0 else 128 - done.returncode
        return status, done.stdout, done.stderr.decode(errors="replace").splitlines(), log

    def state(self, path):
        """What a path holds: "-> TARGET", "file:CONTENT", "dir" or "absent"."""
        host = as_bytes(self.root) + as_bytes(path)
        try:
            mode = os.lstat(host).st_mode
        except FileNotFoundError:
            return "absent"
        if stat.S_ISLNK(mode):
            return "-> " + os.readlink(host).decode(errors="replace")
        if stat.S_ISREG(mode):
            with open(host, "rb") as data:
                return "file:" + data.read().decode(errors="replace")
        return "dir" if stat.S_ISDIR(mode) else "other"

    def states(self, paths=LINKS + (MARKER, RECORD)):
        return {path: self.state(path) for path in paths}

    def digest(self):
        """A hash of every path, type, mode, link target and file content under
        the system partition and the downloads, none of which the program may
        change."""
        hashed = hashlib.sha256()
        for top in ("/usr/share", TZ):
            for directory, dirs, files in os.walk(self.root + top):
                dirs.sort()
                for name in sorted(dirs + files):
                    path = os.path.join(directory, name)
                    info = os.lstat(path)
                    relative = os.fsencode(os.path.relpath(path, self.root))
                    hashed.update(relative + f"\0{info.st_mode:o}\0".encode())
                    if stat.S_ISLNK(info.st_mode):
                        hashed.update(os.fsencode(os.readlink(path)))
                    elif stat.S_ISREG(info.st_mode):
                        with open(path, "rb") as data:
                            hashed.update(data.read())
        return hashed.hexdigest()


def ended_as_documented(status, out, err):
    """Status 0, or 1 after one of the documented last warnings; nothing on
    standard output."""
    if out or status not in (0, 1):
        return False
    return status == 0 or (bool(err) and any(text in err[-1] for text in EXITING))
