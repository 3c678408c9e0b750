// Several workers, each with an instance of the library, for several pages at once.
import { RastrelError, abortError, compile } from './library.mjs';

const isNode = typeof Worker === 'undefined';

async function standardWorker() {
  if (!isNode) return new Worker(new URL('./worker.mjs', import.meta.url), { type: 'module' });
  const { Worker: NodeWorker } = await import(/* @vite-ignore */ ['node', 'worker_threads'].join(':'));
  const here = import.meta.url; // apart, or bundlers take the file along once more
  return new NodeWorker(new URL('./worker.mjs', here));
}

function listen(worker, event, act) {
  if (isNode) worker.on(event, act);
  else worker.addEventListener(event, (happened) => act(event === 'message' ? happened.data : happened));
}

function errorOf({ name, message, code }) {
  if (name === 'AbortError') return abortError();
  const kinds = { RangeError, TypeError };
  if (Object.hasOwn(kinds, name)) return new kinds[name](message);
  const error = new RastrelError(message, code ?? 0);
  error.name = name;
  return error;
}

export class Pool {
  #most;
  #compiled;
  #makeWorker;
  #workers = new Set(); // { worker, job }
  #queue = [];
  #isClosed = false;

  constructor({ workers = Math.min(globalThis.navigator?.hardwareConcurrency ?? 2, 4), wasm, makeWorker } = {}) {
    this.#most = Math.max(1, workers);
    this.#makeWorker = makeWorker ?? standardWorker;
    this.#compiled = compile(wasm);
    this.#compiled.catch(() => {}); // whoever calls is told
  }

  clean(image, { signal, ...options } = {}) {
    const { progress, ...rest } = options;
    return this.call('clean', [image, rest], { signal, progress });
  }
  examine(image, { signal } = {}) {
    return this.call('examine', [image], { signal });
  }
  apply(image, name, values = {}, { signal } = {}) {
    return this.call('apply', [image, name, values], { signal });
  }

  // Runs a method of the worker's. What is urgent goes before all that waits.
  call(method, values, { signal, progress, urgent = false } = {}) {
    return new Promise((resolve, reject) => {
      if (this.#isClosed || signal?.aborted) return reject(abortError());
      const job = { method, values, signal, progress, resolve, reject };
      job.cancel = () => this.#cancel(job);
      signal?.addEventListener('abort', job.cancel, { once: true });
      if (urgent) this.#queue.unshift(job);
      else this.#queue.push(job);
      this.#run();
    });
  }

  close() {
    this.#isClosed = true;
    for (const job of this.#queue.splice(0)) this.#end(job, 'reject', abortError());
    for (const entry of [...this.#workers]) {
      if (entry.job) this.#end(entry.job, 'reject', abortError());
      this.#drop(entry);
    }
  }

  #run() {
    while (this.#queue.length > 0) {
      let entry = [...this.#workers].find(({ job }) => job === null);
      if (entry === undefined && this.#workers.size >= this.#most) return;
      const job = this.#queue.shift();
      if (entry === undefined) {
        entry = { worker: null, job };
        this.#workers.add(entry);
        this.#start(entry);
      } else {
        entry.job = job;
        this.#send(entry);
      }
    }
  }

  async #start(entry) {
    try {
      const compiled = await this.#compiled;
      const worker = await this.#makeWorker();
      if (!this.#workers.has(entry)) return void worker.terminate(); // cancelled meanwhile
      entry.worker = worker;
      listen(worker, 'message', (message) => this.#hear(entry, message));
      listen(worker, 'error', (event) => this.#lose(entry, event.message ?? 'the worker stopped'));
      worker.postMessage({ compiled });
      this.#send(entry);
    } catch (error) {
      this.#lose(entry, error.message);
    }
  }

  #send(entry) {
    const { method, values, progress } = entry.job;
    try {
      entry.worker.postMessage({ method, values, wantsProgress: progress !== undefined });
    } catch (error) {
      this.#end(entry.job, 'reject', error); // what cannot be copied
      entry.job = null;
      this.#run();
    }
  }

  #hear(entry, message) {
    const { job } = entry;
    if (job === null) return;
    if (message.progress !== undefined) {
      let goesOn;
      try {
        goesOn = job.progress?.(...message.progress);
      } catch (error) {
        this.#end(job, 'reject', error);
        goesOn = false;
      }
      if (goesOn === false) job.cancel();
      return;
    }
    entry.job = null;
    if (message.error !== undefined) this.#end(job, 'reject', errorOf(message.error));
    else this.#end(job, 'resolve', message.result);
    this.#run();
  }

  // A worker that is at work hears nothing, so it is ended; the next job gets a new one.
  #cancel(job) {
    const place = this.#queue.indexOf(job);
    if (place >= 0) this.#queue.splice(place, 1);
    const entry = [...this.#workers].find((one) => one.job === job);
    if (entry !== undefined) this.#drop(entry);
    this.#end(job, 'reject', abortError());
    this.#run();
  }

  #lose(entry, reason) {
    const { job } = entry;
    this.#drop(entry);
    if (job) this.#end(job, 'reject', new RastrelError(reason, 0));
    this.#run();
  }

  #drop(entry) {
    this.#workers.delete(entry);
    entry.job = null;
    entry.worker?.terminate();
  }

  #end(job, how, value) {
    job.signal?.removeEventListener('abort', job.cancel);
    job[how](value);
  }
}
