// The bridge's PNG decoder: every row filter, RGB and RGBA, premultiplied BGRA out.
import assert from 'node:assert/strict';
import test from 'node:test';
import zlib from 'node:zlib';
import { decodePng } from '../../chromium_runtime/bridge/png.mjs';

function crcTable() {
  const table = new Uint32Array(256);
  for (let n = 0; n < 256; n++) {
    let c = n;
    for (let k = 0; k < 8; k++) c = c & 1 ? 0xedb88320 ^ (c >>> 1) : c >>> 1;
    table[n] = c >>> 0;
  }
  return table;
}
const CRC = crcTable();
function crc32(buffer) {
  let c = 0xffffffff;
  for (const byte of buffer) c = CRC[(c ^ byte) & 0xff] ^ (c >>> 8);
  return (c ^ 0xffffffff) >>> 0;
}

function chunk(type, body) {
  const head = Buffer.alloc(8);
  head.writeUInt32BE(body.length, 0);
  head.write(type, 4, 'latin1');
  const tail = Buffer.alloc(4);
  tail.writeUInt32BE(crc32(Buffer.concat([head.subarray(4), body])), 0);
  return Buffer.concat([head, body, tail]);
}

function paeth(a, b, c) {
  const p = a + b - c;
  const pa = Math.abs(p - a), pb = Math.abs(p - b), pc = Math.abs(p - c);
  return pa <= pb && pa <= pc ? a : pb <= pc ? b : c;
}

// Encodes rows of samples, row y with filter filters[y], as an encoder would.
function encodePng(width, height, channels, samples, filters) {
  const stride = width * channels;
  const raw = Buffer.alloc((stride + 1) * height);
  for (let y = 0; y < height; y++) {
    const filter = filters[y % filters.length];
    raw[y * (stride + 1)] = filter;
    for (let x = 0; x < stride; x++) {
      const value = samples[y * stride + x];
      const left = x >= channels ? samples[y * stride + x - channels] : 0;
      const above = y > 0 ? samples[(y - 1) * stride + x] : 0;
      const corner = y > 0 && x >= channels ? samples[(y - 1) * stride + x - channels] : 0;
      const predicted = [0, left, above, (left + above) >> 1, paeth(left, above, corner)][filter];
      raw[y * (stride + 1) + 1 + x] = (value - predicted) & 0xff;
    }
  }
  const header = Buffer.alloc(13);
  header.writeUInt32BE(width, 0);
  header.writeUInt32BE(height, 4);
  header[8] = 8;
  header[9] = channels === 4 ? 6 : 2;
  return Buffer.concat([Buffer.from([0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a]), chunk('IHDR', header),
    chunk('IDAT', zlib.deflateSync(raw)), chunk('IEND', Buffer.alloc(0))]);
}

function samplesOf(width, height, channels) {
  const samples = Buffer.alloc(width * height * channels);
  for (let i = 0; i < samples.length; i++) samples[i] = (i * 37 + (i >> 3) * 11) & 0xff;
  return samples;
}

test('every row filter decodes to the original RGBA, premultiplied and in BGRA order', () => {
  const width = 7, height = 10;
  const samples = samplesOf(width, height, 4);
  const { width: w, height: h, pixels } = decodePng(encodePng(width, height, 4, samples, [0, 1, 2, 3, 4]));
  assert.equal(w, width);
  assert.equal(h, height);
  for (let i = 0; i < width * height; i++) {
    const [r, g, b, a] = samples.subarray(i * 4, i * 4 + 4);
    const premultiplied = (value) => (a === 255 ? value : a === 0 ? 0 : Math.round((value * a) / 255));
    assert.deepEqual([...pixels.subarray(i * 4, i * 4 + 4)], [premultiplied(b), premultiplied(g), premultiplied(r), a], `pixel ${i}`);
  }
});

test('an RGB image is opaque', () => {
  const samples = samplesOf(3, 4, 3);
  const { pixels } = decodePng(encodePng(3, 4, 3, samples, [4, 2]));
  for (let i = 0; i < 12; i++) {
    assert.deepEqual([...pixels.subarray(i * 4, i * 4 + 4)], [samples[i * 3 + 2], samples[i * 3 + 1], samples[i * 3], 255]);
  }
});

test('a fully transparent pixel is all zero, whatever its colour', () => {
  const samples = Buffer.from([200, 100, 50, 0, 10, 20, 30, 255]);
  const { pixels } = decodePng(encodePng(2, 1, 4, samples, [0]));
  assert.deepEqual([...pixels], [0, 0, 0, 0, 30, 20, 10, 255]);
});

test('what is not an 8-bit RGB or RGBA PNG is refused', () => {
  assert.throws(() => decodePng(Buffer.from('not a png at all')), /not a PNG/);
  const png = encodePng(1, 1, 4, Buffer.from([1, 2, 3, 4]), [0]);
  png[8 + 8 + 8] = 16;  // bit depth in IHDR
  assert.throws(() => decodePng(png), /unsupported PNG/);
});
