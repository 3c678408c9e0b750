/** Straight, clean pages of scanned ones.
 *
 *     const rastrel = await load();
 *     const { image, record } = rastrel.clean(context.getImageData(0, 0, width, height));
 *
 * or, without keeping anybody waiting,
 *
 *     const pool = new Pool();
 *     const { image, record } = await pool.clean(scan, { signal, progress });
 */

/** How pixels lie in `data`, rows from the top, without gaps.
 * - bits: 1 bit a pixel, the leftmost highest in its byte, 0 is black; a row is of whole bytes
 * - grey: a byte, 0 is black
 * - rgb, rgba: three or four bytes; alpha goes over white */
export type PixelFormat = 'bits' | 'grey' | 'rgb' | 'rgba';

/** What goes in; an ImageData is one. */
export interface AnyImage {
  width: number;
  height: number;
  data: Uint8Array | Uint8ClampedArray;
  /** "rgba" where none is given */
  format?: PixelFormat;
  /** dots per inch, or those across and down; 0 or none: not known */
  dpi?: number | [number, number];
}

/** What comes out. Black and white is "bits"; 4-bit greys come as bytes. */
export interface Image extends AnyImage {
  data: Uint8Array;
  format: 'bits' | 'grey' | 'rgb';
  dpi: [number, number];
}

/** docs/cleaning.md says what each step does. The values given here are the defaults' first. */
export interface CleanOptions {
  /** to hundredths of a degree where certain, by whole degrees, not at all */
  deskew?: 'fine' | 'whole' | 'off' | boolean;
  /** paint dark borders over (true) */
  borders?: boolean;
  /** paint punch holes over: "auto" measures each, but takes 6 mm where the resolution is not known; "any" measures
   * there, too; a number from -3 to 40 is a size; false: not */
  holes?: 'auto' | 'any' | boolean | number;
  /** remove specks (true) */
  specks?: boolean;
  /** 20 to 100 (30) */
  speckLevel?: number;
  /** filter every pixel (false) */
  speckFull?: boolean;
  /** what text is */
  text?: 'auto' | 'dark' | 'light';
  /** cut the sheet out of a dark surround (false) */
  cropSheet?: boolean;
  /** degrees beyond which a page is not turned, 0 to 45 (15) */
  maxSkew?: number;
  /** a page with less ink than that is blank, 0 to 100 (0.1) */
  blankPercent?: number;
  /** even the light (false) */
  flatten?: boolean;
  /** make the paper white, and leave ink as it is */
  paper?: 'keep' | 'white';
  /** weaken what shows through from behind (false) */
  bleed?: boolean;
  /** make black and white */
  reduce?: 'none' | 'threshold' | 'ordered' | 'fs' | 'jjn' | 'auto';
  /** added to every grey before "threshold" and "ordered", -255 to 255 (0) */
  brightness?: number;
  /** with reduce 'auto': smooth to that resolution, 50 to 2400, up to four times the page's (its own) */
  toDpi?: number;
  /** clean by the plain operations one after the other (false) */
  classic?: boolean;
  /** make the overlay, too (false): the page as it came in, in grey, with what was removed in colour */
  overlay?: boolean;
  /** called before each step with its name and the share of the work that is done, 0 to 1. False, or an exception,
   * ends the work */
  progress?: (step: string, done: number) => boolean | void;
}

export interface Region {
  kind: string;
  left: number;
  top: number;
  /** outside, as is `bottom` */
  right: number;
  bottom: number;
  pixels: number;
  confidence: number;
  reason: string;
  /** the check found that it would harm the page */
  takenBack?: boolean;
}

export interface Reason {
  step: string;
  reason: string;
}

/** What was found and done, under the names of `rastrel clean --json`; docs/cleaning.md lists them. Those with a
 * question mark are missing where there is nothing to tell. */
export interface Record {
  width: number;
  height: number;
  bits: number;
  dpi: number;
  dpiDown?: number;
  skew?: number;
  skewConfidence?: number;
  blank: boolean;
  text: 'dark' | 'light';
  holes: number;
  holesAt: { x: number; y: number; diameter: number; side: 'left' | 'right' | 'top' | 'bottom' }[];
  /** whether 300 dots per inch had to be taken for want of any */
  resolutionAssumed: boolean;
}
export interface ExamineRecord extends Record {
  /** percent of the whole page */
  ink?: number;
}
export interface CleanRecord extends Record {
  turned: boolean;
  cropped: boolean;
  widthIn: number;
  heightIn: number;
  trimmedPixels: number;
  trimmedLeft: number;
  trimmedTop: number;
  trimmedRight: number;
  trimmedBottom: number;
  specks: number;
  speckPixels: number;
  regions?: Region[];
  steps: { step: string; ms: number }[];
  skipped: Reason[];
  sidesLeft?: { side: string; reason: string }[];
  checked: boolean;
  takenBack?: Reason[];
}

export interface Cleaned {
  image: Image;
  record: CleanRecord;
  overlay: Image | null;
}

type Text = 'dark' | 'light';
type Fill = 'white' | 'black';
type Direction = 'h' | 'v';
type Interpolation = 'bilinear' | 'cubic';
/** The operations that make one page of one, and what they are told; docs/operations.md has them under the same
 * words. Angles are counter-clockwise, and so are quarters. */
export interface Operations {
  flip: { direction: Direction };
  turn: { quarters: number };
  rotate: { angle: number; fill?: Fill };
  straighten: { angle: number; quality?: 'nearest' | 'smooth'; size?: 'whole' | 'same'; fill?: Fill };
  skew: { direction: Direction; shift: number; fill?: Fill };
  deskew: { text?: Text };
  trim: {};
  holes: { size?: 'auto' | number };
  despeckle: { level?: number; full?: boolean };
  dither: { method?: 'fs' | 'jjn'; bits?: 1 | 4 | 8 };
  halftone: { method?: 'threshold' | 'diffusion' | 'ordered'; brightness?: number };
  binarize: { quality?: 'fast' | 'best'; doubled?: boolean; pictures?: boolean };
  smoothDither: { bits?: 1 | 4 };
  sharpDither: { bits?: 1 | 4 };
  grey: { formula?: 'weighted' | 'average'; smoothing?: 0 | 1 | 2 };
  invert: {};
  colour: {};
  crop: { left: number; top: number; width?: number; height?: number };
  cropSheet: { share?: number; margin?: number; sheet?: 'light' | 'dark' };
  scale: { width?: number; height?: number; percent?: number; dpi?: number; method?: Interpolation };
  scaleGrey: { factor: number; down?: number; method?: Interpolation };
}

/** The library says no: `code` is one of rastrel.h or rastrel_pages.h. Wrong options and values are RangeErrors;
 * work that was cancelled ends with a DOMException whose name is "AbortError". */
export class RastrelError extends Error {
  code: number;
}

/** One instance, which works on the thread that calls. Images that go in are not changed. */
export interface Rastrel {
  readonly version: string;
  /** bytes; it only grows */
  readonly memory: number;
  clean(image: AnyImage, options?: CleanOptions): Cleaned;
  examine(image: AnyImage): ExamineRecord;
  /** By how many degrees lines rise to the right; a confidence of 0.5 (of 1) is enough to turn a page. */
  measureSkew(
    image: AnyImage,
    options?: { range?: number; text?: 'auto' | Text },
  ): { degrees: number; confidence: number };
  isBlank(image: AnyImage, options?: { percent?: number; text?: 'auto' | Text }): boolean;
  apply<Name extends keyof Operations>(image: AnyImage, name: Name, values?: Operations[Name]): Image;
  /** The upper part, of that many rows, and the lower one. */
  cut(image: AnyImage, rows: number): [Image, Image];
  /** Tiles, row by row from the top left; without a height they are square. */
  split(image: AnyImage, width: number, height?: number): Image[];
  merge(images: AnyImage[], columns: number): Image;
  /** Lays another image with its top left pixel at (x, y) on one. */
  combine(
    image: AnyImage,
    other: AnyImage,
    options?: { x?: number; y?: number; how?: 'and' | 'over'; mask?: AnyImage },
  ): Image;
  /** The next zoom ratio, as numerator and denominator, in the steps of `BZoomStep`. */
  zoom(ratio: [number, number], direction: 'in' | 'out'): [number, number];
}

/** Where the WebAssembly is: its bytes, its address, or compiled already. The default is beside this module. */
export type Wasm = BufferSource | string | URL | WebAssembly.Module;

export function compile(wasm?: Wasm): Promise<WebAssembly.Module>;
export function load(wasm?: Wasm): Promise<Rastrel>;

export interface CallOptions {
  /** ends the work at once, also in the middle of a step */
  signal?: AbortSignal;
}

/** Workers with an instance each: as many pages at once as there are workers, the others wait for their turn. */
export class Pool {
  constructor(options?: { workers?: number; wasm?: Wasm; makeWorker?: () => Worker });
  clean(image: AnyImage, options?: CleanOptions & CallOptions): Promise<Cleaned>;
  examine(image: AnyImage, options?: CallOptions): Promise<ExamineRecord>;
  apply<Name extends keyof Operations>(
    image: AnyImage,
    name: Name,
    values?: Operations[Name],
    options?: CallOptions,
  ): Promise<Image>;
  /** Runs a method of the worker that `makeWorker` made; see `serve`. What is urgent goes before all that waits. */
  call<Result = unknown>(
    method: string,
    values: unknown[],
    options?: CallOptions & { progress?: (step: string, done: number) => boolean | void; urgent?: boolean },
  ): Promise<Result>;
  /** Ends the workers, and all that is under way. */
  close(): void;
}
