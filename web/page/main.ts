// The page: where files are dropped, the list of pages, the viewer, the steps, and saving.
import type { CleanRecord } from '../src/rastrel.mjs';
import letterUrl from '../../samples/letter-1bit.tif?url';
import reportUrl from '../../samples/report-grey.png?url';
import catalogueUrl from '../../samples/catalogue-colour.jpg?url';
import { Book, type Page } from './book';
import { button, iconButton, icons, make } from './dom';
import heroUrl from './hero.svg?url';
import iconUrl from './icon.svg?url';
import { type Form, save } from './save';
import { type Step, steps } from './settings';
import { findings, texts } from './texts';
import { Viewer } from './viewer';

const samples = { letter: letterUrl, report: reportUrl, catalogue: catalogueUrl };

const book = new Book();
const viewer = new Viewer(book);
let current: Page | null = null;

// ---- what is said ----

const spoken = make('p', { class: 'hidden', role: 'status' });
const toast = make('p', { class: 'toast', 'aria-hidden': 'true' });
let toastTimer = 0;
function say(text: string): void {
  spoken.textContent = toast.textContent = text;
  toast.classList.add('shown');
  clearTimeout(toastTimer);
  const longEnoughToRead = 4000; // milliseconds
  toastTimer = window.setTimeout(() => toast.classList.remove('shown'), longEnoughToRead);
}

// ---- files in ----

const picker = make('input', { type: 'file', multiple: true, class: 'hidden', tabindex: '-1', 'aria-hidden': 'true',
  accept: '.tif,.tiff,.pdf,.png,.jpg,.jpeg,.webp,.bmp,image/*,application/pdf' });
const folderPicker = make('input', { type: 'file', webkitdirectory: true, class: 'hidden', tabindex: '-1', 'aria-hidden': 'true' });
for (const input of [picker, folderPicker]) {
  input.addEventListener('change', () => {
    void add([...(input.files ?? [])]);
    input.value = '';
  });
}
const addButton = () => button(texts.addFiles, icons.add, () => picker.click(), { class: 'primary add' });
const folderButton = () => button(texts.addFolder, icons.folder, () => folderPicker.click());

async function add(files: File[]): Promise<void> {
  const wasEmpty = book.pages.length === 0;
  const adding = book.add(files.sort((a, b) => a.name.localeCompare(b.name, 'en', { numeric: true })));
  if (wasEmpty || current === null) select(book.pages[0] ?? null);
  await adding;
}

async function addSample(name: keyof typeof samples): Promise<void> {
  const url = samples[name];
  const response = await fetch(url);
  await add([new File([await response.blob()], url.split('/').at(-1)!.replace(/-[\w-]{8}(?=\.)/, ''))]);
}

// All files of what was dropped, folders and theirs as well.
async function filesOf(entry: FileSystemEntry): Promise<File[]> {
  if (entry.isFile) return [await new Promise<File>((resolve, reject) => (entry as FileSystemFileEntry).file(resolve, reject))];
  const reader = (entry as FileSystemDirectoryEntry).createReader();
  const files: File[] = [];
  for (;;) {
    const some = await new Promise<FileSystemEntry[]>((resolve, reject) => reader.readEntries(resolve, reject));
    if (some.length === 0) return files;
    for (const one of some) files.push(...(await filesOf(one)));
  }
}

const curtain = make('div', { class: 'curtain', 'aria-hidden': 'true' }, make('p', {}, texts.dropNow));
let depth = 0;
addEventListener('dragenter', () => curtain.classList.toggle('shown', ++depth > 0));
addEventListener('dragleave', () => curtain.classList.toggle('shown', --depth > 0));
addEventListener('dragover', (event) => event.preventDefault());
addEventListener('drop', (event) => {
  event.preventDefault();
  depth = 0;
  curtain.classList.remove('shown');
  const items = [...(event.dataTransfer?.items ?? [])].filter(({ kind }) => kind === 'file');
  const entries = items.map((item) => item.webkitGetAsEntry() ?? item.getAsFile());
  void Promise.all(entries.map(async (entry) => (entry instanceof File ? [entry] : entry === null ? [] : filesOf(entry)))).then(
    (files) => add(files.flat()),
  );
});
addEventListener('paste', (event) => {
  const files = [...(event.clipboardData?.files ?? [])];
  if (files.length > 0) void add(files);
});

// ---- the list of pages ----

interface Entry {
  item: HTMLLIElement;
  choose: HTMLButtonElement;
  picture: HTMLImageElement;
  state: HTMLElement;
  bar: HTMLElement;
}
const entries = new Map<number, Entry>();
const list = make('ol', { class: 'pages', 'aria-label': texts.pagesLabel });

function entryOf(page: Page): Entry {
  const known = entries.get(page.id);
  if (known) return known;
  const picture = make('img', { alt: '', loading: 'lazy' });
  const state = make('span', { class: 'state' });
  const bar = make('span', { class: 'share' });
  const choose = make('button', { type: 'button', class: 'page', click: () => select(page) },
    make('span', { class: 'paper' }, picture, bar), make('span', { class: 'name' }, page.name), state);
  const item = make('li', {}, choose);
  const entry = { item, choose, picture, state, bar };
  entries.set(page.id, entry);
  return entry;
}

function showEntry(page: Page): void {
  const { item, choose, picture, state, bar } = entryOf(page);
  item.dataset.state = page.state;
  if (page.thumbnailUrl && picture.src !== page.thumbnailUrl) picture.src = page.thumbnailUrl;
  const word = { waiting: texts.waiting, working: texts.working, stopped: texts.stopped, failed: texts.failed, done: '' }[page.state];
  state.textContent = page.state === 'done' && page.record?.blank ? texts.blank : word;
  bar.style.width = page.state === 'working' ? `${Math.round(page.done * 100)}%` : '0';
  choose.title = texts.pageOf(page.name, page.index, page.count);
  choose.querySelector('.name')!.textContent = page.count > 1 ? `${page.name} · ${page.index + 1}` : page.name;
  choose.toggleAttribute('aria-current', page === current);
  if (page === current) choose.setAttribute('aria-current', 'true');
}

function showList(): void {
  const wanted = book.pages.map((page) => entryOf(page).item);
  if (list.children.length !== wanted.length || wanted.some((item, i) => list.children[i] !== item)) list.replaceChildren(...wanted);
  for (const id of [...entries.keys()]) if (!book.pages.some((page) => page.id === id)) entries.delete(id);
  book.pages.forEach(showEntry);
}

function select(page: Page | null): void {
  const before = current;
  current = page;
  if (before && entries.has(before.id)) showEntry(before);
  if (page) {
    showEntry(page);
    entryOf(page).item.scrollIntoView({ block: 'nearest', inline: 'nearest' });
  }
  viewer.open(page);
  showPanel();
}
function stepTo(by: number): void {
  const next = book.pages[book.pages.indexOf(current!) + by];
  if (next) select(next);
}

// ---- the steps of the page, and what was found ----

const boxes = new Map<Step, HTMLInputElement>();
const stepList = make('ul', { class: 'steps' });
for (const step of steps) {
  const box = make('input', {
    type: 'checkbox', id: `step-${step}`, 'aria-describedby': `step-${step}-help`,
    change: () => current && book.change([current], { [step]: box.checked }),
  });
  boxes.set(step, box);
  const [name, help] = texts.steps[step];
  stepList.append(make('li', {}, box,
    make('label', { for: box.id }, name), make('small', { id: `step-${step}-help` }, help)));
}
const found = make('ul', { class: 'found' });
const pageName = make('h2', {});
const keys = make('details', { class: 'keys' }, make('summary', {}, texts.keysTitle),
  make('dl', {}, ...texts.keys.flatMap(([key, act]) => [make('dt', {}, key!), make('dd', {}, act!)])));

const menu = (label: string, forms: [string, () => void][], kind: string): HTMLElement => {
  const details = make('details', { class: `menu ${kind}` });
  details.append(
    make('summary', {}, label),
    make('div', { class: 'choices' }, ...forms.map(([text, act]) => button(text, null, () => {
      details.open = false;
      act();
    }))),
  );
  details.addEventListener('focusout', (event) => {
    if (!details.contains(event.relatedTarget as Node | null)) details.open = false;
  });
  return details;
};
const forms = (names: Record<string, string>, act: (form: Form) => void): [string, () => void][] =>
  Object.entries(names).map(([form, text]) => [text, () => act(form as Form)]);

const panel = make('aside', { class: 'panel', 'aria-label': texts.stepsTitle },
  pageName,
  menu(texts.savePage, forms(texts.savePageAs, (form) => current && void saveAs([current], form)), 'wide'),
  make('h3', {}, texts.stepsTitle), stepList,
  button(texts.applyToAll, null, () => {
    if (current === null) return;
    const { quarters: _, ...chosen } = current.settings;
    book.change(book.pages, chosen);
  }, { class: 'link' }),
  make('h3', {}, texts.foundTitle), found,
  button(texts.remove, icons.remove, () => current && removePages([current]), { class: 'link danger' }),
  keys);

function showFound(record: CleanRecord | undefined): void {
  found.replaceChildren(...(record ? findings(record) : []).map((text) => make('li', {}, text)));
}

function showPanel(): void {
  if (current === null) return;
  pageName.textContent = texts.pageOf(current.name, current.index, current.count);
  for (const [step, box] of boxes) {
    box.checked = current.settings[step];
    box.disabled = current.state === 'failed';
  }
  showFound(current.state === 'failed' ? undefined : current.record);
  panel.classList.toggle('failed', current.state === 'failed');
}
viewer.found = showFound;
viewer.step = stepTo;
viewer.turn = (quarters) => current && book.change([current], { quarters: (current.settings.quarters + quarters) % 4 });

function removePages(pages: Page[]): void {
  const place = current ? book.pages.indexOf(current) : 0;
  book.remove(pages);
  select(book.pages[Math.min(place, book.pages.length - 1)] ?? null);
}

// ---- saving ----

async function saveAs(wanted: Page[], form: Form): Promise<void> {
  const pages = wanted.filter(({ state }) => state === 'done');
  if (pages.length === 0) return say(texts.nothingToSave);
  await save(book, pages, form, (done) => {
    if (pages.length > 1) say(texts.saving(done, pages.length));
  });
  say(texts.saved);
}

// ---- the frame ----

const progress = make('progress', { max: '1', value: '0', 'aria-label': texts.pagesLabel });
const progressText = make('span', { class: 'count' });
const stopButton = button(texts.stop, null, () => (book.isStopped ? book.goOn() : book.stop()), { class: 'quiet' });
const undoButton = button(texts.undo, icons.undo, () => undo(), { class: 'quiet' });
function undo(): void {
  book.undo();
  if (current === null || !book.pages.includes(current)) select(book.pages[0] ?? null);
  else select(current);
}

const app = document.querySelector<HTMLElement>('#app')!;
app.append(
  make('header', {},
    make('h1', {}, make('img', { src: iconUrl, alt: '', width: '28', height: '28' }), texts.title),
    make('div', { class: 'status' }, progress, progressText, stopButton),
    make('div', { class: 'actions' },
      undoButton,
      iconButton(texts.removeAll, icons.remove, () => removePages([...book.pages])),
      addButton(),
      menu(texts.saveAll, forms(texts.saveAllAs, (form) => void saveAs(book.pages, form)), 'right')),
  ),
  make('main', { class: 'start' },
    make('div', { class: 'card' },
      make('img', { src: heroUrl, alt: '', class: 'hero', width: '360', height: '250' }),
      make('h2', {}, texts.lead),
      make('p', { class: 'drop' }, make('strong', {}, texts.drop), ` ${texts.dropMore}`),
      make('p', { class: 'buttons' }, addButton(), folderButton()),
      make('p', { class: 'or' }, texts.samplesLead),
      make('ul', { class: 'samples' }, ...(Object.keys(samples) as (keyof typeof samples)[]).map((name) =>
        make('li', {}, make('button', { type: 'button', click: () => void addSample(name), 'data-sample': name },
          make('strong', {}, texts.samples[name]), make('small', {}, texts.sampleKinds[name]))))))),
  make('main', { class: 'desk' },
    make('nav', { 'aria-label': texts.pagesLabel }, list, make('p', { class: 'more' }, folderButton())),
    viewer.element, panel),
  curtain, picker, folderPicker, spoken, toast,
);

function showStatus(): void {
  const all = book.pages.filter(({ state }) => state !== 'failed').length;
  const done = book.pages.filter(({ state }) => state === 'done').length;
  const isAtWork = book.pages.some(({ state }) => state === 'waiting' || state === 'working');
  const isStopped = !isAtWork && book.pages.some(({ state }) => state === 'stopped') && book.isStopped;
  document.body.classList.remove('opening');
  document.body.classList.toggle('empty', book.pages.length === 0);
  document.body.classList.toggle('busy', isAtWork);
  progress.value = all === 0 ? 0 : done / all;
  progress.hidden = !isAtWork;
  stopButton.hidden = !isAtWork && !isStopped;
  stopButton.textContent = isStopped ? texts.resume : texts.stop;
  progressText.textContent = isAtWork || isStopped ? texts.progress(done, all) : all > 0 ? texts.allDone(all) : '';
  undoButton.disabled = !book.canUndo;
}

// Changes come in crowds; what is shown follows once a frame.
const changedPages = new Set<Page>();
let isListChanged = false;
let isPlanned = false;
let wasBusy = false;
function showChanges(): void {
  isPlanned = false;
  if (isListChanged) showList();
  else for (const page of changedPages) if (entries.has(page.id)) showEntry(page);
  showStatus();
  const isCurrentChanged = current !== null && changedPages.has(current);
  if (current === null && book.pages.length > 0) select(book.pages[0]!);
  else if (isCurrentChanged || (isListChanged && current !== null)) {
    showPanel();
    if (current!.state !== 'working') viewer.open(current);
  }
  const isBusy = document.body.classList.contains('busy');
  if (wasBusy && !isBusy) spoken.textContent = progressText.textContent;
  wasBusy = isBusy;
  isListChanged = false;
  changedPages.clear();
}
book.changed = (page) => {
  if (page === null) isListChanged = true;
  else changedPages.add(page);
  if (isPlanned) return;
  isPlanned = true;
  requestAnimationFrame(showChanges);
};
book.noted = say;
book.store.onlyInMemory = () => say(texts.notKept);

// ---- keys ----

const keyActs: Record<string, () => void> = {
  ArrowUp: () => stepTo(-1),
  ArrowDown: () => stepTo(1),
  '+': () => viewer.zoom(1),
  '=': () => viewer.zoom(1),
  '-': () => viewer.zoom(-1),
  '0': () => viewer.fit(),
  '1': () => viewer.show('compare'),
  '2': () => viewer.show('after'),
  '3': () => viewer.show('removed'),
  r: () => viewer.turn(3),
  R: () => viewer.turn(1),
  Delete: () => current && removePages([current]),
};
addEventListener('keydown', (event) => {
  if ((event.ctrlKey || event.metaKey) && event.key === 'z') {
    event.preventDefault();
    return undo();
  }
  if (event.ctrlKey || event.metaKey || event.altKey || book.pages.length === 0) return;
  const target = event.target as HTMLElement;
  const scrolls = target.classList.contains('stage') || (target instanceof HTMLInputElement && target.type !== 'checkbox');
  if (scrolls && event.key.startsWith('Arrow')) return;
  const act = keyActs[event.key];
  if (act === undefined) return;
  event.preventDefault();
  act();
});

// ---- start ----

void book.open().then(async () => {
  viewer.scales = await book.zooms();
});
if (import.meta.env.PROD && 'serviceWorker' in navigator) void navigator.serviceWorker.register('./sw.js').catch(() => {});
