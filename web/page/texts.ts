// All words of the page.
import type { CleanRecord } from '../src/rastrel.mjs';
import type { Step } from './settings';

const counted = (count: number, one: string, many: string): string => `${count.toLocaleString('en')} ${count === 1 ? one : many}`;
export const pages = (count: number): string => counted(count, 'page', 'pages');

export const texts = {
  title: 'Rastrel',
  lead: 'Straight, clean pages of scanned ones',
  drop: 'Drop scans here',
  dropMore: 'TIFF, PDF, PNG, JPEG, WebP or BMP, single pages or whole folders. Nothing leaves this computer.',
  dropNow: 'Let go to add these files',
  addFiles: 'Add files',
  addFolder: 'Add a folder',
  samplesLead: 'Or try one of these:',
  samples: { letter: 'A letter', report: 'A report', catalogue: 'A catalogue page' },
  sampleKinds: { letter: 'black and white', report: 'grey', catalogue: 'colour' },
  saveAll: 'Save all',
  saveAllAs: { zipTiff: 'TIFF pages in a ZIP', zipPng: 'PNG pages in a ZIP', pdf: 'One PDF' },
  savePage: 'Save this page',
  savePageAs: { tiff: 'TIFF', png: 'PNG', pdf: 'PDF' },
  stop: 'Stop',
  resume: 'Go on',
  undo: 'Undo',
  removeAll: 'Remove all',
  remove: 'Remove this page',
  pagesLabel: 'Pages',
  pageOf: (name: string, index: number, count: number): string => (count > 1 ? `${name}, page ${index + 1} of ${count}` : name),
  views: { compare: 'Compare', after: 'Result', removed: 'Removed' },
  viewLabel: 'What is shown',
  slider: 'Before and after',
  sliderValue: (percent: number): string => `${percent} percent of the width shows the page before cleaning`,
  before: 'Before',
  after: 'After',
  zoomIn: 'Zoom in',
  zoomOut: 'Zoom out',
  fit: 'Fit',
  fitLabel: 'Fit the page to the window',
  turnLeft: 'Turn left',
  turnRight: 'Turn right',
  previous: 'Previous page',
  next: 'Next page',
  stepsTitle: 'Steps',
  steps: {
    deskew: ['Straighten', 'turn lines level, to hundredths of a degree'],
    borders: ['Borders', 'take away what lies outside the sheet'],
    holes: ['Punch holes', 'paint them over with the paper'],
    specks: ['Specks', 'remove marks of dust'],
    cropSheet: ['Cut out the sheet', 'from a dark surround'],
    flatten: ['Even light', 'the shadow of a gutter or a lamp'],
    whitePaper: ['White paper', 'and ink as it is'],
    bleed: ['Less show-through', 'from the other side'],
    blackAndWhite: ['Black and white', 'by paper and ink at each place'],
  } satisfies Record<Step, [string, string]>,
  applyToAll: 'Use these steps for all pages',
  foundTitle: 'Found and done',
  legend: { border: 'borders', hole: 'holes', speck: 'specks' },
  keysTitle: 'Keys',
  keys: [
    ['↑ ↓', 'another page'],
    ['+ −', 'zoom'],
    ['0', 'fit'],
    ['R, Shift R', 'turn right, left'],
    ['1 2 3', 'compare, result, removed'],
    ['Ctrl Z', 'undo'],
    ['Delete', 'remove the page'],
  ],
  waiting: 'waiting',
  working: 'at work',
  stopped: 'stopped',
  failed: 'cannot be read',
  blank: 'blank',
  progress: (done: number, all: number): string => `${done.toLocaleString('en')} of ${pages(all)} clean`,
  allDone: (all: number): string => `${pages(all)} clean`,
  saving: (done: number, all: number): string => `Saving, ${done} of ${pages(all)}`,
  nothingToSave: 'There is no clean page to save yet.',
  saved: 'Saved.',
  notKept: 'The browser has no room to keep these pages: they are lost when this tab is closed.',
  readingPdf: (name: string): string => `Reading ${name}`,
  unreadable: {
    unknown: 'This is no page that can be read here: TIFF, PDF, PNG, JPEG, WebP and BMP can.',
    damaged: 'The file is damaged: it ends early or contradicts itself.',
    empty: 'The file is empty.',
    locked: 'The PDF is locked with a password.',
    large: 'The page has more pixels than a browser can hold.',
    memory: 'There is not enough memory for this page.',
  } as Record<string, string>,
  refused: (reason: string): string => `The page could not be cleaned: it ${reason}.`,
  undone: 'Undone.',
  offlineReady: 'Works offline',
  footer: 'Everything happens in this browser.',
};

// What was found and done, as sentences.
export function findings(record: CleanRecord): string[] {
  const said: string[] = [];
  const angle = Math.abs(record.skew ?? 0).toFixed(2);
  if (record.turned) said.push(`Turned by ${angle}°`);
  else if (record.skew !== undefined) said.push(Number(angle) <= 0.05 ? 'Is straight' : `Leans by ${angle}°, left as it is`);
  if (record.cropped) said.push('Sheet cut out');
  const sides = (['Left', 'Top', 'Right', 'Bottom'] as const).filter((side) => record[`trimmed${side}`] > 0);
  if (sides.length > 0) said.push(`Borders removed: ${sides.join(', ').toLowerCase()}`);
  if (record.holes > 0) said.push(`${counted(record.holes, 'punch hole', 'punch holes')} filled`);
  if (record.specks > 0) said.push(`${counted(record.specks, 'speck', 'specks')} removed`);
  if (record.blank) said.push('Nothing is written on it');
  for (const { side, reason } of record.sidesLeft ?? []) said.push(`${side[0]!.toUpperCase()}${side.slice(1)} side left alone: ${reason}`);
  for (const { step, reason } of record.takenBack ?? []) said.push(`Taken back, ${step}: ${reason}`);
  const kinds: Record<number, string> = { 1: 'black and white', 8: 'grey', 24: 'colour' };
  const assumed = record.resolutionAssumed ? ' (assumed)' : '';
  said.push(
    `${record.width} × ${record.height} pixels, ${kinds[record.bits] ?? `${record.bits} bits`}, ` +
      `${Math.round(record.dpi)} dpi${assumed}`,
  );
  return said;
}
