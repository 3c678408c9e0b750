// Images as the library takes and gives them, made smaller and made visible.
import type { AnyImage, Image } from '../src/rastrel.mjs';

// Canvases know RGBA only. A page that has no colour goes on as greys, one of black and white as bits, so that it is
// cleaned, and saved, as what it is.
export function narrowed(rgba: Uint8ClampedArray, width: number, height: number, dpi: [number, number]): AnyImage {
  const pixels = new Uint32Array(rgba.buffer, rgba.byteOffset, width * height);
  let isGrey = true;
  let isBits = true;
  for (let i = 0; i < pixels.length; ++i) {
    const pixel = pixels[i]!;
    const red = pixel & 255;
    if (red !== ((pixel >> 8) & 255) || red !== ((pixel >> 16) & 255) || pixel >>> 24 !== 255) {
      isGrey = isBits = false;
      break;
    }
    if (red !== 0 && red !== 255) isBits = false;
  }
  if (!isGrey) return { width, height, data: rgba, format: 'rgba', dpi };
  if (!isBits) {
    const data = new Uint8Array(pixels.length);
    for (let i = 0; i < pixels.length; ++i) data[i] = pixels[i]! & 255;
    return { width, height, data, format: 'grey', dpi };
  }
  const stride = (width + 7) >> 3;
  const data = new Uint8Array(stride * height);
  for (let y = 0, i = 0; y < height; ++y) {
    for (let x = 0; x < width; ++x, ++i) {
      if (pixels[i]! & 1) data[y * stride + (x >> 3)]! |= 0x80 >> (x & 7);
    }
  }
  return { width, height, data, format: 'bits', dpi };
}

const bytesInPixel = { grey: 1, rgb: 3, rgba: 4 };

// A page in at most `most` pixels across and down, each the mean of a square: what a thumbnail is made of.
function reduced(image: AnyImage, most: number): ImageData {
  const { width, height, data, format = 'rgba' } = image;
  const step = Math.max(1, Math.ceil(Math.max(width, height) / most));
  const across = Math.max(1, Math.floor(width / step));
  const down = Math.max(1, Math.floor(height / step));
  const result = new ImageData(across, down);
  const stride = format === 'bits' ? (width + 7) >> 3 : width * bytesInPixel[format];
  const sums = new Uint32Array(3 * across);
  const [pixelBytes, green, blue] = format === 'bits' ? [0, 0, 0] : format === 'grey' ? [1, 0, 0] : [bytesInPixel[format], 1, 2];
  for (let row = 0; row < down; ++row) {
    sums.fill(0);
    for (let y = row * step; y < Math.min(height, (row + 1) * step); ++y) {
      const line = y * stride;
      for (let column = 0, x = 0; column < across; ++column) {
        let r = 0;
        let g = 0;
        let b = 0;
        for (const end = Math.min(width, x + step); x < end; ++x) {
          if (pixelBytes === 0) {
            const white = (data[line + (x >> 3)]! >> (7 - (x & 7))) & 1;
            r += white * 255;
          } else {
            const at = line + x * pixelBytes;
            r += data[at]!;
            g += data[at + green]!;
            b += data[at + blue]!;
          }
        }
        if (pixelBytes === 0) g = b = r;
        sums[3 * column]! += r;
        sums[3 * column + 1]! += g;
        sums[3 * column + 2]! += b;
      }
    }
    const area = step * step;
    for (let column = 0; column < across; ++column) {
      const at = 4 * (row * across + column);
      for (let c = 0; c < 3; ++c) result.data[at + c] = sums[3 * column + c]! / area;
      result.data[at + 3] = 255;
    }
  }
  return result;
}

export async function thumbnail(image: AnyImage, most: number): Promise<Blob> {
  const small = reduced(image, most);
  const canvas = new OffscreenCanvas(small.width, small.height);
  canvas.getContext('2d')!.putImageData(small, 0, 0);
  return canvas.convertToBlob({ type: 'image/png' });
}

// The whole page for the screen.
export function bitmap(image: AnyImage): Promise<ImageBitmap> {
  const { width, height, data, format = 'rgba' } = image;
  const shown = new ImageData(width, height);
  const pixels = new Uint32Array(shown.data.buffer);
  if (format === 'rgba') {
    shown.data.set(data.subarray(0, shown.data.length));
  } else if (format === 'bits') {
    const stride = (width + 7) >> 3;
    for (let y = 0, i = 0; y < height; ++y) {
      for (let x = 0; x < width; ++x, ++i) {
        pixels[i] = (data[y * stride + (x >> 3)]! >> (7 - (x & 7))) & 1 ? 0xffffffff : 0xff000000;
      }
    }
  } else if (format === 'grey') {
    for (let i = 0; i < pixels.length; ++i) pixels[i] = (0xff000000 | (data[i]! * 0x010101)) >>> 0;
  } else {
    for (let i = 0, at = 0; i < pixels.length; ++i, at += 3) {
      pixels[i] = (0xff000000 | (data[at + 2]! << 16) | (data[at + 1]! << 8) | data[at]!) >>> 0;
    }
  }
  return createImageBitmap(shown);
}

export type { AnyImage, Image };
