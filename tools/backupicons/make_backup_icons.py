#!/usr/bin/env python3
"""Draws the pictures that go into a backup's "QuickLook" folder.

Writes Thumbnail.png (128 x 128), Icon.icns (PNG images of 128 and 256 pixels) and
Preview.pdf (one page) into the folder given as the only argument, by default the
repository's resources folder. Standard library only: the PNG is written with zlib, the
PDF by hand, so the pictures are ours and rebuild the same on every machine.

The picture: a white sheet with a folded corner, ruled lines and a brass seal.
"""

import math
import os
import struct
import sys
import zlib

BRASS = (181, 140, 62)
BRASS_DARK = (122, 90, 30)
INK = (70, 74, 82)
PAPER = (252, 251, 247)
EDGE = (150, 150, 150)


def inside_sheet(x, y):
    """Sheet in unit coordinates: a page of 0.62 x 0.80 with its top-right corner folded."""
    left, top, right, bottom = 0.19, 0.08, 0.81, 0.92
    fold = 0.16
    if not (left <= x <= right and top <= y <= bottom):
        return None
    if x - (right - fold) > (y - top) and x > right - fold and y < top + fold:
        return None  # Cut off by the fold.
    if x > right - fold and y < top + fold:
        return "fold"
    edge = 0.012
    if x - left < edge or right - x < edge or bottom - y < edge or y - top < edge:
        return "edge"
    if abs((x - (right - fold)) - (y - top)) < edge * 0.8:
        return "edge"
    return "paper"


def colour_at(x, y):
    """RGBA of the point (x, y) in unit coordinates, or None for transparent."""
    seal_x, seal_y, seal_r = 0.64, 0.74, 0.17
    distance = math.hypot(x - seal_x, y - seal_y)
    if distance <= seal_r:
        if distance > seal_r * 0.86 or abs(distance - seal_r * 0.62) < 0.012:
            return BRASS_DARK + (255,)
        return BRASS + (255,)
    part = inside_sheet(x, y)
    if part is None:
        return None
    if part == "edge":
        return EDGE + (255,)
    if part == "fold":
        return (228, 226, 218, 255)
    for index in range(6):
        line_y = 0.30 + index * 0.085
        line_end = 0.70 if index % 3 != 2 else 0.52
        if abs(y - line_y) < 0.011 and 0.27 <= x <= line_end:
            return INK + (255,)
    return PAPER + (255,)


def render(size, samples=4):
    """RGBA rows, each pixel the mean of samples x samples points (soft edges)."""
    rows = []
    for py in range(size):
        row = bytearray()
        for px in range(size):
            total = [0, 0, 0, 0]
            for sy in range(samples):
                for sx in range(samples):
                    x = (px + (sx + 0.5) / samples) / size
                    y = (py + (sy + 0.5) / samples) / size
                    colour = colour_at(x, y)
                    if colour is not None:
                        for i in range(3):
                            total[i] += colour[i] * colour[3]
                        total[3] += colour[3]
            alpha = total[3] / (samples * samples)
            if total[3] == 0:
                row += bytes(4)
            else:
                row += bytes(round(total[i] / total[3]) for i in range(3)) + bytes([round(alpha)])
        rows.append(bytes(row))
    return rows


def png(size):
    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body) & 0xFFFFFFFF)

    raw = b"".join(b"\x00" + row for row in render(size))
    header = struct.pack(">IIBBBBB", size, size, 8, 6, 0, 0, 0)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(raw, 9)) + chunk(b"IEND", b"")


def icns(images):
    """An icon family: 'icns', total length, then (type, length, PNG) per image."""
    body = b"".join(kind + struct.pack(">I", len(data) + 8) + data for kind, data in images)
    return b"icns" + struct.pack(">I", len(body) + 8) + body


def pdf():
    """One A4 page with the same sheet, drawn with path operators, and a caption."""
    width, height = 595, 842
    ops = []

    def rgb(colour):
        return " ".join("%.3f" % (c / 255) for c in colour)

    # Sheet (unit square mapped onto a 360-point square in the upper half of the page).
    ox, oy, scale = 117.5, 300, 360

    def point(x, y):
        return "%.2f %.2f" % (ox + x * scale, oy + (1 - y) * scale)

    ops.append(rgb(PAPER) + " rg " + rgb(EDGE) + " RG 3 w")
    ops.append(point(0.19, 0.08) + " m " + point(0.65, 0.08) + " l " + point(0.81, 0.24) + " l " +
               point(0.81, 0.92) + " l " + point(0.19, 0.92) + " l h B")
    ops.append("0.894 0.886 0.855 rg " + point(0.65, 0.08) + " m " + point(0.65, 0.24) + " l " + point(0.81, 0.24) +
               " l h B")
    ops.append(rgb(INK) + " RG 6 w")
    for index in range(6):
        line_y = 0.30 + index * 0.085
        line_end = 0.70 if index % 3 != 2 else 0.52
        ops.append(point(0.27, line_y) + " m " + point(line_end, line_y) + " l S")
    # Seal: a circle from four Bezier arcs.
    cx, cy = ox + 0.64 * scale, oy + (1 - 0.74) * scale
    for radius, colour in ((0.17 * scale, BRASS_DARK), (0.146 * scale, BRASS)):
        k = 0.5523 * radius
        ops.append(rgb(colour) + " rg")
        ops.append("%.2f %.2f m" % (cx + radius, cy))
        ops.append("%.2f %.2f %.2f %.2f %.2f %.2f c" % (cx + radius, cy + k, cx + k, cy + radius, cx, cy + radius))
        ops.append("%.2f %.2f %.2f %.2f %.2f %.2f c" % (cx - k, cy + radius, cx - radius, cy + k, cx - radius, cy))
        ops.append("%.2f %.2f %.2f %.2f %.2f %.2f c" % (cx - radius, cy - k, cx - k, cy - radius, cx, cy - radius))
        ops.append("%.2f %.2f %.2f %.2f %.2f %.2f c f" % (cx + k, cy - radius, cx + radius, cy - k, cx + radius, cy))
    ops.append("BT /F1 28 Tf " + rgb(INK) + " rg 214 220 Td (Company backup) Tj ET")
    ops.append("BT /F1 14 Tf 0.45 0.45 0.45 rg 200 192 Td (Open it to restore the company file.) Tj ET")
    content = "\n".join(ops).encode("ascii")

    objects = [
        b"<< /Type /Catalog /Pages 2 0 R >>",
        b"<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
        ("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 %d %d] /Resources << /Font << /F1 5 0 R >> >> "
         "/Contents 4 0 R >>" % (width, height)).encode("ascii"),
        b"<< /Length %d >>\nstream\n" % len(content) + content + b"\nendstream",
        b"<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>",
    ]
    out = bytearray(b"%PDF-1.4\n%\xe2\xe3\xcf\xd3\n")
    offsets = []
    for number, body in enumerate(objects, start=1):
        offsets.append(len(out))
        out += b"%d 0 obj\n" % number + body + b"\nendobj\n"
    xref = len(out)
    out += b"xref\n0 %d\n0000000000 65535 f \n" % (len(objects) + 1)
    for offset in offsets:
        out += b"%010d 00000 n \n" % offset
    out += b"trailer\n<< /Size %d /Root 1 0 R >>\nstartxref\n%d\n%%%%EOF\n" % (len(objects) + 1, xref)
    return bytes(out)


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    target = sys.argv[1] if len(sys.argv) > 1 else os.path.join(here, "..", "..", "resources")
    thumbnail = png(128)
    files = {
        "Thumbnail.png": thumbnail,
        "Icon.icns": icns([(b"ic07", thumbnail), (b"ic08", png(256))]),
        "Preview.pdf": pdf(),
    }
    for name, data in files.items():
        with open(os.path.join(target, name), "wb") as out:
            out.write(data)
        print("%s: %d bytes" % (name, len(data)))


if __name__ == "__main__":
    main()
