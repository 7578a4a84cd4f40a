"""Readers of $I and INFO2 files, on files that other tools take out of the medium."""

import os
import re

from .common import BINS, INDEX_NAME, Tool, lines_of, number, place_in_bin, row_of, run

# rifiuti2 shows what isn't printable as <\uXXXX>, or <\XX> in an 8-bit path (its manual).
ESCAPED = re.compile(r"<\\u([0-9A-F]{4})>|<\\([0-9A-F]{2})>")
CODE_PAGE = "CP1252" # of paths that are kept with 8 bits alone
NEEDS_CODE_PAGE = b"--legacy-filename"
NEEDS_SINGLE_FILES = b"check each file independently"


def unescaped(path):
    """The path that the escapes were made from; a pair of them may be one character."""
    plain = ESCAPED.sub(lambda match: chr(int(match[1] or match[2], 16)), path)
    return plain.encode("utf-16-le", "surrogatepass").decode("utf-16-le", "surrogatepass")


def row_from(line, user, list_name):
    """A row of the index, the time, the size and the path; lists of later Windows also have
    whether the item is gone."""
    cells = line.split("\t")
    if len(cells) not in (4, 5):
        return {"raw": line} # states nothing, so it counts as invented
    return row_of(metadata_name=list_name or cells[0],
                  number=number(cells[0]) if list_name else None,
                  deleted=cells[1].replace(" ", "T"), size=number(cells[-2]),
                  path=unescaped(cells[-1]), user=user, raw=line)


def is_list(path):
    return os.path.basename(path).upper() in ("INFO", "INFO2")


def read_files(path, user=None):
    """Rows of rifiuti2 for one metadata file, or for the $I files of a folder. Its output names
    the folder, which is the user's if it isn't the bin itself."""
    folder = path if os.path.isdir(path) else os.path.dirname(path)
    if user is None:
        user = os.path.basename(folder)
    user = "" if user.casefold() in BINS else user
    list_name = os.path.basename(path) if is_list(path) else ""
    program = "rifiuti2" if list_name else "rifiuti-vista"
    output, errors = run([program, "-n", path])
    if NEEDS_CODE_PAGE in errors:
        output, errors = run([program, "-n", "-l", CODE_PAGE, path])
    if NEEDS_SINGLE_FILES in errors and path == folder:
        return [row for name in sorted(os.listdir(path)) if name.upper().startswith("$I")
                for row in read_files(os.path.join(path, name), user)]
    return [row_from(line, user, list_name) for line in lines_of(output) if "\t" in line]


def on_bins(case):
    rows = []
    for folder, _, names in sorted(os.walk(case.bins())):
        if any(name.upper().startswith("$I") for name in names):
            rows += read_files(folder)
        for name in filter(is_list, sorted(names)):
            rows += read_files(os.path.join(folder, name))
    return rows


def on_listed(case):
    """Each metadata file that fls names, deleted or not, taken out with icat. Where fls says
    that the entry belongs to another file now, icat would take out that one."""
    rows, seen = [], set()
    for volume in case.volumes():
        for file in case.listed(volume):
            place = place_in_bin(file.parts)
            key = (volume, file.entry, file.parts[-1])
            if (not place or place[2] or file.folder or file.reused or key in seen
                    or not INDEX_NAME.fullmatch(place[1])):
                continue
            seen.add(key)
            folder = os.path.join(case.work, f"icat{len(seen)}")
            os.makedirs(folder)
            copy = os.path.join(folder, place[1])
            with open(copy, "wb") as out:
                out.write(case.content(volume, file.entry))
            rows += read_files(copy, place[0])
    return rows


def on_undeleted(case):
    rows = []
    for at, volume in enumerate(case.volumes()):
        folder = os.path.join(case.work, f"undeleted{at}")
        os.makedirs(folder)
        run(["ntfsundelete", "-f", "-q", "-u", "-m", "$I*", "-d", folder,
             case.volume_file(volume)])
        rows += read_files(folder, "")
    return rows


def on_lists_2004(case):
    """The first rifiuti writes 8-bit paths as they are, and times as month/day/year."""
    rows = []
    for folder, _, names in sorted(os.walk(case.bins())):
        user = os.path.basename(folder)
        user = "" if user.casefold() in BINS else user
        for name in filter(is_list, sorted(names)):
            output, _ = run(["rifiuti", os.path.join(folder, name)])
            text = output.decode(CODE_PAGE, errors="replace")
            rows += [row_2004(line, name, user) for line in text.split("\n") if line[:1].isdigit()]
    return rows


def row_2004(line, list_name, user):
    """A row of the number, the time, the drive's number, the path and the size."""
    cells = line.split("\t")
    time = re.fullmatch(r"(\d+)/(\d+)/(\d+) (.+)", cells[1]) if len(cells) == 5 else None
    if not time:
        return {"raw": line}
    month, day, year, clock = time.groups()
    return row_of(metadata_name=list_name, number=number(cells[0]), size=number(cells[4]),
                  deleted=f"{year}-{month}-{day}T{clock}", path=cells[3], user=user, raw=line)


def version(program, *arguments):
    return lambda: re.search(rb"\d[\d.]+", b"".join(run([program, *arguments])))[0].decode()


CELLS = frozenset({"deleted", "path", "size", "id"})
BOTH = {"rifiuti2": "rifiuti2", "rifiuti-vista": "rifiuti2"}
TSK = {"fls": "sleuthkit", "icat": "sleuthkit"}
TOOLS = [
    Tool("rifiuti2", on_bins, BOTH | TSK, version("rifiuti-vista", "-v"), CELLS | {"user"},
         "`rifiuti-vista` on each user's folder of the bins as a mount shows them, `rifiuti2` on "
         "their lists", "deleted files; data items; parts of a second"),
    Tool("fls-icat", on_listed, BOTH | TSK, version("fls", "-V"), CELLS | {"user"},
         "the same readers on each metadata file that `fls -r -p` names, deleted ones too, taken "
         "out with `icat`", "files that no name leads to; data items; parts of a second"),
    Tool("ntfsundelete-rifiuti2", on_undeleted, BOTH | {"ntfsundelete": "ntfs-3g"},
         version("ntfsundelete", "-V"), CELLS,
         "`rifiuti-vista` on what `ntfsundelete -u -m '$I*'` brings back",
         "files that aren't deleted; users; data items; parts of a second"),
    Tool("rifiuti", on_lists_2004, {"rifiuti": "rifiuti"} | TSK, lambda: "20040505",
         CELLS | {"user"}, "the reader of 2004, on the lists of the bins as a mount shows them",
         "`$I` files; UTF-16 paths; deleted files; data items; parts of a second"),
]
