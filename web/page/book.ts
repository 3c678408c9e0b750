// The pages on hand: their files, their settings, and the work on them.
import { Pool, RastrelError } from '../src/rastrel.mjs';
import { type Settings, standard } from './settings';
import { Store, type StoredPage } from './store';
import { texts } from './texts';
import type { Processed, Shown } from './work';

export interface Page extends StoredPage {
  state: 'waiting' | 'working' | 'done' | 'failed' | 'stopped';
  done: number; // share of the work under way
  thumbnailUrl?: string;
  stop?: AbortController;
  isRemoved?: boolean;
}

const fileEndings = /\.(tiff?|pdf|png|jpe?g|webp|bmp|dib)$/i;
const isAbort = (error: unknown): boolean => error instanceof Error && error.name === 'AbortError';

// An error as a sentence.
function sentence(error: unknown): string {
  const { name, message } = error as Error;
  if (name === 'Unreadable') return texts.unreadable[message] ?? texts.unreadable.damaged!;
  const outOfMemory = 1;
  if (name === 'RangeError' || (error instanceof RastrelError && error.code === outOfMemory)) return texts.unreadable.memory!;
  return error instanceof RastrelError && error.code > 0 ? texts.refused(message) : texts.unreadable.damaged!;
}

export class Book {
  readonly store = new Store();
  readonly pages: Page[] = [];
  // Told of a page that changed, or null where the list did.
  changed: (page: Page | null) => void = () => {};
  noted: (text: string) => void = () => {};
  isStopped = false;

  #workers = Math.max(1, Math.min(navigator.hardwareConcurrency || 2, 4));
  #pool = new Pool({
    workers: this.#workers,
    makeWorker: () => new Worker(new URL('./work.ts', import.meta.url), { type: 'module' }),
  });
  #running = 0;
  #nextId = 1;
  #undo: (() => void)[] = [];
  // Files of which pages are read just now, so that workers know them again.
  #files = new Map<number, Blob>();

  async open(): Promise<void> {
    await this.store.open();
    for (const stored of await this.store.pages()) {
      const state = stored.error !== undefined ? 'failed' : stored.record !== undefined ? 'done' : 'waiting';
      const page: Page = { ...stored, state, done: 0 };
      if (stored.thumbnail) page.thumbnailUrl = URL.createObjectURL(stored.thumbnail);
      this.pages.push(page);
      this.#nextId = Math.max(this.#nextId, page.id + 1, page.fileId + 1);
    }
    await this.store.sweep(new Set(this.pages.map((page) => page.fileId)));
    this.changed(null);
    this.#pump();
  }

  zooms(): Promise<number[]> {
    return this.#pool.call('zooms', [], { urgent: true });
  }

  // ---- files ----

  async add(files: File[]): Promise<void> {
    this.isStopped = false;
    // In a folder there is other stuff as well; what is given alone is tried.
    const wanted = files.length > 1 ? files.filter(({ name, type }) => fileEndings.test(name) || type.startsWith('image/')) : files;
    await Promise.all(
      wanted.map(async (file) => {
        const first = this.#addPage(file.name, 0, 1);
        try {
          const { kind, pages } = await this.#pool.call<{ kind: string; pages: number }>('open', [file], { urgent: true });
          if (kind === 'pdf') {
            await this.#addPdf(file, first);
            return;
          }
          await this.store.put('files', first.fileId, file);
          first.count = pages;
          const rest = Array.from({ length: pages - 1 }, (_, i) => this.#makePage(file.name, i + 1, pages, first.fileId));
          this.pages.splice(this.pages.indexOf(first) + 1, 0, ...rest);
          for (const page of [first, ...rest]) this.#makeReady(page);
        } catch (error) {
          await this.#fail(first, error);
        }
        if (first.count > 1) this.changed(null);
      }),
    );
  }

  // Each page of a PDF becomes a file of its own, an image.
  async #addPdf(file: File, first: Page): Promise<void> {
    this.noted(texts.readingPdf(file.name));
    const { pagesOfPdf } = await import('./pdf');
    let page = first;
    for await (const { image, index, count } of pagesOfPdf(file)) {
      if (page.isRemoved) return;
      const packed = await this.#pool.call<Blob>('pack', [image], { urgent: true });
      if (index > 0) {
        const next = this.#makePage(file.name, index, count, this.#nextId++, first.order);
        this.pages.splice(this.pages.indexOf(page) + 1, 0, next);
        page = next;
      }
      page.count = count;
      await this.store.put('files', page.fileId, packed);
      this.#makeReady(page);
      this.changed(null);
    }
  }

  // Pages of one file stand behind its first one.
  #makePage(name: string, index: number, count: number, fileId = this.#nextId++, first = fileId): Page {
    const order = first + index / 1e6;
    const settings = { ...standard };
    return { id: this.#nextId++, fileId, index, count, name, order, settings, state: 'stopped', done: 0 };
  }
  #addPage(name: string, index: number, count: number): Page {
    const page = this.#makePage(name, index, count);
    this.pages.push(page);
    this.changed(null);
    return page;
  }
  #makeReady(page: Page): void {
    page.state = 'waiting';
    void this.#keep(page);
    this.changed(page);
    this.#pump();
  }

  async #keep(page: Page): Promise<void> {
    if (page.isRemoved) return;
    const { id, fileId, index, count, name, settings, order, error, record, thumbnail } = page;
    await this.store.put('pages', id, { id, fileId, index, count, name, settings, order, error, record, thumbnail });
  }

  async #fail(page: Page, error: unknown): Promise<void> {
    page.state = 'failed';
    page.error = sentence(error);
    this.changed(page);
    await this.#keep(page);
  }

  // ---- work ----

  #pump(): void {
    while (!this.isStopped && this.#running < this.#workers) {
      const page = this.pages.find(({ state }) => state === 'waiting');
      if (page === undefined) break;
      ++this.#running;
      void this.#clean(page).finally(() => {
        --this.#running;
        this.#pump();
      });
    }
  }

  async #file(page: Page): Promise<Blob> {
    let file = this.#files.get(page.fileId);
    if (file === undefined) {
      file = await this.store.get<Blob>('files', page.fileId);
      if (file === undefined) throw new Error('the file is gone');
      this.#files.set(page.fileId, file);
      const most = 8;
      if (this.#files.size > most) this.#files.delete(this.#files.keys().next().value!);
    }
    return file;
  }

  async #clean(page: Page): Promise<void> {
    page.state = 'working';
    page.done = 0;
    const stop = (page.stop = new AbortController());
    this.changed(page);
    const settings = page.settings;
    try {
      const source = { file: await this.#file(page), index: page.index };
      const made = await this.#pool.call<Processed>('process', [source, settings], {
        signal: stop.signal,
        progress: (_step, done) => {
          page.done = done;
          this.changed(page);
        },
      });
      if (page.isRemoved || page.stop !== stop) return;
      await this.store.put('results', page.id, made.result);
      page.record = made.record;
      page.thumbnail = made.thumbnail;
      if (page.thumbnailUrl) URL.revokeObjectURL(page.thumbnailUrl);
      page.thumbnailUrl = URL.createObjectURL(made.thumbnail);
      page.state = 'done';
      await this.#keep(page);
      this.changed(page);
    } catch (error) {
      if (page.stop !== stop) return; // it is cleaned anew already, with other steps
      if (isAbort(error)) {
        page.state = page.settings === settings ? 'stopped' : 'waiting';
        this.changed(page);
      } else {
        await this.#fail(page, error);
      }
    }
  }

  stop(): void {
    this.isStopped = true;
    for (const page of this.pages) {
      if (page.state === 'waiting') page.state = 'stopped';
      page.stop?.abort();
    }
    this.changed(null);
  }

  goOn(): void {
    this.isStopped = false;
    for (const page of this.pages) if (page.state === 'stopped') page.state = 'waiting';
    this.changed(null);
    this.#pump();
  }

  // ---- looking ----

  async show(page: Page, what: 'before' | 'after' | 'removed', signal: AbortSignal): Promise<Shown> {
    if (what === 'after' && page.state === 'done') {
      const result = await this.store.get<Blob>('results', page.id);
      if (result) return { picture: await createImageBitmap(result), record: page.record ?? null };
    }
    const source = { file: await this.#file(page), index: page.index };
    return this.#pool.call('show', [source, page.settings, what], { urgent: true, signal });
  }

  result(page: Page): Promise<Blob | undefined> {
    return this.store.get<Blob>('results', page.id);
  }
  toTiff(result: Blob): Promise<Blob> {
    return this.#pool.call('tiff', [result], { urgent: true });
  }

  // ---- changes, which can be undone ----

  get canUndo(): boolean {
    return this.#undo.length > 0;
  }
  undo(): void {
    this.#undo.pop()?.();
    this.noted(texts.undone);
  }

  change(pages: Page[], settings: Partial<Settings>): void {
    const before = pages.map((page) => [page, page.settings] as const);
    this.#undo.push(() => {
      for (const [page, old] of before) this.#set(page, old);
    });
    for (const page of pages) this.#set(page, { ...page.settings, ...settings });
  }
  #set(page: Page, settings: Settings): void {
    page.settings = settings;
    if (page.state === 'failed') return;
    const wasWorking = page.state === 'working';
    page.state = 'waiting';
    if (wasWorking) page.stop?.abort();
    void this.#keep(page);
    this.changed(page);
    this.#pump();
  }

  remove(pages: Page[]): void {
    const before = [...this.pages];
    for (const page of pages) {
      page.isRemoved = true;
      page.stop?.abort();
      void this.store.remove('pages', page.id);
    }
    const removed = new Set(pages);
    this.pages.splice(0, Infinity, ...this.pages.filter((page) => !removed.has(page)));
    this.#undo.push(() => {
      for (const page of pages) {
        page.isRemoved = false;
        if (page.state === 'working' || page.state === 'stopped') page.state = 'waiting';
        void this.#keep(page);
      }
      this.pages.splice(0, Infinity, ...before, ...this.pages.filter((page) => !before.includes(page)));
      this.changed(null);
      this.#pump();
    });
    this.changed(null);
  }
}
