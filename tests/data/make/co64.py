"""Turns the 32-bit chunk offset tables of an MP4 file into 64-bit ones.

usage: co64.py input.mp4 output.mp4

ffmpeg writes 'co64' only for offsets beyond 4 GiB.
"""
import sys

import boxes

source, target = sys.argv[1:]
document = boxes.read(source)
for track in boxes.tracks(document):
    offsets = boxes.child(track, b"mdia", b"minf", b"stbl", b"stco")
    offsets[:] = [b"co64", boxes.full_table(boxes.table(offsets[1], 1), "Q")]
boxes.write(target, document)
