"""What other software says about the media of cases. A tool that is missing is named once, and
what it would have said is left out."""

import collections
import contextlib
import datetime
import os
import re
import shutil
import subprocess
import sys
import tempfile
import zlib

BINS = ("$recycle.bin", "recycler", "recycled")
FLS_LINE = re.compile(r"^\S+ (\* )?(\d+)[-\d]*(\(realloc\))?:\t([^\n]*)$")
MAX_SLEUTHKIT_CLUSTER = 1 << 16 # larger ones aren't known to it
MISSING = set()


def leave_out(tool, reason="isn't installed"):
    if tool not in MISSING:
        MISSING.add(tool)
        print(f"left out: {tool} {reason}", file=sys.stderr)


def run(*command):
    """What a tool writes to standard output; None if it is missing or fails."""
    if not shutil.which(command[0]):
        leave_out(command[0])
        return None
    done = subprocess.run(command, capture_output=True, env={**os.environ, "LC_ALL": "C.UTF-8"})
    return done.stdout if done.returncode == 0 else None


def comparable(name):
    """A name without what tools can't print: control characters and lone surrogates."""
    return re.sub("[\0-\x1f\x7f-\x9f^?\ufffd\ud800-\udfff]+", "^", name)


def in_bin(path):
    """(name of the user's folder, rest of the path) of what is in a bin; None elsewhere."""
    top, _, rest = path.partition("/")
    if top.lower() not in BINS or not rest:
        return None
    user, _, below = rest.partition("/")
    return (user, below) if below else ("", user)


class SleuthKit:
    """One volume, read by fls and icat."""

    def __init__(self, medium, volume):
        # A table of partitions counts in sectors of the medium; 512 always divides.
        self.where = ["-i", "raw", "-b", "512", "-o", str(volume["offset"] // 512),
                      "-f", "ntfs", medium]
        self.contents = {}
        self.live, self.deleted = collections.defaultdict(set), set()
        too_large = volume["cluster_size"] > MAX_SLEUTHKIT_CLUSTER
        if too_large:
            leave_out("fls", "of volumes with clusters of more than 64 KiB")
        listing = None if too_large else run("fls", "-r", "-p", *self.where)
        self.missing = too_large or not shutil.which("fls")
        self.fails = listing is None and not self.missing
        for line in (listing or b"").decode("utf-8", "surrogateescape").split("\n"):
            match = FLS_LINE.match(line)
            if match and ":" not in match[4]:
                self._add(int(match[2]), bool(match[1]), match[4])

    def _add(self, entry, deleted, path):
        name = comparable(path.rpartition("/")[2])
        if deleted:
            self.deleted.add((entry, name))
        elif in_bin(path):
            user, rest = in_bin(path)
            self.live[user, comparable(rest)].add(entry)

    def in_use(self, entry):
        """Whether the record of an entry is. fls lists names in blocks that an index has given
        up as if they were not deleted."""
        return b"Not Allocated" not in (run("istat", *self.where, str(entry)) or b"")

    def content(self, entry):
        """The unnamed $DATA of an entry; None if icat fails."""
        if entry not in self.contents:
            self.contents[entry] = run("icat", *self.where, str(entry))
        return self.contents[entry]


class NtfsTools:
    """One volume, opened by ntfsinfo and mounted by ntfs-3g, both on a copy."""

    def __init__(self, medium, volume):
        self.entries, self.mounted = {}, False
        self.live, self.contents = collections.defaultdict(set), {}
        self.folder = tempfile.TemporaryDirectory()
        self.copy = os.path.join(self.folder.name, "volume.raw")
        medium.copy_to(self.copy, volume["offset"], volume["size"])
        self.opens = run("ntfsinfo", "-m", "-f", self.copy) is not None
        with mounted("ntfs-3g", "-o", "ro,norecover,streams_interface=xattr,show_sys_files",
                     self.copy) as root:
            if root:
                self.mounted = True
                self._walk(root)

    def _walk(self, root):
        bins = [name for name in os.listdir(root) if name.lower() in BINS]
        for top in bins:
            for folder, folders, files in os.walk(os.path.join(root, top)):
                for name in folders + files:
                    path = os.path.join(folder, name)
                    user, rest = in_bin(os.path.relpath(path, root))
                    entry, content = observe(path)
                    self.contents[entry] = content
                    self.live[user, comparable(rest)].add(entry)

    def entry(self, number):
        """(sequence number, whether it is in use, its names) as ntfsinfo prints them."""
        if number not in self.entries:
            text = run("ntfsinfo", "-f", "-i", str(number), self.copy)
            self.entries[number] = text and (
                int(re.search(rb"Record Seq. Numb.:\s*(\d+)", text)[1]),
                b"IN_USE" in re.search(rb"Record Flags:([^\n]*)", text)[1],
                {comparable(name.decode("utf-8", "replace"))
                 for name in re.findall(rb"Filename:\s*'(.*)'", text)})
        return self.entries[number]


def observe(path):
    """(MFT entry, content) of a file of a mounted volume; folders have no content. A file
    that can't be read has no entry."""
    try:
        if os.path.isdir(path):
            return os.stat(path).st_ino, None
        with open(path, "rb") as file:
            return os.stat(path).st_ino, file.read()
    except OSError:
        return None, None


@contextlib.contextmanager
def mounted(tool, *arguments):
    """Runs a FUSE file system, and yields its folder; None if that isn't possible here."""
    if not shutil.which(tool):
        leave_out(tool)
        yield None
    elif not os.access("/dev/fuse", os.R_OK | os.W_OK) or os.geteuid() != 0:
        leave_out(tool, "needs root and /dev/fuse")
        yield None
    else:
        folder = tempfile.mkdtemp()
        done = subprocess.run([tool, *arguments, folder], capture_output=True)
        try:
            yield folder if done.returncode == 0 else None
        finally:
            if done.returncode == 0:
                subprocess.run(["fusermount", "-u", folder], check=True)
            os.rmdir(folder)


# What is said about a whole medium


def snapshot_problems(medium, volume):
    """vshadowinfo and vshadowmount against the snapshots of the story."""
    expected = volume.get("snapshots", [])
    if not expected:
        return
    offset = ["-o", str(volume["offset"]), medium]
    text = run("vshadowinfo", *offset)
    if text is not None:
        found = re.findall(r"Creation time\s*:\s*(.*?) UTC", text.decode())
        wanted = [snapshot["created"] for snapshot in expected]
        if [shadow_time(time) for time in found] != wanted:
            yield f"vshadowinfo has snapshots of {found}, the story of {wanted}"
    with mounted("vshadowmount", *offset) as root:
        for number, snapshot in enumerate(expected if root else [], 1):
            path = os.path.join(root, f"vss{number}")
            if not os.path.exists(path):
                yield f"vshadowmount doesn't show snapshot {number}"
            elif masked_sum(path, snapshot["unknown"]) != snapshot["crc32"]:
                yield f"vshadowmount shows other bytes of snapshot {number}"


def shadow_time(text):
    """"Mar 05, 2024 09:41:17.250000000" as the story writes it."""
    seconds, _, digits = text.partition(".")
    time = datetime.datetime.strptime(seconds, "%b %d, %Y %H:%M:%S")
    return time.strftime("%Y-%m-%dT%H:%M:%S.") + digits[:7] + "Z"


def masked_sum(path, unknown):
    """CRC-32 of a file with zeros in the ranges that nobody can know."""
    with open(path, "rb") as file:
        content = bytearray(file.read())
    for offset, length in unknown:
        content[offset:offset + length] = bytes(length)
    return zlib.crc32(content)


def partition_problems(medium, volumes):
    """mmls against the places of the volumes."""
    expected = {volume["offset"] for volume in volumes if volume.get("known", True)}
    if not expected - {0}:
        return
    starts, unit = set(), 512
    for unit in (512, 4096):
        text = run("mmls", "-i", "raw", "-b", str(unit), medium)
        starts |= {int(start) * unit
                   for start in re.findall(rb"^\d+:\s+\S+\s+(\d+)\s", text or b"", re.M)}
    if "mmls" not in MISSING:
        for offset in sorted(expected - starts):
            yield f"mmls shows no partition at byte {offset}"


def container_problems(folder, name):
    """qemu-img against a case that has its medium in a virtual disk as well."""
    if not shutil.which("qemu-img"):
        return leave_out("qemu-img")
    medium = os.path.join(folder, "medium.raw")
    done = subprocess.run(["qemu-img", "compare", "-F", "raw", os.path.join(folder, name),
                           medium], capture_output=True, text=True)
    return None if done.returncode == 0 else f"qemu-img: {done.stdout or done.stderr}".strip()
