// PDF files to images, by pdf.js, which is only loaded when there is one.
import { GlobalWorkerOptions, OPS, getDocument } from 'pdfjs-dist';
import type { PDFPageProxy } from 'pdfjs-dist';
import workerUrl from 'pdfjs-dist/build/pdf.worker.min.mjs?url';
import type { AnyImage } from '../src/rastrel.mjs';
import { Unreadable } from './decode';
import { narrowed } from './images';

GlobalWorkerOptions.workerSrc = workerUrl;

// What pages are drawn at that are more than one image.
const dotsPerInch = 300;
const pointsPerInch = 72;
const mostPixels = 100_000_000;

interface PdfImage {
  width: number;
  height: number;
  kind: number; // pdf.js: 1 is bits, 2 RGB, 3 RGBA
  data?: Uint8Array | Uint8ClampedArray;
  bitmap?: ImageBitmap;
}

// The scan itself where a page is nothing but one upright image over all of it: its pixels as they are.
async function scanOf(page: PDFPageProxy): Promise<AnyImage | null> {
  const { fnArray, argsArray } = await page.getOperatorList();
  const painted = fnArray.flatMap((operator, i) => (operator === OPS.paintImageXObject ? [i] : []));
  const others = [OPS.showText, OPS.showSpacedText, OPS.fill, OPS.stroke, OPS.shadingFill, OPS.paintImageMaskXObject];
  if (painted.length !== 1 || page.rotate !== 0 || fnArray.some((operator) => others.includes(operator))) return null;
  let scale = [1, 0, 0, 1];
  for (let i = 0; i < painted[0]!; ++i) {
    if (fnArray[i] === OPS.transform) scale = argsArray[i] as number[];
  }
  const [left, bottom, right, top] = page.view as [number, number, number, number];
  const covers = (length: number, whole: number) => Math.abs(length - whole) < 0.01 * whole;
  if (scale[1] !== 0 || scale[2] !== 0 || !covers(scale[0]!, right - left) || !covers(scale[3]!, top - bottom)) return null;
  const name = argsArray[painted[0]!]![0] as string;
  const objects = name.startsWith('g_') ? page.commonObjs : page.objs;
  const image = await new Promise<PdfImage>((resolve) => objects.get(name, resolve));
  const { width, height } = image;
  const dpi: [number, number] = [
    (width * pointsPerInch) / (right - left),
    (height * pointsPerInch) / (top - bottom),
  ];
  if (image.bitmap) {
    const context = new OffscreenCanvas(width, height).getContext('2d', { willReadFrequently: true })!;
    context.drawImage(image.bitmap, 0, 0);
    return narrowed(context.getImageData(0, 0, width, height).data, width, height, dpi);
  }
  if (!image.data) return null;
  const data = new Uint8Array(image.data);
  if (image.kind === 1) return { width, height, data, format: 'bits', dpi };
  if (image.kind === 2) return { width, height, data, format: 'rgb', dpi };
  return narrowed(new Uint8ClampedArray(data.buffer), width, height, dpi);
}

async function drawn(page: PDFPageProxy): Promise<AnyImage> {
  const natural = page.getViewport({ scale: 1 });
  const wanted = dotsPerInch / pointsPerInch;
  const scale = Math.min(wanted, Math.sqrt(mostPixels / (natural.width * natural.height)));
  const viewport = page.getViewport({ scale });
  const canvas = document.createElement('canvas');
  canvas.width = Math.ceil(viewport.width);
  canvas.height = Math.ceil(viewport.height);
  await page.render({ canvas, viewport, background: 'white' }).promise;
  const context = canvas.getContext('2d')!;
  const { data } = context.getImageData(0, 0, canvas.width, canvas.height);
  const dpi = scale * pointsPerInch;
  return narrowed(data, canvas.width, canvas.height, [dpi, dpi]);
}

export async function* pagesOfPdf(file: Blob): AsyncGenerator<{ image: AnyImage; index: number; count: number }> {
  const loading = getDocument({ data: await file.arrayBuffer(), isEvalSupported: false, useWasm: false, stopAtErrors: true });
  try {
    const document = await loading.promise;
    for (let index = 0; index < document.numPages; ++index) {
      const page = await document.getPage(index + 1);
      yield { image: (await scanOf(page)) ?? (await drawn(page)), index, count: document.numPages };
      page.cleanup();
    }
  } catch (error) {
    throw new Unreadable((error as Error).name === 'PasswordException' ? 'locked' : 'damaged');
  } finally {
    await loading.destroy();
  }
}
