// Clean pages to the user's disk.
import { Zip, ZipPassThrough } from 'fflate';
import type { Book, Page } from './book';
import { pdf } from './encode';

export type Form = 'tiff' | 'png' | 'pdf' | 'zipTiff' | 'zipPng';

function download(file: Blob, name: string): void {
  const link = document.createElement('a');
  link.href = URL.createObjectURL(file);
  link.download = name;
  link.click();
  const untilItIsRead = 60_000; // milliseconds
  setTimeout(() => URL.revokeObjectURL(link.href), untilItIsRead);
}

const stem = (name: string): string => name.replace(/\.[^.]*$/, '').replace(/[/\\:*?"<>|]/g, '-') || 'page';

// Names of all pages, none of them twice.
function namesOf(pages: Page[]): string[] {
  const digits = (count: number) => String(count).length;
  const taken = new Set<string>();
  return pages.map((page) => {
    const number = page.count > 1 ? `-${String(page.index + 1).padStart(digits(page.count), '0')}` : '';
    const wanted = stem(page.name) + number;
    let name = wanted;
    for (let n = 2; taken.has(name); ++n) name = `${wanted} (${n})`;
    taken.add(name);
    return name;
  });
}

async function* results(book: Book, pages: Page[], saved: (done: number) => void): AsyncGenerator<Blob> {
  for (const [i, page] of pages.entries()) {
    saved(i);
    const result = await book.result(page);
    if (result) yield result;
  }
}

async function zipped(book: Book, pages: Page[], form: 'tiff' | 'png', saved: (done: number) => void): Promise<Blob> {
  const parts: BlobPart[] = [];
  const zip = new Zip((error, chunk) => {
    if (error) throw error;
    parts.push(new Blob([chunk as BlobPart])); // out of the heap
  });
  const names = namesOf(pages);
  let i = 0;
  for await (const result of results(book, pages, saved)) {
    const file = form === 'tiff' ? await book.toTiff(result) : result;
    const entry = new ZipPassThrough(`${names[i++]}.${form === 'tiff' ? 'tif' : 'png'}`);
    zip.add(entry);
    entry.push(new Uint8Array(await file.arrayBuffer()), true);
  }
  zip.end();
  return new Blob(parts, { type: 'application/zip' });
}

export async function save(book: Book, pages: Page[], form: Form, saved: (done: number) => void): Promise<void> {
  const name = stem(pages[0]!.name);
  if (form === 'pdf') download(await pdf(results(book, pages, saved), name), `${name}.pdf`);
  else if (form === 'zipTiff') download(await zipped(book, pages, 'tiff', saved), 'pages.zip');
  else if (form === 'zipPng') download(await zipped(book, pages, 'png', saved), 'pages.zip');
  else {
    for await (const result of results(book, pages, saved)) {
      const file = form === 'tiff' ? await book.toTiff(result) : result;
      download(file, `${namesOf(pages)[0]}.${form === 'tiff' ? 'tif' : 'png'}`);
    }
  }
}
