"""This project's second program, on the whole medium. Rows are read from its JSON lines, whose
form docs/recyclebin.schema.json describes."""

import datetime
import json
import os

from .common import Tool, row_of, run

TREE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
PROGRAM = os.environ.get("RECYCLEBIN", os.path.join(TREE, "build/release/src/recyclebin"))
LISTS = ("INFO", "INFO2")


def list_number(own):
    """The number of the deletion's record in its list, if it has one."""
    for sighting in own["sightings"]:
        if "number" in sighting.get("metadata", {}):
            return sighting["metadata"]["number"]
    return None


def iso_time(filetime):
    """A FILETIME as truths write it, also after the year 9999."""
    seconds, ticks = divmod(filetime, 10**7)
    eras, seconds = divmod(seconds, 146097 * 86400) # of 400 years each
    time = datetime.datetime(1601, 1, 1) + datetime.timedelta(seconds=seconds)
    return f"{time.year + 400 * eras:04}{time:-%m-%dT%H:%M:%S}.{ticks:07}Z"


def rows_from(line):
    """The row of a deletion, and one for each file in a deleted folder."""
    event = json.loads(line)
    own = event["recyclebin"]
    list_name = own.get("format", "").split(" ")[0]
    deleted = event.get("@timestamp")
    if deleted is None and "deleted_filetime" in own:
        deleted = iso_time(own["deleted_filetime"])
    row = row_of(
        path=event["file"].get("path"), deleted=deleted,
        size=event["file"].get("size"), user=event.get("user", {}).get("id"),
        metadata_name=list_name if list_name in LISTS else own.get("metadata_file"),
        number=list_number(own), data_name=own.get("data_file"),
        entry=own.get("metadata_entry", [None])[0],
        data_entry=own.get("data_entry", [None])[0], raw=line)
    if "entry" in row and row.get("metadata_name") in LISTS:
        del row["entry"] # of the list, which many deletions share
    members = [{**row, "member": member} for member in own.get("members", [])]
    return [row, *members]


def rows(*options):
    def of_case(case):
        output, _ = run([PROGRAM, "list", "--format", "jsonl", *options, case.medium])
        return [row for line in output.decode().split("\n") if line for row in rows_from(line)]
    return of_case


def version():
    return run([PROGRAM, "--version"])[0].decode().split()[1]


def tool(name, options, about, blind):
    tells = frozenset({"deleted", "path", "size", "user", "id", "pairing"})
    return Tool(name, rows(*options), {PROGRAM: "recyclebin (make)"}, version, tells, about, blind)


TOOLS = [
    tool("recyclebin", ("--carve",), "`list --carve` on the whole medium", "nothing by design"),
    tool("recyclebin-quick", (), "`list` on the whole medium", "what free clusters hold"),
]
