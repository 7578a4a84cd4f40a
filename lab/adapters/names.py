"""Tools that list names: which metadata and data items a bin had, without what they hold."""

import re

from .common import BINS, ITEM_NAME, STRICT_NAME, Tool, lines_of, place_in_bin, row_of, run
from .rifiuti import version


def merged(found):
    """Rows, one for each id in each user's folder, of (place in the bin, MFT entry or None).
    Names of the two halves of a deletion differ in their second character alone."""
    rows, order = {}, []
    for (user, name, member), entry in found:
        user = "" if user.casefold() in BINS else user
        is_index = name.upper().startswith("$I")
        if name.upper() in ("INFO", "INFO2"):
            continue # a list, of nobody knows what
        if member:
            order.append(row_of(user=user, data_name=name, member=member, raw=f"{name}/{member}"))
            continue
        # A list counts from 1 again after the bin is emptied, so such a name comes again.
        key = (user, name[2:].casefold()) if name.startswith("$") else (user, name, entry)
        if key not in rows:
            rows[key] = row_of(user=user, raw=f"{user}/{name}")
            order.append(rows[key])
        kind = ("metadata_name", "entry") if is_index else ("data_name", "data_entry")
        if kind[0] not in rows[key]:
            rows[key] |= row_of(**{kind[0]: name, kind[1]: entry})
    return order


def rows_of(found):
    """Rows of (place or None, MFT entry) from one volume."""
    return merged((place, entry) for place, entry in found if place)


def fls_rows(case):
    rows = []
    for volume in case.volumes():
        listed = sorted(case.listed(volume), key=lambda file: file.deleted)
        rows += rows_of((place_in_bin(file.parts), None if file.reused else file.entry)
                        for file in listed)
    return rows


def place_by_parent(parent, name):
    """For tools that name a file's folder alone. Where the folder is lost (None), the form of the
    names has to do."""
    if parent is None:
        return ("", name, "") if STRICT_NAME.fullmatch(name) else None
    in_bin = parent.startswith("S-1-") or parent.casefold() in BINS
    return (parent, name, "") if in_bin and ITEM_NAME.fullmatch(name) else None


def undelete_rows(case):
    rows = []
    for volume in case.volumes():
        output, _ = run(["ntfsundelete", "-f", "-s", "-v", "-P", case.volume_file(volume)])
        rows += rows_of((place_by_parent(parent, name), entry)
                        for parent, name, entry in undeletable(output))
    return rows


def undeletable(output):
    """(folder or None, name, entry) of each name that ntfsundelete writes about a deleted file."""
    for block in output.decode(errors="replace").split("_" * 40):
        entry = re.search(r"^MFT Record (\d+)$", block, re.MULTILINE)
        parent = re.search(r"^Parent: (.*)$", block, re.MULTILINE)
        for name in re.findall(r"^Filename: \(\d\) (.*)$", block, re.MULTILINE):
            if entry:
                yield parent[1] if parent else None, name, int(entry[1])


def fsntfs_rows(case):
    rows = []
    for offset, _ in case.volumes():
        output, _ = run(["fsntfsinfo", "-E", "all", "-o", str(offset), case.medium])
        records = list(fsntfs_records(output))
        folders = {reference: name for reference, _, name in records}
        rows += rows_of((place_by_parent(folders.get(parent), name), reference[0])
                        for reference, parent, name in records)
    return rows


def fsntfs_records(output):
    """(reference, reference of the folder, name) of each name in a FILE record; a reference is
    entry and sequence, which a freed record has counted up."""
    for block in re.split(r"^MFT entry: ", output.decode(errors="replace"), flags=re.MULTILINE)[1:]:
        own = re.search(r"File reference\s*: (\d+)-(\d+)", block)
        freed = re.search(r"Is allocated\s*: false", block)
        for entry, sequence, name in re.findall(
                r"Parent file reference\s*: (\d+)-(\d+).*?\tName\t+: (.*?)\n", block, re.DOTALL):
            if own:
                yield ((int(own[1]), int(own[2]) - bool(freed)),
                       (int(entry), int(sequence)), name)


def journal_rows(case):
    rows = []
    for offset, _ in case.volumes():
        output, _ = run(["usnjls", "-o", str(offset // 512), case.medium])
        lines = [line.split("\t") for line in lines_of(output) if line.count("\t") == 4]
        rows += rows_of((place_by_parent(None, cells[4]), int(cells[0].split("-")[0]))
                        for cells in lines)
    return rows


NAMES = frozenset({"user", "id"})
UNREAD = "what the metadata holds: paths, times, sizes"
TOOLS = [
    Tool("fls", fls_rows, {"fls": "sleuthkit"}, version("fls", "-V"), NAMES | {"pairing"},
         "names in bins that `fls -r -p` lists, and names of the bin's form among its orphans",
         UNREAD),
    Tool("fsntfsinfo", fsntfs_rows, {"fsntfsinfo": "libfsntfs-utils"}, version("fsntfsinfo", "-V"),
         NAMES | {"pairing"}, "names in bins that `fsntfsinfo -E all` lists",
         f"names outside of the `$MFT`; {UNREAD}"),
    Tool("ntfsundelete", undelete_rows, {"ntfsundelete": "ntfs-3g"}, version("ntfsundelete", "-V"),
         NAMES, "names in bins that `ntfsundelete -s -v -P` lists",
         f"files that aren't deleted; {UNREAD}"),
    Tool("usnjls", journal_rows, {"usnjls": "sleuthkit"}, version("usnjls", "-V"),
         frozenset({"id"}), "names of the bin's form in the change journal",
         f"what the journal has given up; users; {UNREAD}"),
]
