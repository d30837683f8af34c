"""Walks the chunks of a recording, independently of the product."""

import struct
import zlib
from dataclasses import dataclass

HEADER_BYTES = 4096
DEFINITION, MESSAGE, INDEX = 0, 1, 255


@dataclass
class Chunk:
    kind: int
    header: bytes
    data: bytes


def whole_chunks(content):
    """Every chunk up to the first that is cut off or whose checksum is wrong."""
    at = HEADER_BYTES
    while at + 12 <= len(content):
        kind, header_size = struct.unpack_from("<HH", content, at + 4)
        data_at = at + 12 + header_size
        if data_at > len(content):
            return
        (size,) = struct.unpack_from("<I", content, data_at - 4)
        end = data_at + size + 4
        if end > len(content):
            return
        data = content[data_at : end - 4]
        if zlib.crc32(data) != struct.unpack_from("<I", content, end - 4)[0]:
            return
        yield Chunk(kind, content[at + 8 : at + 8 + header_size], data)
        at = end
