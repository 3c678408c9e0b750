// The npm package in Node: what it makes of pages that are drawn here, its errors, and its workers.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { existsSync, mkdtempSync, readFileSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { test } from 'node:test';

import { Pool, RastrelError, load } from '../../web/src/rastrel.mjs';

const rastrel = await load();

// A sheet of lines that rise by `slope` to the right, with a dark border at the left, two holes and a few specks.
function scan({ width = 1240, height = 1754, slope = 0.03 } = {}) {
  const data = new Uint8Array(width * height).fill(245);
  const paint = (x, y, grey) => {
    if (x >= 0 && x < width && y >= 0 && y < height) data[y * width + x] = grey;
  };
  for (let line = 200; line < height - 200; line += 32) {
    for (let x = 220; x < width - 120; ++x) {
      const isLetter = x % 14 < 10 && Math.floor(x / 14) % 6 !== 5;
      for (let y = 0; isLetter && y < 14; ++y) if (y < 3 || y > 10 || x % 14 < 3) paint(x, line + y - Math.round(slope * x), 20);
    }
  }
  for (let y = 0; y < height; ++y) for (let x = 0; x < 40; ++x) paint(x, y, 8);
  for (const at of [500, 1200]) {
    for (let y = -18; y <= 18; ++y) for (let x = -18; x <= 18; ++x) if (x * x + y * y <= 324) paint(110 + x, at + y, 8);
  }
  for (const [x, y] of [[700, 60], [300, 90], [1180, 800], [1190, 1300], [650, 1700]]) paint(x, y, 10);
  return { width, height, data, format: 'grey', dpi: 150 };
}
const lines = { width: 64, height: 3, format: 'bits', data: new Uint8Array(24).fill(0x0f) };

test('a page is straightened and cleaned, and the record tells', () => {
  const before = scan();
  const copy = before.data.slice();
  const steps = [];
  const { image, record, overlay } = rastrel.clean(before, { overlay: true, progress: (step) => void steps.push(step) });
  assert.deepEqual(before.data, copy);
  assert.ok(Math.abs(record.skew - (Math.atan(0.03) * 180) / Math.PI) < 0.1, `skew ${record.skew}`);
  assert.equal(record.turned, true);
  assert.equal(record.holes, 2);
  assert.ok(record.trimmedLeft >= 39 * before.height);
  assert.ok(record.specks >= 3);
  assert.deepEqual([image.width, image.height, image.format], [record.width, record.height, 'grey']);
  assert.deepEqual([overlay.width, overlay.height, overlay.format], [1240, 1754, 'rgb']);
  assert.ok(steps.length > 2);
  assert.equal(rastrel.clean(before, { deskew: 'off', holes: false }).record.turned, false);
});

test('what the native command makes of a page is the same to the byte', (t) => {
  const command = process.env.RASTREL_COMMAND ?? '';
  if (!existsSync(command)) return t.skip('RASTREL_COMMAND names no command');
  const folder = mkdtempSync(join(tmpdir(), 'rastrel-'));
  const page = scan();
  for (const [name, options, words] of [['plain', {}, []], ['white', { paper: 'white', flatten: true, cropSheet: true },
    ['--paper', 'white', '--flatten', '--crop-sheet']], ['bits', { reduce: 'auto' }, ['--reduce', 'auto']]]) {
    const [input, output] = [join(folder, 'in.bmp'), join(folder, `${name}.bmp`)];
    writeFileSync(input, bmpOf(page));
    execFileSync(command, ['clean', input, '-o', output, '-q', ...words]);
    const { image } = rastrel.clean(page, options);
    const native = pixelsOf(readFileSync(output));
    assert.deepEqual([image.width, image.height], [native.width, native.height], name);
    assert.equal(Buffer.from(image.data).equals(native.data), true, `${name}: other pixels`);
  }
});

test('operations', () => {
  const { width, height, data } = rastrel.apply(lines, 'turn', { quarters: 1 });
  assert.deepEqual([width, height], [3, 64]);
  // Columns of four black, four white, from right to left, become rows from the top.
  assert.deepEqual([...data.slice(0, 8)].map((row) => row >> 5), [7, 7, 7, 7, 0, 0, 0, 0]);
  assert.deepEqual([...rastrel.apply(lines, 'invert').data.slice(0, 2)], [0xf0, 0xf0]);
  const [upper, lower] = rastrel.cut(lines, 1);
  assert.deepEqual([upper.height, lower.height], [1, 2]);
  const tiles = rastrel.split(lines, 32, 3);
  assert.deepEqual(rastrel.merge(tiles, 2).data, new Uint8Array(lines.data));
  assert.equal(rastrel.apply(scan(), 'halftone').format, 'bits');
  const onto = { ...lines, data: new Uint8Array(24).fill(0xff) };
  assert.deepEqual(rastrel.combine(onto, lines, { how: 'and' }).data, new Uint8Array(lines.data));
  const rgba = { width: 1, height: 1, data: new Uint8ClampedArray([255, 0, 0, 0]) };
  assert.deepEqual([...rastrel.apply(rgba, 'flip', { direction: 'h' }).data], [255, 255, 255]); // alpha goes over white
  const up = [1, 2, 4, 6, 8, 8];
  up.slice(1).forEach((next, i) => assert.deepEqual(rastrel.zoom([up[i], 1], 'in'), [10 * next, 10]));
});

test('what cannot be is refused, and nothing is left behind', () => {
  const page = scan();
  const failures = [
    [() => rastrel.clean({ ...page, height: page.height + 1 }), RangeError],
    [() => rastrel.clean({ ...page, format: 'cmyk' }), RangeError],
    [() => rastrel.clean(page, { despeckle: true }), RangeError],
    [() => rastrel.clean(page, { text: 'green' }), RangeError],
    [() => rastrel.clean(page, { speckLevel: 101 }), RastrelError],
    [() => rastrel.apply(page, 'crop', { left: 5000, top: 0 }), RastrelError],
    [() => rastrel.apply(page, 'toString'), RangeError],
    [() => rastrel.apply(page, 'turn'), RangeError],
    [() => rastrel.clean(page, { progress: () => false }), { name: 'AbortError' }],
    [() => rastrel.clean(page, { progress: () => { throw new TypeError('mine'); } }), TypeError],
  ];
  for (const [act, kind] of failures) assert.throws(act, kind);
  const before = rastrel.memory;
  for (let i = 0; i < 20; ++i) for (const [act] of failures) assert.throws(act);
  assert.equal(rastrel.memory, before);
});

test('memory may grow at any moment', async () => {
  for (const [width, height] of [[600, 800], [1240, 1754], [2480, 3508]]) {
    const fresh = await load();
    const page = { width, height, format: 'rgb', data: new Uint8Array(3 * width * height).fill(240), dpi: 300 };
    const { image, overlay } = fresh.clean(page, { overlay: true });
    assert.deepEqual([image.width, image.height, overlay.width, overlay.height], [width, height, width, height]);
    assert.equal(image.data.every((value) => value === 240), true);
  }
});

test('workers: several pages, cancelled ones, and an end', async () => {
  const pool = new Pool({ workers: 2 });
  const page = scan({ width: 620, height: 877 });
  const expected = rastrel.clean(page).image.data;
  const results = await Promise.all(Array.from({ length: 5 }, () => pool.clean(page)));
  for (const { image } of results) assert.deepEqual(image.data, expected);
  const stop = new AbortController();
  const running = pool.clean(page, { signal: stop.signal, progress: () => stop.abort() });
  await assert.rejects(running, { name: 'AbortError' });
  await assert.rejects(pool.clean(page, { text: 'green' }), RangeError);
  assert.equal((await pool.examine(page)).text, 'dark');
  const last = pool.clean(page);
  pool.close();
  await assert.rejects(last, { name: 'AbortError' });
});

// ---- bitmap files ----

function bmpOf({ width, height, data, dpi }) {
  const stride = (width + 3) & ~3;
  const file = Buffer.alloc(54 + 1024 + stride * height);
  file.write('BM');
  file.writeUInt32LE(file.length, 2);
  file.writeUInt32LE(54 + 1024, 10);
  file.writeUInt32LE(40, 14);
  file.writeInt32LE(width, 18);
  file.writeInt32LE(height, 22);
  file.writeUInt16LE(1, 26);
  file.writeUInt16LE(8, 28);
  for (const at of [38, 42]) file.writeInt32LE(Math.round(dpi / 0.0254), at);
  for (let i = 0; i < 256; ++i) file.writeUInt32LE(i * 0x010101, 54 + 4 * i);
  for (let y = 0; y < height; ++y) file.set(data.subarray(y * width, (y + 1) * width), 1078 + (height - 1 - y) * stride);
  return file;
}

function pixelsOf(file) {
  const [start, width, height, bits] = [file.readUInt32LE(10), file.readInt32LE(18), file.readInt32LE(22), file.readUInt16LE(28)];
  const bytes = bits === 1 ? (width + 7) >> 3 : width;
  const stride = (((width * bits + 31) >> 5) << 2);
  const data = Buffer.alloc(bytes * height);
  for (let y = 0; y < height; ++y) {
    const row = start + (height - 1 - y) * stride;
    file.copy(data, y * bytes, row, row + bytes);
    if (bits === 1 && width % 8 !== 0) data[(y + 1) * bytes - 1] &= 0xff << (8 - (width % 8));
  }
  return { width, height, data };
}
