"""What the adapters share: a case, its volumes, and the bins taken out of it.

A row is a dict; a key is absent where the tool doesn't say it:
  path           of the file before the deletion, as the tool writes it, after undoing the
                 replacements that its documentation names
  deleted        ISO 8601 in UTC, with as many digits as the tool writes
  size           int
  user           name of the user's folder in the bin
  metadata_name  of the $I file; "INFO2" for a record of such a list
  number         int, of the record in INFO2
  data_name      of the data item that the tool pairs
  entry, data_entry  int, MFT entries of the two
  member         path below a deleted folder, with "\\"; then the row is about a file in that
                 folder, and path, data_name and so on are the folder's
  raw            what the tool wrote, for messages
"""

import json
import os
import re
import shutil
import subprocess
import sys
from dataclasses import dataclass, field
from typing import Callable

BINS = ("$recycle.bin", "recycler", "recycled")
INDEX_NAME = re.compile(r"\$I.+|INFO2?", re.IGNORECASE)
ITEM_NAME = re.compile(r"\$[IR].+|INFO2?|D[A-Za-z]\d+(\..*)?", re.IGNORECASE)
# What Windows names its $I and $R files, for names of which the folder isn't known.
STRICT_NAME = re.compile(r"\$[IR][A-Z0-9]{6}(\..*)?", re.IGNORECASE)
MAX_SECONDS = 120 # of one run of a tool


@dataclass
class Tool:
    name: str
    rows: Callable # of a Case, a list of rows
    programs: dict # program: Debian package that has it
    version: Callable # its version, as text
    tells: frozenset # of deleted, path, size, user, id, pairing: what its rows can state
    about: str # how it is run, for the page
    blind: str # what it can't know, for the page

    def missing(self):
        """What to install before the tool can run; empty if nothing."""
        return sorted({p for program, p in self.programs.items() if not find(program)})


def find(program):
    return shutil.which(program, path=os.environ.get("PATH", "") + ":/usr/sbin:/sbin")


def run(command, **options):
    """Runs a tool and returns what it wrote, (output, errors) in bytes; a tool that doesn't
    end or crashes has written what it has written, and standard error says so."""
    try:
        done = subprocess.run([find(command[0]) or command[0], *command[1:]], timeout=MAX_SECONDS,
                              capture_output=True, **{"stdin": subprocess.DEVNULL, **options})
    except subprocess.TimeoutExpired as late:
        print(f"{command}: not done after {MAX_SECONDS} s", file=sys.stderr)
        return late.stdout or b"", late.stderr or b""
    if done.returncode < 0:
        print(f"{command}: ended by signal {-done.returncode}", file=sys.stderr)
    return done.stdout, done.stderr


def lines_of(output):
    return output.decode(errors="replace").split("\n")


def number(text):
    return int(text) if re.fullmatch(r"\d+", text) else None


def row_of(**fields):
    return {key: value for key, value in fields.items() if value not in (None, "")}


@dataclass
class Listed:
    """A name that fls lists."""
    parts: list # components of its path
    entry: int
    folder: bool
    deleted: bool
    reused: bool # its MFT entry belongs to another file now
    size: int


@dataclass
class Case:
    folder: str
    work: str # an empty folder for what is extracted
    cache: dict = field(default_factory=dict)

    def __post_init__(self):
        self.medium = os.path.join(self.folder, "medium.raw")
        with open(os.path.join(self.folder, "story.json"), encoding="utf-8") as text:
            self.story = json.load(text)

    def once(self, key, make):
        if key not in self.cache:
            self.cache[key] = make()
        return self.cache[key]

    def volumes(self):
        """Offset and size of each volume that an examiner finds in the partition table; of the
        whole medium where that table is destroyed."""
        known = [(v["offset"], v["size"]) for v in self.story["volumes"] if v.get("known", True)]
        return known or [(0, os.path.getsize(self.medium))]

    def volume_file(self, volume):
        """A file that begins and ends with the volume, for tools that take no offset."""
        offset, size = volume
        if offset == 0 and size >= os.path.getsize(self.medium):
            return self.medium
        return self.once(("volume", offset), lambda: copy_part(
            self.medium, offset, size, os.path.join(self.work, f"volume{offset}.raw")))

    def listed(self, volume):
        """All names of the volume, deleted ones as well, as fls lists them."""
        return self.once(("fls", volume), lambda: run_fls(self.medium, volume))

    def content(self, volume, entry):
        return run(["icat", "-o", str(volume[0] // 512), self.medium, str(entry)])[0]

    def bins(self):
        """A folder with the bins of all volumes as a mount shows them."""
        return self.once("bins", lambda: extract_bins(self))


def copy_part(source, offset, size, target):
    with open(source, "rb") as medium, open(target, "wb") as part:
        medium.seek(offset)
        left = size
        while left > 0 and (block := medium.read(min(left, 1 << 20))):
            left -= len(block)
            if block.strip(b"\0"):
                part.write(block)
            else:
                part.seek(len(block), os.SEEK_CUR)
        part.truncate(size - left)
    return target


FLS_LINE = re.compile(r"(.)/(.) (\* )?(\d+)(?:-\d+)*(\(realloc\))?:\t(.*)")


def run_fls(medium, volume):
    output, _ = run(["fls", "-r", "-p", "-l", "-o", str(volume[0] // 512), medium])
    found = []
    for line in lines_of(output):
        name, *rest = line.rsplit("\t", 7) # four times, size, two owners
        match = FLS_LINE.fullmatch(name)
        if not match or len(rest) < 7 or ":" in match[6]:
            continue # a stream of a file isn't a file
        found.append(Listed(match[6].split("/"), int(match[4]), "d" in (match[1], match[2]),
                            bool(match[3]), bool(match[5]), number(rest[4]) or 0))
    return found


def extract_bins(case):
    """Metadata files with their content, data files with their size alone, which is all that
    the tools look at."""
    base = os.path.join(case.work, "bins")
    os.makedirs(base)
    for at, volume in enumerate(case.volumes()):
        for file in case.listed(volume):
            if file.deleted or file.parts[0].casefold() not in BINS or ".." in file.parts:
                continue
            target = os.path.join(base, f"volume{at}", *file.parts)
            try:
                os.makedirs(target if file.folder else os.path.dirname(target), exist_ok=True)
                if file.folder:
                    continue
                with open(target, "wb") as copy:
                    if INDEX_NAME.fullmatch(file.parts[-1]):
                        copy.write(case.content(volume, file.entry))
                    else:
                        copy.truncate(file.size)
            except OSError:
                continue # a path that is too long here can't be extracted by anyone
    return base


def place_in_bin(parts):
    """Of a path's components: (user's folder, name of the item, path below it), or None if it
    isn't in a bin. Orphans have lost their folders, and count by the names' form alone."""
    in_bin = parts[0].casefold() in BINS
    form = ITEM_NAME if in_bin else STRICT_NAME
    for at, part in enumerate(parts):
        if at > 0 and form.fullmatch(part) and (in_bin or parts[0] == "$OrphanFiles"):
            user = parts[at - 1] if at > 1 else ""
            return user, part, "\\".join(parts[at + 1:])
    return None
