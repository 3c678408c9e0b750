// The worker's side of a Pool.
import { load } from './library.mjs';

// The memory of images in a result, which is handed over rather than copied.
function buffersOf(value, found = new Set()) {
  if (ArrayBuffer.isView(value)) found.add(value.buffer);
  else if (value !== null && typeof value === 'object' && !(value instanceof Blob)) {
    for (const member of Object.values(value)) buffersOf(member, found);
  }
  return found;
}

// `methodsOf` is given the library and returns what can be called. After its own arguments each method gets a
// function that reports progress, or undefined where nobody asks.
export async function serve(methodsOf) {
  const isNode = typeof self === 'undefined';
  const port = isNode ? (await import(/* @vite-ignore */ ['node', 'worker_threads'].join(':'))).parentPort : self;
  const listen = (act) => (isNode ? port.on('message', act) : port.addEventListener('message', ({ data }) => act(data)));
  let methods;
  listen(async (message) => {
    if (message.compiled !== undefined) {
      methods = load(message.compiled).then(methodsOf);
      methods.catch(() => {}); // whoever calls is told
      return;
    }
    const report = message.wantsProgress ? (step, done) => port.postMessage({ progress: [step, done] }) : undefined;
    try {
      const result = await (await methods)[message.method](...message.values, report);
      port.postMessage({ result }, [...buffersOf(result)]);
    } catch (error) {
      const { name, message: text, code } = error;
      port.postMessage({ error: { name, message: text, code } });
    }
  });
}
