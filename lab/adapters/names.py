"""Tools that list names: which metadata and data items a bin had, without what they hold."""

import re

from .common import BINS, ITEM_NAME, Tool, lines_of, place_in_bin, row_of, run
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
        key = (user, name[2:].casefold() if name.startswith("$") else name.casefold())
        if key not in rows:
            rows[key] = row_of(user=user, raw=f"{user}/{name}")
            order.append(rows[key])
        kind = ("metadata_name", "entry") if is_index else ("data_name", "data_entry")
        if kind[0] not in rows[key]:
            rows[key] |= row_of(**{kind[0]: name, kind[1]: entry})
    return order


def fls_rows(case):
    rows = []
    for volume in case.volumes():
        listed = sorted(case.listed(volume), key=lambda file: file.deleted)
        found = [(place_in_bin(file.parts), None if file.reused else file.entry) for file in listed]
        rows += merged(found_one for found_one in found if found_one[0])
    return rows


def place_by_parent(parent, name):
    """For tools that name the folder alone: it is a user's folder or a bin, or it is lost."""
    if ITEM_NAME.fullmatch(name) and (
            parent.startswith("S-1-") or parent.casefold() in BINS
            or not parent and name.startswith("$")):
        return parent, name, ""
    return None


def undeletable(output):
    """(folder, name, entry) of each block that ntfsundelete writes about a deleted file."""
    for block in output.decode(errors="replace").split("_" * 40):
        entry = re.search(r"^MFT Record (\d+)$", block, re.MULTILINE)
        parent = re.search(r"^Parent: (.*)$", block, re.MULTILINE)
        for name in re.findall(r"^Filename: \(\d\) (.*)$", block, re.MULTILINE):
            if entry:
                yield parent[1] if parent else "", name, int(entry[1])


def undelete_rows(case):
    rows = []
    for volume in case.volumes():
        output, _ = run(["ntfsundelete", "-f", "-s", "-v", "-P", case.volume_file(volume)])
        found = [(place_by_parent(parent, name), entry)
                 for parent, name, entry in undeletable(output)]
        rows += merged(found_one for found_one in found if found_one[0])
    return rows


TOOLS = [
    Tool("fls", fls_rows, {"fls": "sleuthkit"}, version("fls", "-V"),
         frozenset({"user", "id", "pairing"}), "names in bins that `fls -r -p` lists, and names of "
         "the bin's form among its orphans", "what the metadata holds: paths, times, sizes"),
    Tool("ntfsundelete", undelete_rows, {"ntfsundelete": "ntfs-3g"}, version("ntfsundelete", "-V"),
         frozenset({"user", "id"}), "names that `ntfsundelete -s -v -P` lists with a bin's folder",
         "files that aren't deleted; what the metadata holds: paths, times, sizes"),
]
