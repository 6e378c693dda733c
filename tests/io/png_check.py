#!/usr/bin/env python3
"""An independent PNG reader for the tests: decodes each given PNG with Python's zlib and the
filter rules of the PNG standard, and compares its samples with the raw file beside it
(<name>.raw: the samples as the test wrote them, 16-bit ones big-endian). Prints one line
per file and exits 1 on the first difference."""
import struct
import sys
import zlib


def decode(data):
    if data[:8] != b'\x89PNG\r\n\x1a\n':
        raise ValueError('no PNG signature')
    pos, idat, header = 8, b'', None
    while pos < len(data):
        length, kind = struct.unpack('>I4s', data[pos:pos + 8])
        body = data[pos + 8:pos + 8 + length]
        crc = struct.unpack('>I', data[pos + 8 + length:pos + 12 + length])[0]
        if zlib.crc32(kind + body) & 0xffffffff != crc:
            raise ValueError('bad CRC in ' + kind.decode())
        if kind == b'IHDR':
            header = struct.unpack('>IIBBBBB', body)
        elif kind == b'IDAT':
            idat += body
        pos += 12 + length
    width, height, depth, colour, _, _, interlace = header
    channels = {0: 1, 4: 2, 2: 3, 6: 4}[colour]
    bpp = channels * depth // 8
    stride = width * bpp
    raw = zlib.decompress(idat)
    out, above = bytearray(), bytearray(stride)
    for y in range(height):
        kind = raw[y * (stride + 1)]
        row = bytearray(raw[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
        for i in range(stride):
            a = row[i - bpp] if i >= bpp else 0
            b = above[i]
            c = above[i - bpp] if i >= bpp else 0
            if kind == 1:
                row[i] = (row[i] + a) & 255
            elif kind == 2:
                row[i] = (row[i] + b) & 255
            elif kind == 3:
                row[i] = (row[i] + (a + b) // 2) & 255
            elif kind == 4:
                p = a + b - c
                pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
                row[i] = (row[i] + (a if pa <= pb and pa <= pc else b if pb <= pc else c)) & 255
            elif kind != 0:
                raise ValueError('unknown filter %d' % kind)
        out += row
        above = row
    return bytes(out)


for path in sys.argv[1:]:
    with open(path, 'rb') as f:
        samples = decode(f.read())
    with open(path + '.raw', 'rb') as f:
        expected = f.read()
    if samples != expected:
        print('%s: samples differ' % path)
        sys.exit(1)
    print('%s: ok' % path)
