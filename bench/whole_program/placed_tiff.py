# SPDX-License-Identifier: MIT
"""Uncompressed TIFF files with the tags XPosition, YPosition, XResolution and YResolution that remapping programs write."""
import struct

DPI = 150
SHORT, LONG, RATIONAL = 3, 4, 5
LETTERS = {SHORT: "H", LONG: "I", RATIONAL: "II"}


class TiffFields:
    """The directory's entries, and the values that are too long for them, which lie behind the samples."""

    def __init__(self, extra_at):
        self.extra_at, self.extra, self.tags = extra_at, b"", []

    def add(self, tag, kind, *values):
        """values: of a rational, pairs one after the other."""
        data = struct.pack("<" + LETTERS[kind] * (len(values) // len(LETTERS[kind])), *values)
        count = len(values) // len(LETTERS[kind])
        if len(data) > 4:
            place = self.extra_at + len(self.extra)
            self.extra += data
            data = struct.pack("<I", place)
        self.tags.append(struct.pack("<HHI", tag, kind, count) + data.ljust(4, b"\0"))

    def directory(self):
        return struct.pack("<H", len(self.tags)) + b"".join(self.tags) + struct.pack("<I", 0)


def write_tiff(name, pixels, size, place, strip=0):
    """pixels: the bytes of 8-bit samples; size: width, height, channels (3, or 4 with unassociated alpha); place: x, y in
    pixels; strip: rows of a strip, 0 = all."""
    width, height, channels = size
    rows = strip or height
    strips = [(8 + first * width * channels, min(rows, height - first) * width * channels)
              for first in range(0, height, rows)]
    fields = TiffFields(8 + len(pixels))
    fields.add(256, LONG, width)
    fields.add(257, LONG, height)
    fields.add(258, SHORT, *[8] * channels)
    fields.add(259, SHORT, 1)  # not compressed
    fields.add(262, SHORT, 2)  # RGB
    fields.add(273, LONG, *(at for at, _ in strips))
    fields.add(277, SHORT, channels)
    fields.add(278, LONG, rows)
    fields.add(279, LONG, *(count for _, count in strips))
    fields.add(282, RATIONAL, DPI, 1)
    fields.add(283, RATIONAL, DPI, 1)
    fields.add(284, SHORT, 1)
    fields.add(286, RATIONAL, place[0], DPI)
    fields.add(287, RATIONAL, place[1], DPI)
    fields.add(296, SHORT, 2)  # inches
    if channels == 4:
        fields.add(338, SHORT, 2)
    with open(name, "wb") as out:
        out.write(struct.pack("<2sHI", b"II", 42, fields.extra_at + len(fields.extra)))
        out.write(pixels)
        out.write(fields.extra + fields.directory())
