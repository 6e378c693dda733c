#!/usr/bin/env python3
"""An independent check of written PNG files for the tests: every chunk's CRC, the IHDR size,
colour type and depth, and the image data inflated by Python's zlib (which checks its Adler-32)
to one filter byte and one row of samples per row. The program's own image reader (stb_image)
decodes the samples; this catches what it does not check. Prints one line per file and exits
1 on the first fault. Usage: png_check.py <width>x<height>x<channels>x<depth>=<file> ..."""
import struct
import sys
import zlib

for arg in sys.argv[1:]:
    shape, path = arg.split('=', 1)
    width, height, channels, depth = map(int, shape.split('x'))
    with open(path, 'rb') as f:
        data = f.read()
    assert data[:8] == b'\x89PNG\r\n\x1a\n', path + ': no PNG signature'
    pos, idat, header = 8, b'', None
    while pos < len(data):
        length, kind = struct.unpack('>I4s', data[pos:pos + 8])
        body = data[pos + 8:pos + 8 + length]
        crc = struct.unpack('>I', data[pos + 8 + length:pos + 12 + length])[0]
        assert zlib.crc32(kind + body) & 0xffffffff == crc, '%s: bad CRC in %s' % (path, kind.decode())
        if kind == b'IHDR':
            header = struct.unpack('>IIBBBBB', body)
        elif kind == b'IDAT':
            idat += body
        pos += 12 + length
    colour = {1: 0, 2: 4, 3: 2, 4: 6}[channels]
    assert header == (width, height, depth, colour, 0, 0, 0), '%s: header %s' % (path, header)
    rows = zlib.decompress(idat)
    assert len(rows) == height * (1 + width * channels * depth // 8), path + ': wrong data size'
    assert all(rows[y * (1 + width * channels * depth // 8)] <= 4 for y in range(height)), path + ': bad filter'
    print('%s: ok' % path)
