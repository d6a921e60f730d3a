#!/usr/bin/env python3
"""Runs kavdata build on releases made here, and on this machine's tzdata.zi:
build.py [EMULATOR...] KAVDATA. Each case is a row of CASES: the arguments,
the lines the build must write to standard error (kavdata: build: left out)
and its status; a build that fails must leave nothing. The zones it makes are
compared with what zic makes of the same files, and, from the tzdata.zi,
with the zones this machine's package installs."""
import os
import random
import signal
import subprocess
import sys
import tarfile
import tempfile
import time

KAVDATA = sys.argv[1:-1] + [os.path.abspath(sys.argv[-1])]
DATA = ("africa", "antarctica", "asia", "australasia", "europe", "northamerica",
        "southamerica", "etcetera", "factory", "backward")
TABLES = ("zone.tab", "zone1970.tab", "iso3166.tab", "leapseconds")
# A release's files: "#" comments and a link to a link, which zic makes
# hard links.
RELEASE = {name: "# nothing here\n" for name in DATA} | {name: f"# {name}\n" for name in TABLES} | {
    "version": "2099a\n",
    "europe": "Rule\tEU\t1981\tmax\t-\tMar\tlastSun\t 1:00u\t1:00\tS # summer\n"
              "Rule\tEU\t1977\tonly\t-\tSep\tlastSun\t 1:00s\t0\t-\n"
              "Rule\tEU\t1996\tmax\t-\tOct\tlastSun\t 1:00u\t0\t-\n"
              "Zone\tEurope/Paris\t0:09:21 -\tLMT\t1891 Mar 16\n\t\t\t1:00\tEU\tCE%sT\n"
              "Link\tEurope/Paris\tEurope/Monaco\n",
    "etcetera": "Zone\tEtc/UTC\t0\t-\tUTC\n",
    "factory": "Zone\tFactory\t0\t-\t-00\n",
    "backward": "Link Etc/UTC UTC\nLink Etc/UTC Etc/Universal\nLink Europe/Monaco Chain\n"}
HOST = "/usr/share/zoneinfo"
# What this machine's package installs beside tzdata.zi's zones and links.
HOST_ONLY = {"localtime", "posixrules", "leap-seconds.list"}
# A header claiming 2 GiB, which is refused before its data is read.
BOMB = tarfile.TarInfo("big")
BOMB.size = 2 << 30


def run(*argv, env=None, umask=0o22, check=False):
    done = subprocess.run(argv, capture_output=True, env=env, umask=umask, text=True)
    if check and done.returncode != 0:
        sys.exit(f"{argv}: {done.stderr}")
    return done


def write(path, files):
    os.makedirs(path, exist_ok=True)
    for name, text in files.items():
        with open(f"{path}/{name}", "w") as out:
            out.write(text)
        os.utime(f"{path}/{name}", (1e9, 1e9))


def tarball(path, entries, compression="gz", top=""):
    """A tar of (TarInfo, bytes) pairs, or of a directory's files."""
    if isinstance(entries, str):
        entries = [(tarfile.TarInfo(top + name), open(f"{entries}/{name}", "rb").read())
                   for name in sorted(os.listdir(entries))]
    with open(path, "wb") as out:
        packer = subprocess.Popen([{"gz": "gzip", "lz": "lzip"}[compression], "-c"],
                                  stdin=subprocess.PIPE, stdout=out)
        for info, data in entries:
            info.size = info.size or len(data or b"")
            info.mtime = 1e9
            packer.stdin.write(info.tobuf(tarfile.PAX_FORMAT) + (data or b""))
            packer.stdin.write(bytes(-len(data or b"") % 512))
        packer.stdin.close()
        packer.wait()


def entry(name, kind=tarfile.REGTYPE, target=""):
    info = tarfile.TarInfo(name)
    info.type, info.linkname = kind, target
    return info, b"" if kind == tarfile.REGTYPE else None


def key(home, name):
    """A signing key of gpg's in a private home; its public half armored at
    NAME.asc, bare at NAME.gpg; returns its long id."""
    os.makedirs(home, mode=0o700)
    gpg = ["gpg", "--homedir", home, "--batch", "--passphrase", ""]
    run(*gpg, "--quick-gen-key", name, "ed25519", "sign", "never", check=True)
    with open(f"{name}.asc", "w") as out:
        out.write(run(*gpg, "--armor", "--export", check=True).stdout)
    run(*gpg, "--output", f"{name}.gpg", "--export", check=True)
    return gpg


def tree(top):
    """Every entry below TOP: a link's target, or a file's bytes."""
    found = {}
    for directory, _, files in os.walk(top):
        for name in files + [d for d in os.listdir(directory)
                             if os.path.islink(os.path.join(directory, d))]:
            path = os.path.join(directory, name)
            found[os.path.relpath(path, top)] = ("-> " + os.readlink(path)) \
                if os.path.islink(path) else open(path, "rb").read()
    return found


def zones_differ(built, reference):
    """Where the built zones differ from zic's, each link followed."""
    ours, theirs = tree(built), tree(reference)
    text = {"+VERSION", "tzdata.zi", *TABLES}
    resolved = {n: open(os.path.join(built, n), "rb").read() for n in ours if n not in text}
    wrong = [n for n, v in ours.items() if v[:4] == "-> /" or not isinstance(v, str) and
             os.lstat(os.path.join(built, n)).st_nlink > 1]
    return [n for n in set(resolved) | set(theirs) if resolved.get(n) != theirs.get(n)] + [
        f"{n}: a hard link or an absolute link" for n in wrong]


def packed(directory):
    run(*KAVDATA, "pack", "--as", "2099a.1.0", "-o", "packed", directory, check=True)
    return open("packed", "rb").read()


def main():
    work = tempfile.mkdtemp(prefix="kavdata-build-test-")
    os.chdir(work)
    write("rel", RELEASE)
    write("icu", {"icutz44l.dat": "ICU data", "icu.dat": "ICU data"})
    os.mkdir("icu/icutz45l.dat")
    write("set/icutz", {"icutz44l.dat": "ICU data"})
    write("bad", RELEASE | {"europe": RELEASE["europe"] + "Zone\tX\t1:00\tNoRule\tX%sT # \x01\n"})
    write("warn", RELEASE | {"europe": RELEASE["europe"] + "Zone\tLong\t1:00\t-\tABCDEFGHIJK\n"})
    write("word", RELEASE | {"version": "2099a-12-gabc\n"})
    write("up", RELEASE | {"backward": RELEASE["backward"] + "Link Etc/UTC ../UTC\n"})
    write("none", RELEASE | {"backward": "Link Etc/UTC UTC\nLink Nowhere Etc/Nowhere\n"})
    write("lacking", RELEASE)
    os.unlink("lacking/factory")
    tarball("rel.tar.gz", "rel")
    tarball("tzdb-2099a.tar.lz", "rel", "lz", "tzdb-2099a/")
    tarball("flip.tar.gz", "rel")
    hostile = {"up": [entry("version"), entry("../x")],
               "out": [entry("version"), entry("x", tarfile.SYMTYPE, "../../etc")],
               "dev": [entry("version"), entry("null", tarfile.CHRTYPE)],
               "two": [entry("a/version"), entry("b/version")],
               "bomb": [entry("version"), (BOMB, None)]}
    for name, entries in hostile.items():
        tarball(f"{name}.tar.gz", entries)
    a, b = key("a.home", "a"), key("b.home", "b")
    for gpg, name in ((a, "rel.tar.gz"), (a, "tzdb-2099a.tar.lz"), (a, "flip.tar.gz"),
                      (b, "other.asc")):
        signed = "rel.tar.gz" if name == "other.asc" else name
        run(*gpg, "--armor", "--detach-sign", "--output",
            name if name.endswith(".asc") else name + ".asc", signed, check=True)
    a_id = run("gpg", "--homedir", "a.home", "--list-keys", "--with-colons").stdout \
        .split("fpr:::::::::")[1][24:40]
    with open("flip.tar.gz", "r+b") as data:
        data.seek(100)
        byte = data.read(1)[0]
        data.seek(100)
        data.write(bytes([byte ^ 1]))
    for gpg in (a, b):
        run("gpgconf", "--homedir", gpg[2], "--kill", "all")
    icu = ["--icu", "icu/icutz44l.dat"]
    unsigned = "{} is not authenticated: no --keyring to check its signature"
    cases = [  # arguments, standard error, status
        (["-o", "zi", *icu, f"{HOST}/tzdata.zi"], [unsigned.format(f"{HOST}/tzdata.zi")], 0),
        (["-o", "dir", *icu, "rel"], [unsigned.format("rel")], 0),
        (["-o", "slim", "--slim", *icu, "rel"], [unsigned.format("rel")], 0),
        (["-o", "gz", "--keyring", "a.asc", *icu, "rel.tar.gz"], [], 0),
        (["-o", "lz", "--keyring", "a.gpg", "--signature", "tzdb-2099a.tar.lz.asc",
          "--icu-from", "set", "tzdb-2099a.tar.lz"], [], 0),
        (["-o", "x", "--icu-from", "rel", "rel"], ["rel holds 0 ICU data files (icutzTAG.dat), not one"], 1),
        (["-o", "x", "--icu-from", "icu", "rel"], ["icu holds 2 ICU data files (icutzTAG.dat), not one"], 1),
        (["--as", "2099a.2.0", *icu, "rel"], [unsigned.format("rel")], 0),
        (["-o", "x", "--keyring", "b.asc", *icu, "rel.tar.gz"],
         [f"the release's signature is by key {a_id}, which b.asc does not hold"], 1),
        (["-o", "x", "--keyring", "a.asc", *icu, "flip.tar.gz"],
         ["the signature flip.tar.gz.asc does not match the release"], 1),
        (["-o", "x", "--keyring", "a.asc", *icu, "tzdb-2099a.tar.lz.asc"],
         ["the release is not signed: tzdb-2099a.tar.lz.asc.asc does not exist (give the "
          "release's signature with --signature)"], 1),
        (["-o", "x", "--keyring", "a.asc", *icu, "rel"],
         ["rel is a directory, which carries no signature: --keyring checks a release tarball"], 1),
        (["-o", "x", *icu, "up.tar.gz"], [unsigned.format("up.tar.gz"),
                                           "../x leads out of the data set: it holds .."], 1),
        (["-o", "x", *icu, "out.tar.gz"], [unsigned.format("out.tar.gz"),
                                            "x leads out of the data set: ../../etc"], 1),
        (["-o", "x", *icu, "dev.tar.gz"], [
            unsigned.format("dev.tar.gz"), "null is neither a file, a directory nor a link"], 1),
        (["-o", "x", *icu, "two.tar.gz"], [unsigned.format("two.tar.gz"), "the tarball is no "
         "release: it holds 2 entries at its top (a, b), not a version file nor one directory"], 1),
        (["-o", "x", *icu, "bomb.tar.gz"], [unsigned.format("bomb.tar.gz"),
                                             "big is 2.0 GiB, more than the 64.0 MiB a file may hold"], 1),
        (["-o", "x", *icu, "bad"], [unsigned.format("bad"), "zic: europe, line 7: invalid saved "
         "time: \"Zone\\x09X\\x091:00\\x09NoRule\\x09X%sT\" (and 1 more)"], 1),
        (["-o", "x", *icu, "up"], [unsigned.format("up"), "backward, line 4: Link Etc/UTC ../UTC: "
                                   "../UTC is no file name: it holds .."], 1),
        (["-o", "x", *icu, "none"], [unsigned.format("none"), "backward, line 2: Link Nowhere "
                                     "Etc/Nowhere: it leads to no zone"], 1),
        (["-o", "warned", *icu, "warn"], [unsigned.format("warn"), "zic: warning: europe, line 7: "
         "time zone abbreviation has too many characters (ABCDEFGHIJK)"], 0),
        (["-o", "x", *icu, "lacking"], [unsigned.format("lacking"), "lacking/factory is missing"], 1),
        (["-o", "x", *icu, "word"], [unsigned.format("word"), "the release's version "
         "2099a-12-gabc is not a version: a year and letters, such as 2026b"], 1),
        (["-o", "x", "--as", "2099a.x", *icu, "rel"], [unsigned.format("rel"), "2099a.x is not a "
         "version string: give --as a version string, such as 2099a.1.0"], 1),
        (["-o", "x", "--as", "2098a.1.0", *icu, "rel"], [unsigned.format("rel"), "--as 2098a.1.0 "
         "does not begin with the release's version 2099a, which zoneinfo/+VERSION holds"], 1),
        (["-o", "dir", *icu, "rel"], ["dir exists: build makes a new directory"], 1),
        (["-o", "x", "--icu", "icu/icu.dat", "rel"], ["icu/icu.dat: an ICU data file is named "
         "icutzTAG.dat (TAG: digits, then l, b or e)"], 1),
        (["-o", "x", "--icu", "icu/icutz45l.dat", "rel"], ["icu/icutz45l.dat is not a regular file"], 1),
        (["-o", "x", "--signature", "a.asc", *icu, "rel"], None, 2),
        (["-o", "x", "rel"], None, 2),
    ]
    problems = []
    for arguments, wanted, status in cases:
        done = run(*KAVDATA, "build", *arguments)
        err = [line.removeprefix("kavdata: build: ") for line in done.stderr.splitlines()]
        if done.returncode != status or (wanted is not None and err != wanted):
            problems.append(f"build {' '.join(arguments)}: status {done.returncode}, {err}")
    problems += [f"a failed build left {name}" for name in os.listdir() if name in ("x", ".")
                 or name.startswith(".kavdata-build-")]
    # The zones are zic's own, fat and slim, each link a relative link.
    for bloat in ("fat", "slim"):
        subprocess.run(["/usr/sbin/zic", "-b", bloat, "-d", f"{work}/{bloat}.zic", *DATA],
                       cwd="rel", check=True)
    problems += [f"dir: {d}" for d in zones_differ("dir/zoneinfo", "fat.zic")]
    problems += [f"slim: {d}" for d in zones_differ("slim/zoneinfo", "slim.zic")]
    ours = tree("dir/zoneinfo")
    if ours.get("Chain") != "-> Europe/Paris" or ours.get("+VERSION") != b"2099a\n" or \
            not ours.get("tzdata.zi", b"").startswith(b"# version 2099a\nRule\tEU\t1981\tmax\t-\tMar\t"
                                             b"lastSun\t 1:00u\t1:00\tS\nRule"):
        problems.append(f"dir: {ours.get('Chain')}, {ours.get('tzdata.zi', b'')[:80]}")
    # From this machine's tzdata.zi, the zones its package installs, byte for byte.
    host = {n: v for n, v in tree(HOST).items() if n.split("/")[0] not in ("posix", "right")}
    built = tree("zi/zoneinfo")
    problems += [f"zi: {n}" for n in set(host) ^ set(built) if n not in HOST_ONLY | {"+VERSION"}]
    problems += [f"zi: {n} differs" for n in set(host) & set(built) if host[n] != built[n]]

    # The same bytes from any form of the release, under any umask, at any
    # time; the times those of the release, or SOURCE_DATE_EPOCH.
    run(*KAVDATA, "build", "-o", "late", *icu, "rel", umask=0o077, check=True,
        env=dict(os.environ, SOURCE_DATE_EPOCH="1700000000"))
    modes = {(os.lstat(os.path.join(d, n)).st_mode & 0o777, os.lstat(os.path.join(d, n)).st_mtime)
             for top in ("late", "dir") for d, ds, fs in os.walk(top) for n in ds + fs
             if not os.path.islink(os.path.join(d, n))}
    if modes != {(0o755, 1700000000), (0o644, 1700000000), (0o755, 1e9), (0o644, 1e9)}:
        problems.append(f"modes and times: {modes}")
    reference = packed("dir")
    problems += [f"{d} packs otherwise" for d in ("gz", "lz", "late") if packed(d) != reference]

    # Killed at any point, a build leaves no data set, or a whole one.
    started = time.monotonic()
    run(*KAVDATA, "build", "-o", "whole", *icu, f"{HOST}/tzdata.zi", check=True)
    whole = time.monotonic() - started
    for attempt in range(8):
        build = subprocess.Popen([*KAVDATA, "build", "-o", "killed", *icu, f"{HOST}/tzdata.zi"],
                                 stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        time.sleep(random.uniform(0, whole))
        build.send_signal(signal.SIGKILL)
        # Killed after its rename, the data set is whole.
        if build.wait() == 0 and not os.path.exists("killed") or \
                os.path.exists("killed") and tree("killed") != tree("whole"):
            problems.append(f"killed ({build.returncode}): killed/ is missing or not whole")
        run("rm", "-rf", "killed")
    # A killed build's zic may still be writing into its private directory.
    while subprocess.run(["rm", "-rf", work], stderr=subprocess.DEVNULL).returncode:
        time.sleep(0.1)
    print(*problems, sep="\n")
    print(f"{len(cases) + 5} passed, {1 if problems else 0} failed")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
