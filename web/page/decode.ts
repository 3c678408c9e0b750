// Files to pages. PNG, JPEG, WebP and BMP are the browser's; TIFF is UTIF's; PDF comes as images from pdf.ts.
import UTIF from 'utif2';
import type { AnyImage } from '../src/rastrel.mjs';
import { narrowed } from './images';

export type Kind = 'tiff' | 'png' | 'jpeg' | 'webp' | 'bmp' | 'pdf' | 'unknown';

// Why a file cannot be read; texts.ts has the sentences.
export class Unreadable extends Error {
  constructor(reason: 'unknown' | 'damaged' | 'empty' | 'locked' | 'large') {
    super(reason);
    this.name = 'Unreadable';
  }
}

const magic: [Kind, number, string][] = [
  ['tiff', 0, 'II*\0'],
  ['tiff', 0, 'MM\0*'],
  ['png', 0, '\x89PNG'],
  ['jpeg', 0, '\xff\xd8\xff'],
  ['webp', 8, 'WEBP'],
  ['bmp', 0, 'BM'],
  ['pdf', 0, '%PDF-'],
];

export async function kindOf(file: Blob): Promise<Kind> {
  if (file.size === 0) throw new Unreadable('empty');
  const head = String.fromCharCode(...new Uint8Array(await file.slice(0, 16).arrayBuffer()));
  return magic.find(([, at, text]) => head.startsWith(text, at))?.[0] ?? 'unknown';
}

// A canvas of more pixels than that is not made by all browsers.
const mostPixels = 268_000_000;

// ---- TIFF ----

type Directory = UTIF.IFD;
const number = (directory: Directory, tag: number, standard: number): number => {
  const values = directory[`t${tag}`] as number[] | undefined;
  return typeof values?.[0] === 'number' ? values[0] : standard;
};

// Whether a file's directories lie in it and end: UTIF believes what it reads.
const valueBytes = [0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8, 4];
const mostDirectories = 20_000;
function isSound(bytes: ArrayBuffer): boolean {
  const view = new DataView(bytes);
  const isLittle = view.getUint8(0) === 0x49;
  const seen = new Set<number>();
  const check = (at: number): boolean => {
    while (at !== 0) {
      if (seen.has(at) || seen.size > mostDirectories || at + 2 > bytes.byteLength) return false;
      seen.add(at);
      const count = view.getUint16(at, isLittle);
      const end = at + 2 + 12 * count;
      if (end + 4 > bytes.byteLength) return false;
      for (let entry = at + 2; entry < end; entry += 12) {
        const tag = view.getUint16(entry, isLittle);
        const values = view.getUint32(entry + 4, isLittle);
        const size = values * (valueBytes[view.getUint16(entry + 2, isLittle)] ?? 1);
        const value = view.getUint32(entry + 8, isLittle);
        if (size > 4 && value + size > bytes.byteLength) return false;
        const belongsToAnother = [330, 34665, 34853, 40965].includes(tag); // directories in directories
        if (belongsToAnother && values === 1 && !check(value)) return false;
      }
      at = view.getUint32(end, isLittle);
    }
    return true;
  };
  return bytes.byteLength >= 8 && check(view.getUint32(4, isLittle));
}

// Those that are pages: no thumbnails and no masks.
function pagesOf(bytes: ArrayBuffer): Directory[] {
  if (!isSound(bytes)) throw new Unreadable('damaged');
  let directories: Directory[];
  try {
    directories = UTIF.decode(bytes);
  } catch {
    throw new Unreadable('damaged');
  }
  const pages = directories.filter((one) => number(one, 256, 0) > 0 && (number(one, 254, 0) & 5) === 0);
  if (pages.length === 0) throw new Unreadable('damaged');
  return pages;
}

function tiffDpi(directory: Directory): [number, number] {
  const inUnits = { 2: 1, 3: 2.54 }[number(directory, 296, 2)] ?? 0;
  return [282, 283].map((tag) => {
    const [top, bottom] = (directory[`t${tag}`] as number[][] | undefined)?.[0] ?? [];
    const dpi = (top! / bottom!) * inUnits;
    return dpi > 0 && Number.isFinite(dpi) ? dpi : 0;
  }) as [number, number];
}

export interface Decoded {
  image: AnyImage;
  orientation: number; // TIFF's tag 274, 1 to 8; 1 is upright
}

function decodeTiff(bytes: ArrayBuffer, index: number): Decoded {
  const directory = pagesOf(bytes)[index];
  if (directory === undefined) throw new Unreadable('damaged');
  const width = number(directory, 256, 0);
  const height = number(directory, 257, 0);
  const mostBits = 64; // of a pixel
  const bits = number(directory, 258, 1);
  const samples = number(directory, 277, 1);
  if (width * height > mostPixels || bits * samples > mostBits) throw new Unreadable('large');
  try {
    UTIF.decodeImage(bytes, directory);
  } catch {
    throw new Unreadable('damaged');
  }
  const { data } = directory;
  if (!(data instanceof Uint8Array)) throw new Unreadable('damaged');
  const dpi = tiffDpi(directory);
  const photometric = number(directory, 262, 1);
  const orientation = number(directory, 274, 1);
  const isPlain = number(directory, 284, 1) === 1;
  const stride = (width * bits * samples + 7) >> 3;
  if (isPlain && photometric < 2 && samples === 1 && (bits === 1 || bits === 8) && data.length >= stride * height) {
    if (photometric === 0) for (let i = 0; i < data.length; ++i) data[i]! ^= 255;
    return { image: { width, height, data, format: bits === 1 ? 'bits' : 'grey', dpi }, orientation };
  }
  if (isPlain && photometric === 2 && samples === 3 && bits === 8 && data.length >= stride * height) {
    return { image: { width, height, data, format: 'rgb', dpi }, orientation };
  }
  const rgba = UTIF.toRGBA8(directory);
  if (rgba.length < 4 * width * height) throw new Unreadable('damaged');
  return { image: narrowed(new Uint8ClampedArray(rgba.buffer), width, height, dpi), orientation };
}

// ---- resolutions that browsers do not tell ----

function pngDpi(view: DataView): [number, number] {
  for (let at = 8; at + 21 <= view.byteLength; at += view.getUint32(at) + 12) {
    const type = view.getUint32(at + 4);
    if (type === 0x49444154) break; // IDAT
    if (type === 0x70485973 && view.getUint8(at + 16) === 1) {
      return [view.getUint32(at + 8) * 0.0254, view.getUint32(at + 12) * 0.0254];
    }
  }
  return [0, 0];
}

function jpegDpi(view: DataView): [number, number] {
  for (let at = 2; at + 18 <= view.byteLength && view.getUint8(at) === 0xff; at += 2 + view.getUint16(at + 2)) {
    if (view.getUint8(at + 1) !== 0xe0 || view.getUint32(at + 4) !== 0x4a464946) continue; // JFIF
    const inUnits = { 1: 1, 2: 2.54 }[view.getUint8(at + 11)];
    if (inUnits !== undefined) return [view.getUint16(at + 12) * inUnits, view.getUint16(at + 14) * inUnits];
  }
  return [0, 0];
}

function bmpDpi(view: DataView): [number, number] {
  if (view.byteLength < 46 || view.getUint32(14, true) < 40) return [0, 0];
  return [view.getInt32(38, true) * 0.0254, view.getInt32(42, true) * 0.0254];
}

async function dpiOf(file: Blob, kind: Kind): Promise<[number, number]> {
  const view = new DataView(await file.slice(0, 65536).arrayBuffer());
  const found = kind === 'png' ? pngDpi(view) : kind === 'jpeg' ? jpegDpi(view) : kind === 'bmp' ? bmpDpi(view) : [0, 0];
  // 72 and 96 are what programs write when they do not know; no scanner makes pages of so few.
  return found.map((dpi) => (dpi > 96.5 ? dpi : 0)) as [number, number];
}

// ---- both ----

async function decodeByBrowser(file: Blob, kind: Kind): Promise<Decoded> {
  let picture: ImageBitmap;
  try {
    picture = await createImageBitmap(file, { colorSpaceConversion: 'none', premultiplyAlpha: 'none' });
  } catch {
    throw new Unreadable('damaged');
  }
  const { width, height } = picture;
  if (width * height > mostPixels) throw new Unreadable('large');
  const context = new OffscreenCanvas(width, height).getContext('2d', { willReadFrequently: true })!;
  context.drawImage(picture, 0, 0);
  picture.close();
  const { data } = context.getImageData(0, 0, width, height);
  return { image: narrowed(data, width, height, await dpiOf(file, kind)), orientation: 1 };
}

export async function countPages(file: Blob): Promise<{ kind: Kind; pages: number }> {
  const kind = await kindOf(file);
  if (kind === 'unknown') throw new Unreadable('unknown');
  return { kind, pages: kind === 'tiff' ? pagesOf(await file.arrayBuffer()).length : 1 };
}

export async function decode(file: Blob, index: number): Promise<Decoded> {
  const kind = await kindOf(file);
  if (kind === 'unknown') throw new Unreadable('unknown');
  return kind === 'tiff' ? decodeTiff(await file.arrayBuffer(), index) : decodeByBrowser(file, kind);
}
