import { createHash } from 'node:crypto';
import { defineConfig, type Plugin } from 'vite';

// The service worker knows all files of the build by name, but for those that are only needed for PDF; a change in any
// of them is another version.
function serviceWorker(): Plugin {
  return {
    name: 'service-worker',
    apply: 'build',
    enforce: 'post',
    generateBundle(_, bundle) {
      const names = Object.keys(bundle).sort();
      const hash = createHash('sha256');
      for (const name of names) {
        const file = bundle[name]!;
        hash.update(name).update(file.type === 'chunk' ? file.code : file.source);
      }
      const first = names.filter((name) => !/pdf|\.map$/.test(name)).map((name) => `./${name}`);
      const source = `const version = ${JSON.stringify(hash.digest('hex').slice(0, 16))};
const files = ${JSON.stringify(['./', ...first], null, 1)};
${handlers}`;
      this.emitFile({ type: 'asset', fileName: 'sw.js', source });
    },
  };
}

// What is known comes from the cache; what is not, of this host, goes into it. Older versions' caches go when this one
// takes over.
const handlers = `
self.addEventListener('install', (event) => {
  event.waitUntil(caches.open(version).then((cache) => cache.addAll(files)).then(() => self.skipWaiting()));
});
self.addEventListener('activate', (event) => {
  event.waitUntil(
    caches.keys().then((names) => Promise.all(names.filter((name) => name !== version).map((name) => caches.delete(name))))
      .then(() => self.clients.claim()),
  );
});
self.addEventListener('fetch', (event) => {
  const { request } = event;
  if (request.method !== 'GET' || new URL(request.url).origin !== location.origin) return;
  event.respondWith(
    caches.match(request, { ignoreSearch: true, ignoreVary: true }).then(async (known) => {
      if (known) return known;
      const response = await fetch(request);
      if (response.ok) (await caches.open(version)).put(request, response.clone());
      return response;
    }),
  );
});
`;

export default defineConfig({
  base: './',
  publicDir: false,
  plugins: [serviceWorker()],
  worker: { format: 'es' },
  build: {
    outDir: '../build/web/page',
    emptyOutDir: true,
    target: 'es2022',
    assetsInlineLimit: 0, // the page's policy has no data: addresses
    modulePreload: { polyfill: false },
    chunkSizeWarningLimit: 1500,
  },
  server: { host: '127.0.0.1' },
  preview: { host: '127.0.0.1' },
});
