// Decodes the PNG images Chromium hands out for screenshots and screencast
// frames (8-bit RGB or RGBA, not interlaced) into premultiplied BGRA rows, the
// layout a Windows 32-bit top-down DIB section takes as it is.
import zlib from 'node:zlib';

const SIGNATURE = Buffer.from([0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a]);

function readChunks(png) {
  if (png.length < 8 || !png.subarray(0, 8).equals(SIGNATURE)) throw new Error('not a PNG image');
  const chunks = { header: null, data: [] };
  for (let at = 8; at + 8 <= png.length;) {
    const length = png.readUInt32BE(at);
    const type = png.toString('latin1', at + 4, at + 8);
    const body = png.subarray(at + 8, at + 8 + length);
    if (type === 'IHDR') chunks.header = body;
    else if (type === 'IDAT') chunks.data.push(body);
    else if (type === 'IEND') break;
    at += 12 + length;
  }
  if (!chunks.header) throw new Error('PNG image without a header');
  return chunks;
}

function paeth(a, b, c) {
  const p = a + b - c;
  const pa = Math.abs(p - a);
  const pb = Math.abs(p - b);
  const pc = Math.abs(p - c);
  if (pa <= pb && pa <= pc) return a;
  return pb <= pc ? b : c;
}

// Undoes the per-row filters in place; returns the raw samples without the filter bytes.
function unfilter(raw, width, height, channels) {
  const stride = width * channels;
  const out = Buffer.alloc(stride * height);
  for (let y = 0; y < height; y++) {
    const filter = raw[y * (stride + 1)];
    const line = raw.subarray(y * (stride + 1) + 1, (y + 1) * (stride + 1));
    const row = y * stride;
    const up = row - stride;
    for (let x = 0; x < stride; x++) {
      const left = x >= channels ? out[row + x - channels] : 0;
      const above = y > 0 ? out[up + x] : 0;
      const corner = y > 0 && x >= channels ? out[up + x - channels] : 0;
      let value = line[x];
      if (filter === 1) value += left;
      else if (filter === 2) value += above;
      else if (filter === 3) value += (left + above) >> 1;
      else if (filter === 4) value += paeth(left, above, corner);
      else if (filter !== 0) throw new Error(`unknown PNG filter ${filter}`);
      out[row + x] = value & 0xff;
    }
  }
  return out;
}

/** Returns { width, height, pixels } with pixels as premultiplied BGRA, top row first. */
export function decodePng(png) {
  const { header, data } = readChunks(png);
  const width = header.readUInt32BE(0);
  const height = header.readUInt32BE(4);
  const depth = header[8];
  const colourType = header[9];
  const interlaced = header[12];
  if (depth !== 8 || interlaced !== 0 || (colourType !== 2 && colourType !== 6)) {
    throw new Error(`unsupported PNG (depth ${depth}, colour type ${colourType}, interlace ${interlaced})`);
  }
  const channels = colourType === 6 ? 4 : 3;
  const samples = unfilter(zlib.inflateSync(Buffer.concat(data)), width, height, channels);
  const pixels = Buffer.alloc(width * height * 4);
  for (let i = 0, o = 0; o < pixels.length; i += channels, o += 4) {
    const alpha = channels === 4 ? samples[i + 3] : 255;
    if (alpha === 255) {
      pixels[o] = samples[i + 2];
      pixels[o + 1] = samples[i + 1];
      pixels[o + 2] = samples[i];
    } else if (alpha !== 0) {
      pixels[o] = Math.round((samples[i + 2] * alpha) / 255);
      pixels[o + 1] = Math.round((samples[i + 1] * alpha) / 255);
      pixels[o + 2] = Math.round((samples[i] * alpha) / 255);
    }
    pixels[o + 3] = alpha;
  }
  return { width, height, pixels };
}
