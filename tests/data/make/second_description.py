"""Gives the first track of an MP4 file a second sample description.

usage: second_description.py input.mp4 other.mp4 first-sample output.mp4

The description of other.mp4's first track is added to the 'stsd', and the samples from number
first-sample (counted from 1) on refer to it. A chunk that holds samples of both is split in two.
ffmpeg can change the coding parameters in the middle of a track but always writes one description.
"""
import struct
import sys

import boxes


def chunk_sample_counts(runs, chunk_count):
    counts = []
    for index, (first_chunk, samples_per_chunk, _) in enumerate(runs):
        last = runs[index + 1][0] - 1 if index + 1 < len(runs) else chunk_count
        counts += [samples_per_chunk] * (last - first_chunk + 1)
    return counts


def runs_of(chunks):
    runs = []
    for number, (_, count, description) in enumerate(chunks, 1):
        if not runs or runs[-1][1:] != (count, description):
            runs.append((number, count, description))
    return runs


def split_chunks(offsets, counts, sizes, first_of_second):
    """Gives (offset, sample count, description index) for every chunk."""
    chunks = []
    number = 1
    for offset, count in zip(offsets, counts):
        before = min(count, max(0, first_of_second - number))
        if before > 0:
            chunks.append((offset, before, 1))
        if before < count:
            skipped = sum(sizes[number - 1 : number - 1 + before])
            chunks.append((offset + skipped, count - before, 2))
        number += count
    return chunks


source, other, first_sample, target = sys.argv[1:]
document = boxes.read(source)
stbl = boxes.child(boxes.tracks(document)[0], b"mdia", b"minf", b"stbl")[1]

stsd = boxes.child(stbl, b"stsd")
added = boxes.child(boxes.tracks(boxes.read(other))[0], b"mdia", b"minf", b"stbl", b"stsd")[1]
stsd[1] = struct.pack(">II", 0, 2) + stsd[1][8:] + added[8:]

stsc, stco, stsz = (boxes.child(stbl, kind) for kind in (b"stsc", b"stco", b"stsz"))
offsets = [offset for (offset,) in boxes.table(stco[1], 1)]
counts = chunk_sample_counts(boxes.table(stsc[1], 3), len(offsets))
(sample_count,) = struct.unpack_from(">I", stsz[1], 8)
sizes = struct.unpack_from(f">{sample_count}I", stsz[1], 12)
chunks = split_chunks(offsets, counts, sizes, int(first_sample))
stsc[1] = boxes.full_table(runs_of(chunks))
stco[1] = boxes.full_table([(offset,) for offset, _, _ in chunks])
boxes.write(target, document)
