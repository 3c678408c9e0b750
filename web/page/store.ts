// What outlives a reload: files, pages and their results, in IndexedDB, or in memory where the browser keeps nothing.
import type { CleanRecord } from '../src/rastrel.mjs';
import type { Settings } from './settings';

export interface StoredPage {
  id: number;
  fileId: number;
  index: number;
  count: number; // pages of its file
  name: string;
  settings: Settings;
  order: number;
  error?: string;
  record?: CleanRecord;
  thumbnail?: Blob;
}
type Table = 'files' | 'pages' | 'results';
const tables: Table[] = ['files', 'pages', 'results'];

function asked<Result>(request: IDBRequest<Result>): Promise<Result> {
  return new Promise((resolve, reject) => {
    request.onsuccess = () => resolve(request.result);
    request.onerror = () => reject(request.error);
  });
}

export class Store {
  #database: IDBDatabase | null = null;
  #memory: Record<Table, Map<number, unknown>> = { files: new Map(), pages: new Map(), results: new Map() };
  onlyInMemory: () => void = () => {};

  async open(): Promise<void> {
    try {
      const request = indexedDB.open('rastrel', 1);
      request.onupgradeneeded = () => {
        for (const table of tables) request.result.createObjectStore(table);
      };
      this.#database = await asked(request);
    } catch {
      this.onlyInMemory();
    }
  }

  async put(table: Table, id: number, value: unknown): Promise<void> {
    if (this.#database !== null && !this.#memory[table].has(id)) {
      try {
        await asked(this.#database.transaction(table, 'readwrite').objectStore(table).put(value, id));
        return;
      } catch {
        this.onlyInMemory(); // no room
      }
    }
    this.#memory[table].set(id, value);
  }

  async get<Value>(table: Table, id: number): Promise<Value | undefined> {
    if (this.#memory[table].has(id)) return this.#memory[table].get(id) as Value;
    if (this.#database === null) return undefined;
    return asked(this.#database.transaction(table).objectStore(table).get(id));
  }

  async pages(): Promise<StoredPage[]> {
    if (this.#database === null) return [];
    const all: StoredPage[] = await asked(this.#database.transaction('pages').objectStore('pages').getAll());
    return all.sort((a, b) => a.order - b.order);
  }

  async remove(table: Table, id: number): Promise<void> {
    this.#memory[table].delete(id);
    if (this.#database !== null) await asked(this.#database.transaction(table, 'readwrite').objectStore(table).delete(id));
  }

  // Files that no page needs any more.
  async sweep(needed: Set<number>): Promise<void> {
    if (this.#database === null) return;
    const keys = await asked(this.#database.transaction('files').objectStore('files').getAllKeys());
    for (const key of keys as number[]) if (!needed.has(key)) await this.remove('files', key);
  }
}
