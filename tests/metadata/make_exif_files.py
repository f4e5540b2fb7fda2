#!/usr/bin/env python3
"""Writes small JPEG and TIFF files of both byte orders, has exiftool put known capture
metadata into them, and lists the values in manifest.tsv for the reading tests.

Usage: make_exif_files.py OUTPUT_DIR
"""
import math
import os
import shutil
import struct
import subprocess
import sys


def tiny_jpeg():
    """An 8x8 mid-grey baseline JPEG: one block whose DC difference and AC run are both
    coded by the one-bit code 0."""
    def seg(marker, body):
        return struct.pack(">BBH", 0xFF, marker, len(body) + 2) + body
    dqt = b"\x00" + bytes([1] * 64)
    sof = struct.pack(">BHHB", 8, 8, 8, 1) + b"\x01\x11\x00"
    dht_dc = b"\x00" + bytes([1] + [0] * 15) + b"\x00"
    dht_ac = b"\x10" + bytes([1] + [0] * 15) + b"\x00"
    sos = b"\x01\x01\x00\x00\x3f\x00"
    return (b"\xff\xd8" + seg(0xDB, dqt) + seg(0xC0, sof) + seg(0xC4, dht_dc)
            + seg(0xC4, dht_ac) + seg(0xDA, sos) + b"\x3f" + b"\xff\xd9")


def tiny_tiff(order):
    """A 1x1 8-bit grey uncompressed TIFF in byte order '<' (II) or '>' (MM)."""
    head = (b"II" if order == "<" else b"MM") + struct.pack(order + "HI", 42, 8)
    entries = [(256, 3, 1, 1), (257, 3, 1, 1), (258, 3, 1, 8), (259, 3, 1, 1),
               (262, 3, 1, 1), (273, 4, 1, 0), (277, 3, 1, 1), (278, 3, 1, 1),
               (279, 4, 1, 1)]
    ifd_len = 2 + 12 * len(entries) + 4
    pixel_at = 8 + ifd_len
    ifd = struct.pack(order + "H", len(entries))
    for tag, typ, count, value in entries:
        if tag == 273:
            value = pixel_at
        if typ == 3:
            ifd += struct.pack(order + "HHIHH", tag, typ, count, value, 0)
        else:
            ifd += struct.pack(order + "HHII", tag, typ, count, value)
    ifd += struct.pack(order + "I", 0)
    return head + ifd + b"\x80"


# name, base kind, EXIF byte order, tag values, expected exposure, f-number, ISO.
# The last file has only the APEX shutter and aperture values: the exposure comes back
# from the shutter value, and the aperture value is kept as the APEX number it is.
FILES = [
    ("le.jpg", "jpeg", "II", {"ExposureTime": "1/125", "FNumber": "5.6", "ISO": "400"},
     1 / 125, 5.6, 400),
    ("be.jpg", "jpeg", "MM", {"ExposureTime": "2.5", "FNumber": "11", "ISO": "3200"},
     2.5, 11.0, 3200),
    ("le.tif", "tiff<", None, {"ExposureTime": "1/4000", "FNumber": "1.4", "ISO": "100"},
     1 / 4000, 1.4, 100),
    ("be.tif", "tiff>", None, {"ExposureTime": "1/30", "FNumber": "8", "ISO": "800"},
     1 / 30, 8.0, 800),
    ("apex.tif", "tiff>", None, {"ShutterSpeedValue": "1/60", "ApertureValue": "2.8",
                                 "ISO": "200"},
     1 / 60, 2 * math.log2(2.8), 200),
]

COMMON = {
    "DateTimeOriginal": "2024:05:17 10:20:30",
    "FocalLength": "35",
    "FocalLengthIn35mmFormat": "52",
    "FocalPlaneXResolution": "4000",
    "FocalPlaneResolutionUnit": "3",
    "Model": "Fixture Cam",
    "GPSLatitude": "48 51 24",
    "GPSLatitudeRef": "N",
    "GPSLongitude": "2 21 8",
    "GPSLongitudeRef": "W",
    "GPSAltitude": "35",
    "GPSAltitudeRef": "1",
    "GPSTimeStamp": "12:34:56",
    "GPSDateStamp": "2024:05:17",
}


def main():
    out = sys.argv[1]
    tool = shutil.which("exiftool")
    if tool is None:
        sys.exit("exiftool not found: install libimage-exiftool-perl")
    os.makedirs(out, exist_ok=True)
    rows = []
    for name, kind, order, tags, exposure, fnumber, iso in FILES:
        path = os.path.join(out, name)
        with open(path, "wb") as f:
            f.write(tiny_jpeg() if kind == "jpeg" else tiny_tiff(kind[-1]))
        args = [tool, "-q", "-overwrite_original"]
        if order:
            args.append("-ExifByteOrder=" + order)
        values = dict(COMMON, **tags)
        # Codes are given as the numbers they are stored as ("#="); everything else, the
        # APEX tags included, goes through the tool's own conversion of readable values.
        for tag, value in values.items():
            sep = "#=" if tag in ("GPSAltitudeRef", "FocalPlaneResolutionUnit") else "="
            args.append("-%s%s%s" % (tag, sep, value))
        args.append(path)
        subprocess.run(args, check=True)
        rows.append("\t".join([name, repr(exposure), repr(fnumber), str(iso)]))
    with open(os.path.join(out, "manifest.tsv"), "w") as f:
        f.write("\n".join(rows) + "\n")


if __name__ == "__main__":
    main()
