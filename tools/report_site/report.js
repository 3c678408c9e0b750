// The report of a batch. Its data are scripts that call `rastrel`, since a page from the disk may load scripts
// and pictures but nothing else.
'use strict';

const Flag = { turned: 1, blank: 2, takenBack: 4, before: 8, after: 16, dropped: 32 };
const kTilesAtOnce = 120;
const kAttention = 30; // from here on a page is to be looked at
const find = (id) => document.getElementById(id);

let summary;
const pages = []; // by place, in natural order
const records = new Map(); // chunk -> {place: record}
const waiting = new Map(); // chunk -> what wants it
let shown = []; // places, as filtered and ordered
let tiles = 0; // of those that are in the grid
let rowChunks = 0;

const rastrel = {
  summary(data) {
    summary = data;
    find('made').textContent = `${data.manifest}, ${data.made.replace('T', ' ').replace('Z', '')} UTC, Rastrel ${data.version}`;
    for (let i = 0; i < data.rowChunks; ++i) load(`data/rows-${i}.js`);
  },
  rows(chunk, rows) {
    rows.forEach((row, i) => {
      const [input, page, key, output, state, score, reasons, skew, confidence, removed, specks, holes, seconds, flags, ink] = row;
      const place = chunk * summary.rowsPerChunk + i;
      pages[place] = { place, input, page, key, output, state, score, reasons, skew, confidence, removed, specks, holes, seconds, flags, ink };
    });
    if (++rowChunks === summary.rowChunks) begin();
  },
  records(chunk, data) {
    records.set(chunk, data);
    for (const use of waiting.get(chunk) ?? []) use();
    waiting.delete(chunk);
  },
};

function load(path) {
  const script = document.createElement('script');
  script.src = path;
  script.onerror = () => { find('made').textContent = `${path} is missing`; };
  document.head.append(script);
}

function make(tag, words = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(words)) {
    if (name in element) element[name] = value;
    else element.setAttribute(name, value);
  }
  element.append(...children);
  return element;
}

// ---- the overview

const percent = (share) => `${(100 * share).toFixed(1)} %`;
const orders = {
  'by attention': (a, b) => b.score - a.score || a.place - b.place,
  'as in the folders': (a, b) => a.place - b.place,
  'largest angle first': (a, b) => Math.abs(b.skew) - Math.abs(a.skew) || a.place - b.place,
  'least certain first': (a, b) => (a.confidence < 0 ? 2 : a.confidence) - (b.confidence < 0 ? 2 : b.confidence) || a.place - b.place,
  'most removed first': (a, b) => b.removed + b.specks - a.removed - a.specks || a.place - b.place,
  'most specks first': (a, b) => b.specks - a.specks || a.place - b.place,
  'most ink first': (a, b) => (b.ink ?? -1) - (a.ink ?? -1) || a.place - b.place,
  'slowest first': (a, b) => b.seconds - a.seconds || a.place - b.place,
};
const filters = {
  'all pages': () => true,
  'look at these': (page) => page.score >= kAttention,
  failed: (page) => page.state === 'failed',
  waiting: (page) => page.state === 'waiting',
  blank: (page) => page.flags & Flag.blank,
  turned: (page) => page.flags & Flag.turned,
  'turned by more than 3°': (page) => page.flags & Flag.turned && Math.abs(page.skew) > 3,
  'angle not certain': (page) => page.confidence >= 0 && page.confidence < 0.5 && page.skew !== 0,
  'much removed': (page) => page.removed > 0.1 || page.specks > 0.005,
  'a step was taken back': (page) => page.flags & Flag.takenBack,
};
const histograms = [
  { title: 'Skew, degrees', value: (page) => page.skew, from: -5, to: 5 },
  { title: 'Removed as border, % of the page', value: (page) => 100 * page.removed, from: 0, to: 30 },
  { title: 'Specks, % of the page', value: (page) => 100 * page.specks, from: 0, to: 1 },
  { title: 'Ink, % of the page', value: (page) => (page.ink === null ? NaN : 100 * page.ink), from: 0, to: 30 },
  { title: 'Time, seconds a page', value: (page) => page.seconds, from: 0, to: null },
  { title: 'Attention', value: (page) => page.score, from: 0, to: 100 },
];

function begin() {
  showTotals();
  for (const each of histograms) showHistogram(each);
  for (const name of Object.keys(filters)) {
    const fitting = pages.filter(filters[name]).length;
    find('filter').append(make('option', { value: name, textContent: `${name} (${fitting})` }));
  }
  for (const name of Object.keys(orders)) find('order').append(make('option', { value: name, textContent: name }));
  for (const id of ['filter', 'order', 'search']) find(id).addEventListener('input', showGrid);
  find('controls').addEventListener('submit', (event) => event.preventDefault());
  new IntersectionObserver((seen) => seen[0].isIntersecting && addTiles(), { rootMargin: '800px' }).observe(find('more'));
  addEventListener('hashchange', route);
  showGrid();
  route();
  document.body.dataset.ready = 'yes';
}

function showTotals() {
  const count = (test) => pages.filter(test).length.toLocaleString('en');
  const seconds = pages.reduce((sum, page) => sum + page.seconds, 0);
  const totals = {
    pages: count(() => true),
    done: count((page) => page.state === 'done'),
    failed: count(filters.failed),
    waiting: count(filters.waiting),
    turned: count(filters.turned),
    blank: count(filters.blank),
    'to look at': count(filters['look at these']),
    'time of work': seconds > 5400 ? `${(seconds / 3600).toFixed(1)} h` : seconds > 90 ? `${(seconds / 60).toFixed(1)} min` : `${seconds.toFixed(1)} s`,
  };
  for (const [name, value] of Object.entries(totals)) {
    find('totals').append(make('div', {}, make('dt', { textContent: name }), make('dd', { textContent: value })));
  }
}

// The bars at both ends hold all that lies beyond them.
function showHistogram({ title, value, from, to }) {
  const kBars = 30;
  const values = pages.filter((page) => page.state === 'done').map(value).filter(Number.isFinite);
  const end = to ?? Math.max(0.01, ...[...values].sort((a, b) => a - b).slice(0, Math.ceil(values.length * 0.99)).slice(-1));
  const bars = new Array(kBars).fill(0);
  for (const each of values) ++bars[Math.min(kBars - 1, Math.max(0, Math.floor(((each - from) / (end - from)) * kBars)))];
  // By square roots: single pages have to be seen beside thousands.
  const most = Math.sqrt(Math.max(1, ...bars));
  const svg = document.createElementNS('http://www.w3.org/2000/svg', 'svg');
  svg.setAttribute('viewBox', `0 0 ${kBars} 100`);
  svg.setAttribute('preserveAspectRatio', 'none');
  svg.setAttribute('role', 'img');
  svg.setAttribute('aria-label', `${title}: ${values.length} pages from ${from} to ${end.toFixed(2)}`);
  bars.forEach((number, i) => {
    const bar = document.createElementNS(svg.namespaceURI, 'rect');
    const height = (100 * Math.sqrt(number)) / most;
    for (const [name, size] of Object.entries({ x: i + 0.05, y: 100 - height, width: 0.9, height })) bar.setAttribute(name, size);
    const tip = document.createElementNS(svg.namespaceURI, 'title');
    const at = (place) => (from + ((end - from) * place) / kBars).toFixed(2);
    tip.textContent = `${number} pages from ${at(i)} to ${at(i + 1)}`;
    bar.append(tip);
    svg.append(bar);
  });
  const ends = make('div', { className: 'ends' }, make('span', { textContent: from }), make('span', { textContent: end.toFixed(end < 10 && to === null ? 2 : 0) }));
  find('histograms').append(make('figure', {}, make('figcaption', { textContent: title }), svg, ends));
}

function showGrid() {
  const text = find('search').value.toLowerCase();
  const filter = filters[find('filter').value];
  shown = pages.filter((page) => filter(page) && page.input.toLowerCase().includes(text)).sort(orders[find('order').value]).map((page) => page.place);
  find('grid').replaceChildren();
  tiles = 0;
  find('count').textContent = `${shown.length.toLocaleString('en')} pages`;
  find('empty').hidden = shown.length > 0;
  addTiles();
}

const picture = (page, what) => `img/${page.key.slice(0, 2)}/${page.key}-${what}.jpg`;
const title = (page) => (page.page > 1 ? `${page.input}, page ${page.page}` : page.input);

function scoreOf(page) {
  return make('span', { className: page.score >= kAttention ? 'score high' : 'score', textContent: page.score, title: 'attention' });
}

function addTiles() {
  const added = shown.slice(tiles, tiles + kTilesAtOnce).map((place) => {
    const page = pages[place];
    const hasPicture = page.flags & (Flag.before | Flag.after);
    const thumb = hasPicture ? make('img', { src: picture(page, 'small'), alt: '', loading: 'lazy' }) : make('span', { textContent: page.state });
    return make('li', {}, make('a', { href: `#${place}` }, make('div', { className: 'thumb' }, thumb), make('div', { className: 'title' }, scoreOf(page), title(page).split('/').pop()), make('div', { className: 'why', textContent: page.reasons[0] ?? '' })));
  });
  tiles += added.length;
  find('grid').append(...added);
}

// ---- a page

const current = () => (location.hash.length > 1 ? pages[Number(location.hash.slice(1))] : undefined);

function route() {
  const page = current();
  const wasPage = !find('page').hidden;
  find('page').hidden = !page;
  find('overview').hidden = Boolean(page);
  if (page) showPage(page);
  else if (wasPage) find('grid').querySelector(`a[href="#${lastPlace}"]`)?.focus();
}

let lastPlace = 0;
function showPage(page) {
  lastPlace = page.place;
  find('name').replaceChildren(scoreOf(page), title(page));
  find('reasons').textContent = page.reasons.join('; ') || 'nothing unusual';
  for (const what of ['before', 'after']) {
    const image = find(what).querySelector('img');
    const isThere = Boolean(page.flags & Flag[what]);
    image.hidden = !isThere;
    if (isThere) image.src = picture(page, what);
    else image.removeAttribute('src');
  }
  slide(page.flags & Flag.after ? 50 : 100);
  find('regions').replaceChildren();
  find('deeds').replaceChildren();
  find('record').replaceChildren();
  find('json').textContent = '';
  withRecord(page.place, (record) => current() === page && showRecord(page, record));
  const at = shown.indexOf(page.place);
  find('previous').disabled = at <= 0;
  find('next').disabled = at < 0 || at + 1 >= shown.length;
  scrollTo(0, 0);
  find('name').focus({ preventScroll: true });
}

function withRecord(place, use) {
  const chunk = Math.floor(place / summary.recordsPerChunk);
  const ready = () => use(records.get(chunk)[place]);
  if (records.has(chunk)) return ready();
  if (waiting.has(chunk)) return void waiting.get(chunk).push(ready);
  waiting.set(chunk, [ready]);
  load(`data/records-${chunk}.js`);
}

const kRows = ['output', 'outputs', 'width', 'height', 'bits', 'dpi', 'skew', 'skewConfidence', 'blank', 'text', 'widthIn', 'heightIn', 'trimmedPixels', 'holes', 'specks', 'speckPixels', 'checked', 'error'];

function showRecord(page, record) {
  const deeds = [];
  if (record.error) deeds.push(record.error);
  if (page.state === 'failed' && !record.error) deeds.push('failed since');
  if (record.cropped) deeds.push('sheet cut out');
  if (record.turned) deeds.push(`turned by ${(-record.skew).toFixed(2)}°`);
  if (record.trimmedPixels) deeds.push(`border removed: ${record.trimmedPixels} pixels, ${percent(page.removed)}`);
  if (record.holes) deeds.push(`${record.holes} holes erased`);
  if (record.specks) deeds.push(`${record.specks} specks removed, ${record.speckPixels} pixels`);
  for (const each of record.takenBack ?? []) deeds.push(`taken back: ${each.step ?? ''} ${each.reason ?? ''}`);
  for (const each of record.sidesLeft ?? []) deeds.push(`left: ${each.side ?? ''} ${each.reason ?? ''}`);
  for (const each of record.skipped ?? []) deeds.push(`${each.step} skipped: ${each.reason}`);
  for (const each of record.reduced ?? []) deeds.push(each);
  find('deeds').append(...(deeds.length ? deeds : ['nothing to do']).map((text) => make('li', { textContent: text })));
  for (const name of kRows) {
    if (record[name] === undefined) continue;
    find('record').append(make('tr', {}, make('th', { textContent: name, scope: 'row' }), make('td', { textContent: record[name] })));
  }
  find('json').textContent = JSON.stringify(record, null, 1);
  for (const region of record.regions ?? []) {
    if (region.kind === 'turn') continue;
    const box = make('div', { className: region.kind, title: `${region.kind}: ${region.reason}` });
    const place = { left: region.left / record.widthIn, top: region.top / record.heightIn, width: (region.right - region.left) / record.widthIn, height: (region.bottom - region.top) / record.heightIn };
    for (const [side, share] of Object.entries(place)) box.style[side] = `${100 * share}%`;
    find('regions').append(box);
  }
}

// The page before is seen left of the line, the page after right of it.
function slide(value) {
  find('slider').value = value;
  find('before').style.clipPath = `inset(0 ${100 - value}% 0 0)`;
  find('line').style.left = `${value}%`;
}

function step(by) {
  const place = shown[shown.indexOf(current()?.place) + by];
  if (place !== undefined) location.hash = `#${place}`;
}

function moveInGrid(event) {
  const links = [...find('grid').querySelectorAll('a')];
  const at = links.indexOf(document.activeElement);
  if (at < 0) return;
  const perRow = Math.max(1, links.filter((link) => link.offsetTop === links[0].offsetTop).length);
  const by = { ArrowLeft: -1, ArrowRight: 1, ArrowUp: -perRow, ArrowDown: perRow }[event.key];
  if (by === undefined) return;
  event.preventDefault();
  links[Math.min(links.length - 1, Math.max(0, at + by))].focus();
}

find('slider').addEventListener('input', () => slide(Number(find('slider').value)));
find('frame').addEventListener('pointermove', (event) => {
  if (!event.buttons) return;
  const box = find('frame').getBoundingClientRect();
  slide(Math.min(100, Math.max(0, (100 * (event.clientX - box.left)) / box.width)));
});
find('showRegions').addEventListener('change', () => { find('regions').hidden = !find('showRegions').checked; });
find('previous').addEventListener('click', () => step(-1));
find('next').addEventListener('click', () => step(1));
find('theme').addEventListener('click', () => {
  const isDark = (document.documentElement.dataset.theme ?? (matchMedia('(prefers-color-scheme: dark)').matches ? 'dark' : 'light')) === 'dark';
  document.documentElement.dataset.theme = isDark ? 'light' : 'dark';
});
addEventListener('keydown', (event) => {
  if (event.altKey || event.ctrlKey || event.metaKey) return;
  if (find('page').hidden) return moveInGrid(event);
  if (event.key === 'Escape') location.hash = '';
  if (event.target === find('slider')) return;
  if (event.key === 'ArrowLeft') step(-1);
  if (event.key === 'ArrowRight') step(1);
  if (event.key === 'r') find('showRegions').click();
});

load('data/summary.js');
