"""Taking MP4 files apart into boxes with plain 32-bit sizes, and putting them together again."""
import struct

CONTAINERS = {b"moov", b"trak", b"mdia", b"minf", b"stbl"}


def parse(data):
    """Gives [kind, content]: a list of boxes for a container of sample tables, else the payload."""
    result = []
    at = 0
    while at < len(data):
        size, kind = struct.unpack_from(">I4s", data, at)
        if size < 8 or at + size > len(data):
            raise SystemExit(f"{kind!r}: box sizes other than plain 32-bit ones are not expected here")
        payload = data[at + 8 : at + size]
        result.append([kind, parse(payload) if kind in CONTAINERS else payload])
        at += size
    return result


def build(boxes):
    out = b""
    for kind, content in boxes:
        payload = build(content) if isinstance(content, list) else content
        out += struct.pack(">I4s", 8 + len(payload), kind) + payload
    return out


def child(boxes, *path):
    """The first box along the path; a list of two that can be changed in place."""
    found = next(box for box in boxes if box[0] == path[0])
    return found if len(path) == 1 else child(found[1], *path[1:])


def read(path):
    with open(path, "rb") as file:
        return parse(file.read())


def write(path, boxes):
    """Media stay where they are only when the movie box, whose size may change, is the last box."""
    if boxes[-1][0] != b"moov":
        raise SystemExit("the movie box is not the last box")
    with open(path, "wb") as file:
        file.write(build(boxes))


def tracks(boxes):
    return [box[1] for box in child(boxes, b"moov")[1] if box[0] == b"trak"]


def table(payload, fields):
    """The rows of a table of 32-bit fields behind version, flags and entry count."""
    (count,) = struct.unpack_from(">I", payload, 4)
    flat = struct.unpack_from(f">{count * fields}I", payload, 8)
    return [flat[i : i + fields] for i in range(0, len(flat), fields)]


def full_table(rows, code="I"):
    flat = [value for row in rows for value in row]
    return struct.pack(f">II{len(flat)}{code}", 0, len(rows), *flat)
