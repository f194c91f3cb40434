"""The version block of a program or module."""

import struct
from typing import NamedTuple

FIXED_VERSION = struct.pack("<I", 0xFEEF04BD)
FILE_VERSION_AT = 8
PRODUCT_VERSION_AT = 16
TRANSLATION = "Translation".encode("utf-16le")


class VersionBlock(NamedTuple):
    """What Windows tells versions apart by; both versions are four numbers with dots between them."""

    file: str
    product: str
    language: int


def _dotted(data, at):
    minor, major, revision, build = struct.unpack_from("<4H", data, at)
    return f"{major}.{minor}.{build}.{revision}"


def version_block(data):
    """The version block in the bytes of a file; nothing where there is none, or the file is no program."""
    at = data.find(FIXED_VERSION)
    if data[:2] != b"MZ" or at < 0:
        return None
    after = data.index(TRANSLATION, at) + len(TRANSLATION)
    language = struct.unpack_from("<H", data, (after + 2 - at + 3) // 4 * 4 + at)[0]
    return VersionBlock(_dotted(data, at + FILE_VERSION_AT), _dotted(data, at + PRODUCT_VERSION_AT), language)
