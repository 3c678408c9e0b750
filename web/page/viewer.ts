// One page, large: before and after with a slider between them, or what was removed, at any zoom.
import type { CleanRecord } from '../src/rastrel.mjs';
import type { Book, Page } from './book';
import { button, iconButton, icons, make } from './dom';
import { pages as pagesText, texts } from './texts';

type View = keyof typeof texts.views;
const views = Object.keys(texts.views) as View[];
type Picture = 'before' | 'after' | 'removed';

export class Viewer {
  readonly element: HTMLElement;
  // Asked for by the keys and buttons of the viewer.
  turn: (quarters: number) => void = () => {};
  step: (by: number) => void = () => {};
  found: (record: CleanRecord) => void = () => {};

  #book: Book;
  #page: Page | null = null;
  #view: View = 'compare';
  #scale: number | 'fit' = 'fit';
  #scales: number[] = [0.25, 0.5, 1, 2, 4]; // until the library has told its own
  #wanted = new AbortController();
  #shown: Partial<Record<Picture, string>> = {};

  #canvases = {
    before: make('canvas', { class: 'before', 'aria-hidden': 'true' }),
    after: make('canvas', { class: 'after', 'aria-hidden': 'true' }),
    removed: make('canvas', { class: 'removed', 'aria-hidden': 'true' }),
  };
  #sheet = make('div', { class: 'sheet' }, ...Object.values(this.#canvases));
  #stage = make('div', { class: 'stage', tabindex: '0', role: 'group' }, this.#sheet);
  #line = make('div', { class: 'line' });
  #slider = make('input', {
    type: 'range', min: '0', max: '100', step: '0.5', value: '50', class: 'slider', 'aria-label': texts.slider,
    input: () => this.#slide(),
  });
  #labels = [make('span', { class: 'tag left' }, texts.before), make('span', { class: 'tag right' }, texts.after)];
  #legend = make('p', { class: 'legend' }, ...Object.entries(texts.legend).map(([kind, text]) => make('span', { class: kind }, text)));
  #error = make('p', { class: 'refusal' });
  #zoom = make('output', { class: 'zoom' });
  #choices = views.map((view) =>
    make('input', { type: 'radio', name: 'view', value: view, id: `view-${view}`, change: () => this.show(view) }),
  );
  #place = make('span', { class: 'place' });

  constructor(book: Book) {
    this.#book = book;
    const choices = this.#choices.flatMap((input) => [
      input,
      make('label', { for: input.id }, texts.views[input.value as View]),
    ]);
    this.element = make(
      'section', { class: 'viewer' },
      make(
        'div', { class: 'bar', role: 'toolbar', 'aria-label': texts.viewLabel },
        make('div', { class: 'group pager' },
          iconButton(texts.previous, icons.previous, () => this.step(-1)),
          this.#place,
          iconButton(texts.next, icons.next, () => this.step(1))),
        make('fieldset', { class: 'segments' }, make('legend', { class: 'hidden' }, texts.viewLabel), ...choices),
        make('div', { class: 'group' },
          iconButton(texts.turnLeft, icons.left, () => this.turn(1)),
          iconButton(texts.turnRight, icons.right, () => this.turn(3))),
        make('div', { class: 'group' },
          iconButton(texts.zoomOut, icons.minus, () => this.zoom(-1)),
          this.#zoom,
          iconButton(texts.zoomIn, icons.add, () => this.zoom(1)),
          button(texts.fit, null, () => this.fit(), { 'aria-label': texts.fitLabel, class: 'quiet' })),
      ),
      make('div', { class: 'frame' }, this.#stage, this.#line, this.#slider, ...this.#labels, this.#legend, this.#error),
    );
    this.#choices[0]!.checked = true;
    this.#drag();
    new ResizeObserver(() => this.#lay()).observe(this.#stage);
    this.#stage.addEventListener('scroll', () => this.#slide());
    this.#stage.addEventListener('wheel', (event) => {
      if (!event.ctrlKey) return;
      event.preventDefault();
      this.zoom(event.deltaY < 0 ? 1 : -1);
    });
    this.#slide();
  }

  set scales(scales: number[]) {
    this.#scales = scales;
  }

  // Shows a page, or shows it anew after a change of its settings.
  open(page: Page | null): void {
    if (page !== this.#page) {
      this.#shown = {};
      for (const canvas of Object.values(this.#canvases)) canvas.width = canvas.height = 0;
      this.#scale = 'fit';
    }
    this.#page = page;
    if (page === null) return;
    const place = this.#book.pages.indexOf(page) + 1;
    this.#place.textContent = `${place} / ${this.#book.pages.length}`;
    this.#place.title = pagesText(this.#book.pages.length);
    this.#stage.setAttribute('aria-label', `${texts.pageOf(page.name, page.index, page.count)}. ${texts.views[this.#view]}`);
    this.#error.textContent = page.state === 'failed' ? (page.error ?? '') : '';
    this.element.classList.toggle('failed', page.state === 'failed');
    if (page.state !== 'failed') void this.#load(page);
  }

  show(view: View): void {
    this.#view = view;
    this.#choices.forEach((input) => (input.checked = input.value === view));
    this.element.dataset.view = view;
    this.open(this.#page);
    this.#lay();
  }

  // ---- pictures ----

  async #load(page: Page): Promise<void> {
    this.#wanted.abort();
    const wanted = (this.#wanted = new AbortController());
    const kinds: Picture[] = this.#view === 'compare' ? ['after', 'before'] : [this.#view];
    const settings = JSON.stringify(page.settings);
    this.element.dataset.view = this.#view;
    this.#slide();
    await Promise.all(kinds.map(async (kind) => {
      const key = kind === 'before' ? `${page.id} ${page.settings.quarters}` : `${page.id} ${settings}`;
      if (this.#shown[kind] === key) return;
      this.element.classList.add('busy');
      try {
        const { picture, record } = await this.#book.show(page, kind, wanted.signal);
        if (wanted.signal.aborted) return picture.close();
        const canvas = this.#canvases[kind];
        canvas.width = picture.width;
        canvas.height = picture.height;
        canvas.getContext('bitmaprenderer')!.transferFromImageBitmap(picture);
        this.#shown[kind] = key;
        if (record !== null) this.found(record);
        this.#lay();
      } catch {
        // Cancelled, or a page that cannot be read, which the list tells.
      }
    }));
    if (this.#wanted === wanted) this.element.classList.remove('busy');
    this.element.dataset.shown = kinds.map((kind) => this.#shown[kind]).join();
  }

  // ---- size ----

  #visible(): HTMLCanvasElement[] {
    const { before, after, removed } = this.#canvases;
    const all = this.#view === 'compare' ? [before, after] : this.#view === 'after' ? [after] : [removed];
    return all.filter((canvas) => canvas.width > 0);
  }

  #fitting(): number {
    const margin = 24;
    const most = (side: 'width' | 'height') => Math.max(1, ...this.#visible().map((canvas) => canvas[side]));
    const { clientWidth, clientHeight } = this.#stage;
    const fitting = Math.min((clientWidth - margin) / most('width'), (clientHeight - margin) / most('height'));
    return Math.min(fitting * devicePixelRatio, 1);
  }

  #lay(): void {
    const visible = this.#visible();
    if (visible.length === 0) return;
    const scale = this.#scale === 'fit' ? this.#fitting() : this.#scale;
    const density = devicePixelRatio;
    this.#zoom.textContent = `${Math.round(scale * 100)} %`;
    let [width, height] = [0, 0];
    for (const canvas of visible) {
      const [across, down] = [(canvas.width * scale) / density, (canvas.height * scale) / density];
      canvas.style.width = `${across}px`;
      canvas.style.height = `${down}px`;
      [width, height] = [Math.max(width, across), Math.max(height, down)];
    }
    this.#sheet.style.width = `${width}px`;
    this.#sheet.style.height = `${height}px`;
    this.#sheet.classList.toggle('pixels', scale > 2);
    this.#slide();
  }

  zoom(by: number): void {
    const now = this.#scale === 'fit' ? this.#fitting() : this.#scale;
    const next = by > 0 ? this.#scales.find((scale) => scale > now * 1.001) : this.#scales.findLast((scale) => scale < now * 0.999);
    if (next === undefined) return;
    const { scrollLeft, scrollTop, clientWidth, clientHeight } = this.#stage;
    this.#scale = next;
    this.#lay();
    // What was in the middle stays there.
    this.#stage.scrollTo({
      left: ((scrollLeft + clientWidth / 2) * next) / now - clientWidth / 2,
      top: ((scrollTop + clientHeight / 2) * next) / now - clientHeight / 2,
    });
  }
  fit(): void {
    this.#scale = 'fit';
    this.#lay();
  }

  // ---- the slider ----

  // The line stands at a place of the window; to its left the page is as it came.
  #slide(): void {
    const percent = Number(this.#slider.value);
    this.#slider.setAttribute('aria-valuetext', texts.sliderValue(Math.round(percent)));
    this.#line.style.left = `${percent}%`;
    const stage = this.#stage.getBoundingClientRect();
    const at = stage.left + (stage.width * percent) / 100;
    const isCompared = this.#view === 'compare' && this.#canvases.before.width > 0;
    for (const kind of ['before', 'after'] as const) {
      const canvas = this.#canvases[kind];
      const box = canvas.getBoundingClientRect();
      const cut = Math.min(Math.max(at - box.left, 0), box.width);
      canvas.style.clipPath =
        !isCompared ? 'none' : kind === 'before' ? `inset(0 ${box.width - cut}px 0 0)` : `inset(0 0 0 ${cut}px)`;
    }
  }

  // The page is moved by dragging it.
  #drag(): void {
    let from: { x: number; y: number; left: number; top: number } | null = null;
    this.#stage.addEventListener('pointerdown', (event) => {
      if (event.pointerType !== 'mouse' || event.button !== 0) return; // fingers scroll by themselves
      from = { x: event.clientX, y: event.clientY, left: this.#stage.scrollLeft, top: this.#stage.scrollTop };
      this.#stage.setPointerCapture(event.pointerId);
    });
    this.#stage.addEventListener('pointermove', (event) => {
      if (from === null) return;
      this.#stage.scrollTo(from.left + from.x - event.clientX, from.top + from.y - event.clientY);
    });
    for (const end of ['pointerup', 'pointercancel']) this.#stage.addEventListener(end, () => (from = null));
  }
}
