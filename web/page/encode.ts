// Pages to files. A clean page is kept as a PNG of a known shape, so that a PDF takes its compressed bytes as they are.
import type { Image } from '../src/rastrel.mjs';

const channels = { bits: 1, grey: 1, rgb: 3 };
const metresInInch = 0.0254;

export interface PngLayout {
  width: number;
  height: number;
  format: Image['format'];
  dpi: [number, number];
  start: number; // of the compressed rows
  length: number;
}

async function through(bytes: Uint8Array | Blob, stream: CompressionStream | DecompressionStream): Promise<Uint8Array> {
  const body = new Blob([bytes as BlobPart]).stream().pipeThrough(stream);
  return new Uint8Array(await new Response(body).arrayBuffer());
}
export const deflated = (bytes: Uint8Array) => through(bytes, new CompressionStream('deflate'));
export const inflated = (bytes: Blob) => through(bytes, new DecompressionStream('deflate'));

export const strideOf = (format: Image['format'], width: number): number =>
  format === 'bits' ? (width + 7) >> 3 : width * channels[format];

// ---- PNG ----

const crcTable = Uint32Array.from({ length: 256 }, (_, n) => {
  for (let k = 0; k < 8; ++k) n = n & 1 ? 0xedb88320 ^ (n >>> 1) : n >>> 1;
  return n;
});

function chunk(type: string, content: Uint8Array): Uint8Array {
  const made = new Uint8Array(content.length + 12);
  const view = new DataView(made.buffer);
  view.setUint32(0, content.length);
  for (let i = 0; i < 4; ++i) made[4 + i] = type.charCodeAt(i);
  made.set(content, 8);
  let crc = 0xffffffff;
  for (let i = 4; i < content.length + 8; ++i) crc = crcTable[(crc ^ made[i]!) & 255]! ^ (crc >>> 8);
  view.setUint32(content.length + 8, ~crc >>> 0);
  return made;
}

const colourTypes = { bits: 0, grey: 0, rgb: 2 };
const signature = [0x89, 0x50, 0x4e, 0x47, 13, 10, 26, 10];
const none = 0;
const up = 2;

// Rows as differences to the one above, which suits paper; bits as they are.
function filteredRows({ width, height, data, format }: Image): Uint8Array {
  const stride = strideOf(format, width);
  const rows = new Uint8Array((stride + 1) * height);
  for (let y = 0; y < height; ++y) {
    const from = y * stride;
    const to = y * (stride + 1) + 1;
    if (format === 'bits' || y === 0) {
      rows[to - 1] = none;
      rows.set(data.subarray(from, from + stride), to);
    } else {
      rows[to - 1] = up;
      for (let x = 0; x < stride; ++x) rows[to + x] = data[from + x]! - data[from + x - stride]!;
    }
  }
  return rows;
}

export async function png(image: Image): Promise<Blob> {
  const header = new Uint8Array(13);
  const view = new DataView(header.buffer);
  view.setUint32(0, image.width);
  view.setUint32(4, image.height);
  header[8] = image.format === 'bits' ? 1 : 8;
  header[9] = colourTypes[image.format];
  const physical = new Uint8Array(9);
  const physicalView = new DataView(physical.buffer);
  image.dpi.forEach((dpi, i) => physicalView.setUint32(4 * i, Math.round(dpi / metresInInch)));
  physical[8] = 1;
  const parts = [
    new Uint8Array(signature),
    chunk('IHDR', header),
    chunk('pHYs', physical),
    chunk('IDAT', await deflated(filteredRows(image))),
    chunk('IEND', new Uint8Array(0)),
  ];
  return new Blob(parts as BlobPart[], { type: 'image/png' });
}

// Of a PNG that was made here.
export async function layoutOf(file: Blob): Promise<PngLayout> {
  const view = new DataView(await file.slice(0, 62).arrayBuffer());
  const bits = view.getUint8(24);
  return {
    width: view.getUint32(16),
    height: view.getUint32(20),
    format: bits === 1 ? 'bits' : view.getUint8(25) === 0 ? 'grey' : 'rgb',
    dpi: [view.getUint32(41) * metresInInch, view.getUint32(45) * metresInInch],
    start: 62,
    length: view.getUint32(54),
  };
}

export async function readPng(file: Blob): Promise<Image> {
  const { width, height, format, dpi, start, length } = await layoutOf(file);
  const rows = await inflated(file.slice(start, start + length));
  const stride = strideOf(format, width);
  const data = new Uint8Array(stride * height);
  for (let y = 0; y < height; ++y) {
    const from = y * (stride + 1) + 1;
    const to = y * stride;
    data.set(rows.subarray(from, from + stride), to);
    if (rows[from - 1] === up) for (let x = 0; x < stride; ++x) data[to + x]! += data[to + x - stride]!;
  }
  return { width, height, data, format, dpi };
}

// ---- TIFF ----

const short = 3;
const long = 4;
const rational = 5;

// One strip, by Deflate, as Adobe's form of it.
export async function tiff(image: Image): Promise<Blob> {
  const { width, height, format, dpi } = image;
  const strip = await deflated(image.data);
  const dotsPerInch = dpi.map((value) => [Math.round(value * 1000), 1000]);
  const samples = channels[format];
  const entries: [number, number, number[]][] = [
    [256, long, [width]],
    [257, long, [height]],
    [258, short, Array(samples).fill(format === 'bits' ? 1 : 8)],
    [259, short, [8]],
    [262, short, [format === 'rgb' ? 2 : 1]],
    [273, long, [8]],
    [277, short, [samples]],
    [278, long, [height]],
    [279, long, [strip.length]],
    [282, rational, dotsPerInch[0]!],
    [283, rational, dotsPerInch[1]!],
    [296, short, [2]],
  ];
  const start = 8 + strip.length + (strip.length & 1);
  const directory = new Uint8Array(2 + 12 * entries.length + 4 + 64);
  const view = new DataView(directory.buffer);
  view.setUint16(0, entries.length, true);
  let free = 2 + 12 * entries.length + 4;
  entries.forEach(([tag, type, values], i) => {
    const at = 2 + 12 * i;
    const size = type === short ? 2 : 4;
    view.setUint16(at, tag, true);
    view.setUint16(at + 2, type, true);
    view.setUint32(at + 4, type === rational ? 1 : values.length, true);
    let to = at + 8;
    if (values.length * size > 4) {
      view.setUint32(to, start + free, true);
      to = free;
      free += values.length * size + ((values.length * size) & 1);
    }
    values.forEach((value, n) =>
      size === 2 ? view.setUint16(to + 2 * n, value, true) : view.setUint32(to + 4 * n, value, true),
    );
  });
  const header = new Uint8Array(8);
  header.set([0x49, 0x49, 42, 0]);
  new DataView(header.buffer).setUint32(4, start, true);
  const padding = new Uint8Array(strip.length & 1);
  return new Blob([header, strip, padding, directory.subarray(0, free)] as BlobPart[], { type: 'image/tiff' });
}

// ---- PDF ----

// One page for each PNG, whose compressed rows are the image's.
export async function pdf(pages: AsyncIterable<Blob>, title: string): Promise<Blob> {
  const parts: BlobPart[] = [];
  const offsets: number[] = [];
  let size = 0;
  const add = (part: string | Blob) => {
    const made = typeof part === 'string' ? new Blob([part]) : part;
    parts.push(made);
    size += made.size;
  };
  const object = (id: number, ...body: (string | Blob)[]) => {
    offsets[id] = size;
    add(`${id} 0 obj\n`);
    body.forEach(add);
    add('\nendobj\n');
  };
  const catalogue = 1;
  const tree = 2;
  const info = 3;
  const kids: number[] = [];
  let next = 4;
  add('%PDF-1.5\n%\xe2\xe3\xcf\xd3\n');
  for await (const page of pages) {
    const { width, height, format, dpi, start, length } = await layoutOf(page);
    const [across, down] = [width, height].map((pixels, i) => ((pixels * 72) / (dpi[i] || 300)).toFixed(3));
    const [pageId, contentId, imageId] = [next, next + 1, next + 2];
    next += 3;
    kids.push(pageId);
    object(
      pageId,
      `<< /Type /Page /Parent ${tree} 0 R /MediaBox [0 0 ${across} ${down}] /Contents ${contentId} 0 R ` +
        `/Resources << /XObject << /Page ${imageId} 0 R >> >> >>`,
    );
    const content = `q ${across} 0 0 ${down} 0 0 cm /Page Do Q`;
    object(contentId, `<< /Length ${content.length} >>\nstream\n${content}\nendstream`);
    const bits = format === 'bits' ? 1 : 8;
    object(
      imageId,
      `<< /Type /XObject /Subtype /Image /Width ${width} /Height ${height} /BitsPerComponent ${bits} ` +
        `/ColorSpace /Device${format === 'rgb' ? 'RGB' : 'Gray'} /Filter /FlateDecode /DecodeParms << /Predictor 15 ` +
        `/Colors ${channels[format]} /BitsPerComponent ${bits} /Columns ${width} >> /Length ${length} >>\nstream\n`,
      page.slice(start, start + length),
      '\nendstream',
    );
  }
  const titleBytes = [...title].map((letter) => letter.charCodeAt(0).toString(16).padStart(4, '0')).join('');
  object(catalogue, `<< /Type /Catalog /Pages ${tree} 0 R >>`);
  object(tree, `<< /Type /Pages /Count ${kids.length} /Kids [${kids.map((id) => `${id} 0 R`).join(' ')}] >>`);
  object(info, `<< /Title <feff${titleBytes}> /Producer (Rastrel) >>`);
  const table = size;
  add(`xref\n0 ${next}\n0000000000 65535 f \n`);
  for (let id = 1; id < next; ++id) add(`${String(offsets[id]).padStart(10, '0')} 00000 n \n`);
  add(`trailer\n<< /Size ${next} /Root ${catalogue} 0 R /Info ${info} 0 R >>\nstartxref\n${table}\n%%EOF\n`);
  return new Blob(parts, { type: 'application/pdf' });
}
