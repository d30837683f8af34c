"""Recordings written byte by byte, without the project's own writer."""

import struct
import zlib

START_US = 1_700_000_000_000_000


def varint(value):
    value &= 2**64 - 1
    out = bytearray()
    while value > 127:
        out.append(value & 127 | 128)
        value >>= 7
    return bytes(out + bytes([value]))


def number(field, value):
    return varint(field << 3) + varint(value)


def signed(field, value):
    """sint64"""
    return number(field, value << 1 ^ value >> 63)


def double(field, value):
    return varint(field << 3 | 1) + struct.pack("<d", value)


def blob(field, value):
    return varint(field << 3 | 2) + varint(len(value)) + value


def sample_header(time_us, seq=0, scale=0):
    return blob(1, number(1, time_us) + signed(2, scale) + number(3, seq))


def log_message(time_us, data, seq=0):
    """LogMsgArray of one"""
    return blob(1, sample_header(time_us, seq) + blob(2, data))


def chunk(kind, header, data):
    size = 16 + len(header) + len(data)
    return struct.pack("<IHH", size, kind, len(header)) + header + struct.pack("<I", len(data)) + data + \
        struct.pack("<I", zlib.crc32(data))


def plain_header(raw_size):
    return struct.pack("<qI", START_US, raw_size)


def record(path, topics, messages, closed=True, private=b""):
    """Writes an uncompressed recording.

    topics: names (bytes), in the order of their ids; messages: (topic id, first header time, payload), or with
    the second header time and the number of samples behind it.
    """
    definition = b"".join(struct.pack("<I60s", i, name) for i, name in sorted(enumerate(topics), key=lambda t: t[1]))
    head = chunk(0, plain_header(len(definition)), definition)
    start = offset = 4096 + len(head)
    entries = {i: [] for i in range(len(topics))}
    with open(path, "wb") as bag:
        bag.write(bytes(4096) + head)
        for topic, time_us, payload, *more in messages:
            second_us, count = more or (time_us, 1)
            fields = struct.pack("<qIIqqI", time_us, len(payload), count, time_us, second_us, topic)
            data = chunk(1, fields, payload)
            bag.write(data)
            entries[topic].append((offset, time_us, second_us, count, len(payload)))
            offset += len(data)
        index = b"".join(blob(1, topic_index(i, rows)) for i, rows in entries.items())
        if closed:
            bag.write(chunk(255, plain_header(len(index)), index))
            bag.write(b" " * (-bag.tell() % 4096))
        header = b"KBAG" + struct.pack("<BBHQQQI", 0, 0, 1, START_US, start, offset if closed else 0, len(private))
        header = (header + private).ljust(4092, b"\0")
        bag.seek(0)
        bag.write(header + struct.pack("<I", zlib.crc32(header)))


def topic_index(topic, rows):
    data = [number(1, topic)]
    if rows:
        data += [number(2, sum(row[3] for row in rows)), number(3, sum(row[4] for row in rows)),
                 number(4, min(row[1] for row in rows)), number(5, max(row[2] for row in rows)),
                 blob(6, b"".join(varint(row[0]) for row in rows))]
    for _, time_us, second_us, count, size in rows:
        data.append(blob(7, number(1, time_us) + number(2, count) + number(3, size) + number(4, time_us) +
                         number(5, second_us) + number(6, size)))
    return b"".join(data)
