#!/usr/bin/env python3
"""Reads a bag with Python's standard library alone: read_bag.py BAG [TOPIC OUT]

Lists the topics with their messages and payload bytes, or writes the payloads of one topic into OUT, each as
a 4-byte little-endian length and the bytes. Walks the chunks from the start, so it needs no index. LZ4 and
Zstandard have no decoder in the standard library: it says so where a bag needs one.
docs/format.md explains the layout.
"""
import struct
import sys
import zlib

HEADER_BYTES = 4096
DEFINITION, TOPIC_DATA, INDEX = 0, 1, 255


def read_header(bag):
    header = bag.read(HEADER_BYTES)
    if len(header) < HEADER_BYTES or header[:4] != b"KBAG":
        raise ValueError("not a bag")
    if zlib.crc32(header[:4092]) != struct.unpack_from("<I", header, 4092)[0]:
        raise ValueError("the header's checksum is wrong")
    return header


def chunks(bag, file_size):
    """Yields (type, header, stored data, is compressed) from the current position to the index chunk."""
    while (offset := bag.tell()) + 16 <= file_size:
        _, kind, header_size = struct.unpack("<IHH", bag.read(8))
        if header_size < 12 or offset + 16 + header_size > file_size:
            raise ValueError(f"damaged chunk at {offset:#x}")
        header = bag.read(header_size)
        (data_size,) = struct.unpack("<I", bag.read(4))
        if offset + 16 + header_size + data_size > file_size:
            raise ValueError(f"the chunk at {offset:#x} is cut off")
        data = bag.read(data_size)
        if zlib.crc32(data) != struct.unpack("<I", bag.read(4))[0]:
            raise ValueError(f"the checksum of the chunk at {offset:#x} is wrong")
        (raw_size,) = struct.unpack_from("<I", header, 8)
        yield kind, header, data, raw_size != data_size
        if kind == INDEX:
            return


def topic_names(records):
    names = {}
    for at in range(0, len(records), 64):
        topic_id, name = struct.unpack_from("<I60s", records, at)
        names.setdefault(topic_id, name.split(b"\0")[0].decode())
    return names


def main(path, wanted=None, out_path="/dev/null"):
    totals = {}
    with open(path, "rb") as bag, open(out_path, "wb") as out:
        file_size = bag.seek(0, 2)
        bag.seek(0)
        has_codec = read_header(bag)[5] in (2, 3)
        for kind, header, data, differs in chunks(bag, file_size):
            is_compressed = has_codec and differs
            if is_compressed and (kind == DEFINITION or wanted is not None):
                raise ValueError("the bag is compressed: that needs a decoder")
            if kind == DEFINITION:
                names = topic_names(data)
            elif kind == TOPIC_DATA:
                raw_size, count = struct.unpack_from("<II", header, 8)
                name = names[struct.unpack_from("<I", header, 32)[0]]
                samples, messages, size = totals.get(name, (0, 0, 0))
                totals[name] = (samples + count, messages + 1, size + raw_size)
                if name == wanted:
                    out.write(struct.pack("<I", len(data)) + data)
    if wanted is None:
        for name, (samples, messages, size) in sorted(totals.items()):
            print(f"{name} {samples} samples, {messages} messages, {size} bytes")


if __name__ == "__main__":
    if len(sys.argv) not in (2, 4):
        sys.exit(__doc__)
    try:
        main(*sys.argv[1:])
    except (OSError, ValueError, KeyError) as problem:
        sys.exit(f"{sys.argv[1]}: {problem}")
