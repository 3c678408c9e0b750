// The library in one thread: images in, images out, on the C interface of rastrel_pages.h.
import createCore from '../wasm/core.mjs';
import { cleanOptions, numberOf, operations } from './operations.mjs';

const formats = { bits: 1, grey: 3, rgb: 4, rgba: 6 };
const bytesInRow = {
  bits: (width) => (width + 7) >> 3,
  grey: (width) => width,
  rgb: (width) => 3 * width,
  rgba: (width) => 4 * width,
};
// Zoom commands at once, to the next step: BZoomStep's modes of rastrel.h.
const zoomModes = { in: 0x22, out: 0x23 };
const cancelled = 33;

export class RastrelError extends Error {
  constructor(message, code) {
    super(message);
    this.name = 'RastrelError';
    this.code = code;
  }
}

export function abortError() {
  return new DOMException('The work was cancelled.', 'AbortError');
}

// The compiled module, which may be handed to workers so that each need not compile it again.
export async function compile(source = new URL('../wasm/core.wasm', import.meta.url)) {
  if (source instanceof WebAssembly.Module) return source;
  if (source instanceof ArrayBuffer || ArrayBuffer.isView(source)) return WebAssembly.compile(source);
  if (String(source).startsWith('file:')) {
    const { readFile } = await import(/* @vite-ignore */ ['node', 'fs/promises'].join(':'));
    return WebAssembly.compile(await readFile(new URL(source)));
  }
  const response = await fetch(source);
  if (!response.ok) throw new RastrelError(`${source}: ${response.status} ${response.statusText}`, 0);
  return WebAssembly.compile(await response.arrayBuffer());
}

export async function load(source) {
  const compiled = await compile(source);
  const core = await createCore({
    instantiateWasm(imports, done) {
      WebAssembly.instantiate(compiled, imports).then((instance) => done(instance, compiled));
      return {};
    },
    progress: () => 0,
  });
  return new Rastrel(core);
}

// One instance of the library. Its memory only grows, to what the largest page needed.
class Rastrel {
  #core;
  #layouts = {};

  constructor(core) {
    this.#core = core;
    for (const line of core.UTF8ToString(core._WebLayouts()).split('\n')) {
      const [name, size, ...members] = line.split(' ');
      const layout = { size: Number(size), members: {} };
      for (const member of members) {
        const [field, offset, type] = member.split(':');
        layout.members[field] = { offset: Number(offset), type };
      }
      this.#layouts[name] = layout;
    }
    this.version = core.UTF8ToString(core._PagesVersion());
  }

  get memory() {
    return this.#core.HEAPU8.length;
  }

  clean(image, options = {}) {
    const core = this.#core;
    return this.#withPage(image, (page, take) =>
      this.#withBlock(this.#layouts.CleanOptions.size, (block) => {
        core._DefaultCleanOptions(block, this.#layouts.CleanOptions.size);
        this.#setCleanOptions(block, options);
        return this.#withBlock(8, (results) => {
          this.#view().setUint32(results + 4, 0, true);
          let thrown;
          core.progress = (step, done) => {
            try {
              return options.progress?.(step, done) === false ? 1 : 0;
            } catch (error) {
              thrown = { error };
              return 1;
            }
          };
          take();
          const cleaned = core._TakeAndCleanPage(page, block, results, options.overlay ? results + 4 : 0);
          if (thrown !== undefined) {
            core._GlobalFree(cleaned);
            throw thrown.error;
          }
          if (cleaned === 0) this.#fail();
          const view = this.#view(); // which ends when memory grows
          const [found, shown] = [view.getUint32(results, true), view.getUint32(results + 4, true)];
          const record = this.#record(found);
          return { image: this.#take(cleaned), record, overlay: options.overlay ? this.#take(shown) : null };
        });
      }),
    );
  }

  examine(image) {
    return this.#withPage(image, (page) =>
      this.#withBlock(4, (result) => {
        if (this.#core._ExaminePage(page, result) === 0) this.#fail();
        return this.#record(this.#view().getUint32(result, true));
      }),
    );
  }

  measureSkew(image, { range = 15, text = 'auto' } = {}) {
    const textNumber = numberOf('text', text, cleanOptions.text[1]);
    return this.#withPage(image, (page) =>
      this.#withBlock(16, (results) => {
        if (this.#core._MeasurePageSkew(page, range, textNumber, results, results + 8) === 0) this.#fail();
        const view = this.#view();
        return { degrees: view.getFloat64(results, true), confidence: view.getFloat64(results + 8, true) };
      }),
    );
  }

  isBlank(image, { percent = 0.1, text = 'auto' } = {}) {
    const textNumber = numberOf('text', text, cleanOptions.text[1]);
    return this.#withPage(image, (page) =>
      this.#withBlock(4, (result) => {
        if (this.#core._IsPageBlank(page, textNumber, percent, result) === 0) this.#fail();
        return this.#view().getInt32(result, true) !== 0;
      }),
    );
  }

  apply(image, name, values = {}) {
    if (!Object.hasOwn(operations, name)) throw new RangeError(`there is no operation ${name}`);
    const [exported, parameters] = operations[name];
    const unknown = Object.keys(values).find((key) => !parameters.some(([known]) => known === key));
    if (unknown !== undefined) throw new RangeError(`${name} knows no ${unknown}`);
    const numbers = parameters.map(([key, standard, words]) => numberOf(key, values[key] ?? standard, words));
    return this.#withPage(image, (page) => this.#take(this.#core[`_${exported}`](page, ...numbers)));
  }

  cut(image, rows) {
    return this.#withPage(image, (page) =>
      this.#withBlock(8, (results) => {
        if (this.#core._CutPage(page, rows, results, results + 4) === 0) this.#fail();
        return this.#takeAll(results, 2);
      }),
    );
  }

  split(image, width, height = 0) {
    return this.#withPage(image, (page) => {
      const count = this.#core._SplitPage(page, width, height, 0, 0);
      if (count === 0) this.#fail();
      return this.#withBlock(4 * count, (tiles) => {
        if (this.#core._SplitPage(page, width, height, tiles, count) === 0) this.#fail();
        return this.#takeAll(tiles, count);
      });
    });
  }

  merge(images, columns) {
    return this.#withPages(images, (pages) =>
      this.#withBlock(Math.max(4 * pages.length, 1), (block) => {
        pages.forEach((page, i) => this.#view().setUint32(block + 4 * i, page, true));
        return this.#take(this.#core._MergePages(block, pages.length, columns));
      }),
    );
  }

  combine(image, other, { x = 0, y = 0, how = 'and', mask } = {}) {
    const howNumber = numberOf('how', how, ['and', 'over']);
    return this.#withPages(mask ? [image, other, mask] : [image, other], ([onto, laid, masking]) =>
      this.#take(this.#core._CombinePages(onto, laid, masking ?? 0, x, y, howNumber)),
    );
  }

  zoom(ratio, direction) {
    const core = this.#core;
    if (!Object.hasOwn(zoomModes, direction)) throw new RangeError(`there is no zoom ${String(direction)}`);
    return this.#withBlock(4 * 17, (record) => {
      const view = this.#view();
      new Uint8Array(view.buffer, record, 4 * 17).fill(0);
      ratio.concat(ratio).forEach((number, i) => view.setInt32(record + 4 * (12 + i), number, true));
      core._BZoomStep(0, 0, zoomModes[direction], record, 0);
      const stepped = this.#view();
      return [stepped.getInt32(record + 4, true), stepped.getInt32(record + 8, true)];
    });
  }

  #view() {
    return new DataView(this.#core.HEAPU8.buffer);
  }

  #withBlock(size, work) {
    const block = this.#core._malloc(size);
    if (block === 0) throw new RastrelError('out of memory', 1);
    try {
      return work(block);
    } finally {
      this.#core._free(block);
    }
  }

  #fail() {
    const code = this.#core._PagesError();
    throw code === cancelled ? abortError() : new RastrelError(this.#core.UTF8ToString(this.#core._PagesErrorText()), code);
  }

  // Calls `work` with a page of the image, which is freed unless `work` says that it was taken.
  #withPage(image, work) {
    return this.#withPages([image], ([page], take) => work(page, take));
  }
  #withPages(images, work) {
    const pages = [];
    try {
      for (const image of images) pages.push(this.#give(image));
      return work(pages.slice(), () => (pages.length = 0));
    } finally {
      for (const page of pages) this.#core._GlobalFree(page);
    }
  }

  #give(image) {
    const { width, height, data, format = 'rgba', dpi = 0 } = image;
    if (!Object.hasOwn(formats, format)) throw new RangeError(`there is no pixel format ${String(format)}`);
    const stride = bytesInRow[format](width);
    if (!(width > 0 && height > 0) || !ArrayBuffer.isView(data) || data.byteLength < stride * height) {
      throw new RangeError(`an image of ${width} x ${height} pixels does not have that many`);
    }
    const [dpiX, dpiY] = Array.isArray(dpi) ? dpi : [dpi, dpi];
    const page = this.#withBlock(stride * height, (block) => {
      this.#core.HEAPU8.set(new Uint8Array(data.buffer, data.byteOffset, stride * height), block);
      return this.#core._PageFromPixels(block, width, height, stride, formats[format], dpiX, dpiY);
    });
    if (page === 0) this.#fail();
    return page;
  }

  // An image of a page that belongs to us; 0 is a failure.
  #take(page) {
    if (page === 0) this.#fail();
    try {
      const info = this.#describe(page);
      const format = info.bits === 1 ? 'bits' : info.isGrey ? 'grey' : 'rgb';
      const stride = bytesInRow[format](info.width);
      const data = this.#withBlock(stride * info.height, (block) => {
        this.#core.HEAPU8.fill(0, block, block + stride * info.height);
        if (this.#core._PixelsFromPage(page, block, stride, formats[format]) === 0) this.#fail();
        return this.#core.HEAPU8.slice(block, block + stride * info.height);
      });
      return { width: info.width, height: info.height, data, format, dpi: [info.dpiX, info.dpiY] };
    } finally {
      this.#core._GlobalFree(page);
    }
  }
  #takeAll(block, count) {
    const pages = Array.from({ length: count }, (_, i) => this.#view().getUint32(block + 4 * i, true));
    try {
      const images = [];
      while (pages.length > 0) images.push(this.#take(pages.shift()));
      return images;
    } finally {
      for (const page of pages) this.#core._GlobalFree(page);
    }
  }

  #describe(page) {
    const layout = this.#layouts.PageInfo;
    return this.#withBlock(layout.size, (block) => {
      this.#set(block, layout, 'size', layout.size);
      if (this.#core._DescribePage(page, block) === 0) this.#fail();
      return Object.fromEntries(Object.keys(layout.members).map((name) => [name, this.#get(block, layout, name)]));
    });
  }

  #record(handle) {
    const core = this.#core;
    const layout = this.#layouts.CleanSummary;
    try {
      const record = JSON.parse(core.UTF8ToString(core._CleanRecordJson(handle)));
      return this.#withBlock(layout.size, (block) => {
        this.#set(block, layout, 'size', layout.size);
        if (core._GetCleanSummary(handle, block) === 0) this.#fail();
        return { ...record, resolutionAssumed: this.#get(block, layout, 'isResolutionAssumed') !== 0 };
      });
    } finally {
      core._FreeCleanRecord(handle);
    }
  }

  #setCleanOptions(block, options) {
    const layout = this.#layouts.CleanOptions;
    for (const [name, value] of Object.entries(options)) {
      if (value === undefined || name === 'overlay' || name === 'progress') continue;
      if (!Object.hasOwn(cleanOptions, name)) throw new RangeError(`clean knows no option ${name}`);
      const [member, words] = cleanOptions[name];
      this.#set(block, layout, member, numberOf(name, value, words));
    }
    if (options.holes === false) this.#set(block, layout, 'holes', 0);
    if (options.progress) this.#set(block, layout, 'progress', this.#core._WebProgress());
  }

  #get(block, layout, name) {
    const { offset, type } = layout.members[name];
    const view = this.#view();
    return type === 'd' ? view.getFloat64(block + offset, true) : view.getInt32(block + offset, true);
  }
  #set(block, layout, name, value) {
    const { offset, type } = layout.members[name];
    const view = this.#view();
    if (type === 'd') view.setFloat64(block + offset, value, true);
    else view.setInt32(block + offset, value, true);
  }
}
