"""This project's program, in each of its modes. Rows are read as docs/output.md says."""

import os
import re

from .common import BINS, INDEX_NAME, ITEM_NAME, Tool, number, row_of, run

TREE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
PROGRAM = os.environ.get("VESKIT", os.path.join(TREE, "build/release/src/veskit"))
FORM = ["-quiet", "-csvgen", "-base10", "-csv_separator", "|"]
HEADER_LINES = 3
ON_VOLUME = re.compile(r'\{(.*?)=\["inode":"(\d+)";"parent_inode":"\d+"\]')
IN_FOLDER = re.compile(r'"trash_file":"(.*?)"')


def row_from(line):
    cells = line.split("|")
    if len(cells) != 11:
        return {"raw": line} # states nothing, so it counts as invented
    path, user, source = cells[7:10]
    row = row_of(deleted=cells[0].strip().replace(" ", "T"), size=number(cells[5]), raw=line)
    # The column holds the folder that the metadata is in, "usually the user's".
    if user and user.casefold() not in BINS:
        row["user"] = user
    if match := re.search(r'"src":"(.*?)"', source):
        row["metadata_name"] = match[1]
    is_data_alone = not path or path.startswith("<unk path - ")
    if (match := re.search(r'"rec#":"(\d+)"', source)) and not is_data_alone:
        row["number"] = int(match[1])
    member = add_item(row, source)
    if not is_data_alone:
        # A file in a deleted folder has the folder's path and the rest.
        row["path"] = path[:-len(member) - 1] if member else path
    return row


def add_item(row, source):
    """Adds what the source says about metadata and data item, and returns the path below it."""
    match = ON_VOLUME.match(source) or IN_FOLDER.search(source)
    if not match:
        return ""
    on_volume = match.re is ON_VOLUME
    parts = re.split(r"[\\/]" if on_volume else "/", match[1])
    at = next((at for at, part in enumerate(parts) if at > 0 and ITEM_NAME.fullmatch(part)
               and part.casefold() not in BINS), None)
    if at is None:
        return ""
    member = "\\".join(parts[at + 1:])
    is_index = INDEX_NAME.fullmatch(parts[at])
    row["metadata_name" if is_index else "data_name"] = parts[at]
    if member:
        row["member"] = member.rstrip("\\")
        row.pop("size", None) # the member's own
    elif on_volume:
        row["entry" if is_index else "data_entry"] = int(match[2])
    return member


def rows_of(arguments, **options):
    output, _ = run([PROGRAM, *FORM, *arguments], **options)
    lines = output.decode("utf-8", errors="surrogatepass").split("\n")
    return [row_from(line) for line in lines[HEADER_LINES + 1:] if line]


def image(*options):
    return lambda case: [row for offset, _ in case.volumes() for row in rows_of(
        ["-image", case.medium, "-offset", str(offset), *options])]


def rawscan_volumes(case):
    return [row for volume in case.volumes() for row in rows_of(
        ["-image", case.volume_file(volume), "-rawscan"])]


def mftfile(case):
    rows = []
    for volume in case.volumes():
        copy = os.path.join(case.work, "mft")
        with open(copy, "wb") as mft:
            mft.write(case.content(volume, 0))
        rows += rows_of(["-mftfile", copy])
    return rows


def files_of_bins(case):
    return sorted(os.path.join(folder, name) for folder, _, names in os.walk(case.bins())
                  for name in names)


def each_file(case):
    return [row for path in files_of_bins(case) if INDEX_NAME.fullmatch(os.path.basename(path))
            for row in rows_of(["-file", path])]


def pipe(case):
    return rows_of(["-pipe"], stdin=None, input="\n".join(files_of_bins(case)).encode() + b"\n")


def version():
    first_line = run([PROGRAM, "-quiet", "-file", "-"])[0].decode()
    return first_line.partition("ver: ")[2].partition(",")[0]


def tool(name, rows, about, blind, pairs=True, extracts=()):
    programs = {PROGRAM: "veskit (make)"}
    programs |= {program: "sleuthkit" for program in extracts}
    tells = {"deleted", "path", "size", "user", "id"} | ({"pairing"} if pairs else set())
    return Tool(name, rows, programs, version, frozenset(tells), about, blind)


VSS, FREE = "-include_vss_clusters", "-include_unalloc_clusters"
TSK = ("fls", "icat")
TOOLS = [
    tool("veskit", image(VSS, FREE), f"`-image` with `{VSS}` and `{FREE}`, once a volume",
         "names that are only in the slack of an index, and the change journal"),
    tool("veskit-image", image(), "`-image` alone, once a volume", "what free clusters hold"),
    tool("veskit-no_mirel", image("-no_mirel"), "`-image` with `-no_mirel`, once a volume",
         "what free clusters hold"),
    tool("veskit-rawscan", lambda case: rows_of(["-image", case.medium, "-rawscan"]),
         "`-rawscan` over the whole medium", "which volume a record is from"),
    tool("veskit-rawscan-volume", rawscan_volumes, "`-rawscan` over a copy of each volume",
         "what lies outside of the volumes"),
    tool("veskit-mftfile", mftfile, "`-mftfile` on the `$MFT` that `icat` takes out",
         "anything that isn't resident", extracts=TSK),
    tool("veskit-enumdir", lambda case: rows_of(["-enumdir", case.bins(), "-num_subdirs", "200"]),
         "`-enumdir` on the bins as a mount shows them", "deleted files", extracts=TSK),
    tool("veskit-pipe", pipe, "`-pipe` with the list of the files of these bins", "deleted files",
         extracts=TSK),
    tool("veskit-file", each_file, "`-file` on each metadata file of these bins",
         "deleted files; data items", pairs=False, extracts=TSK),
]
