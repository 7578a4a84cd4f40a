"""What the scripts that prove and check cases read: media with holes, records and index blocks
with their update sequences undone, and the files of a case."""

import bisect
import json
import os

SECTOR = 512
PAGE = 4096
CHUNK = 1 << 20
STAMP = b"LAB\x01"
RECORD_SIZES = (1024, 2048, 4096)
BLOCK_SIZES = (512, 1024, 2048, 4096, 8192, 16384, 32768, 65536)


def u16(data, at):
    return int.from_bytes(data[at:at + 2], "little")


def u32(data, at):
    return int.from_bytes(data[at:at + 4], "little")


def u64(data, at):
    return int.from_bytes(data[at:at + 8], "little")


def utf16(text):
    """The bytes of a text in UTF-16; lone surrogates are kept."""
    return text.encode("utf-16-le", "surrogatepass")


def stamped_sector(stamp, number):
    return (STAMP + stamp.to_bytes(4, "little") + number.to_bytes(8, "little")) * 32


def stamped(stamp, size):
    """The content of a stamped file."""
    count = (size + SECTOR - 1) // SECTOR
    return b"".join(stamped_sector(stamp, number) for number in range(count))[:size]


class Medium:
    """The bytes of a medium. Only its pages with other bytes than zeros are kept, as runs."""

    def __init__(self, path):
        self.size = os.path.getsize(path)
        self.starts = []
        self.runs = []
        with open(path, "rb") as file:
            for begin, end in stored_extents(file.fileno(), self.size):
                for at in range(begin, end, CHUNK):
                    self._add(at, os.pread(file.fileno(), min(CHUNK, end - at), at))
        self.runs = [bytes(run) for run in self.runs]

    def _add(self, start, chunk):
        if not chunk.strip(b"\0"):
            return
        for at in range(0, len(chunk), PAGE):
            page = chunk[at:at + PAGE]
            if not page.strip(b"\0"):
                continue
            if not self.starts or self.starts[-1] + len(self.runs[-1]) != start + at:
                self.starts.append(start + at)
                self.runs.append(bytearray())
            self.runs[-1] += page

    def pieces(self):
        return zip(self.starts, self.runs)

    def read(self, at, count):
        """Up to `count` bytes; fewer at the end of the medium."""
        end = min(at + count, self.size)
        out = bytearray(max(0, end - at))
        number = max(0, bisect.bisect_right(self.starts, at) - 1)
        while number < len(self.starts) and self.starts[number] < end:
            start, run = self.starts[number], self.runs[number]
            first, last = max(at, start), min(end, start + len(run))
            if first < last:
                out[first - at:last - at] = run[first - start:last - start]
            number += 1
        return bytes(out)

    def copy_to(self, path, begin, size):
        """Writes a part of the medium to a file, with holes."""
        with open(path, "wb") as file:
            file.truncate(size)
            for start, run in self.pieces():
                first, last = max(begin, start), min(begin + size, start + len(run))
                if first < last:
                    os.pwrite(file.fileno(), run[first - start:last - start], first - begin)


def stored_extents(file, size):
    """The ranges of a file that aren't holes."""
    at = 0
    while at < size:
        try:
            begin = os.lseek(file, at, os.SEEK_DATA)
        except OSError: # no data after this
            return
        at = os.lseek(file, begin, os.SEEK_HOLE)
        yield begin // PAGE * PAGE, at


def undone(frame):
    """A record or an index block with its update sequence undone. A sector whose check value
    doesn't match stays as it is."""
    offset, count = u16(frame, 4), u16(frame, 6)
    out = bytearray(frame)
    value = frame[offset:offset + 2]
    if offset + 2 * count > len(frame):
        return frame
    for number in range(1, min(count, len(frame) // SECTOR + 1)):
        end = SECTOR * number
        if frame[end - 2:end] == value:
            out[end - 2:end] = frame[offset + 2 * number:offset + 2 * number + 2]
    return bytes(out)


def frames(medium, signature, record_size):
    """Yields the position and the bytes of all that begins with "FILE" or "INDX" at a multiple
    of a sector, with the update sequence undone."""
    for start, run in medium.pieces():
        at = run.find(signature)
        while at >= 0:
            if (start + at) % SECTOR == 0:
                if signature == b"FILE":
                    size = u32(run, at + 28)
                    size = size if size in RECORD_SIZES else record_size
                else: # a head of 24 bytes, and all that there is room for
                    size = 24 + u32(run, at + 32)
                    size = size if size in BLOCK_SIZES else 4096
                yield start + at, undone(medium.read(start + at, size))
            at = run.find(signature, at + 4)


def load_story(folder):
    with open(os.path.join(folder, "story.json"), encoding="utf-8") as file:
        return json.load(file)


def load_truth(folder):
    with open(os.path.join(folder, "truth.jsonl"), encoding="utf-8") as file:
        return [json.loads(line) for line in file]
