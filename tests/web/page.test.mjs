// The built page in Chromium, as somebody uses it. RASTREL_SCREENSHOTS names a folder for pictures of it.
import assert from 'node:assert/strict';
import { mkdtempSync, readFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, test } from 'node:test';
import { fileURLToPath, pathToFileURL } from 'node:url';

const web = fileURLToPath(new URL('../../web/', import.meta.url));
const require = createRequire(join(web, 'package.json'));
const { chromium } = require('playwright-core');
const { unzipSync } = require('fflate');
const UTIF = require('utif2');
const axe = readFileSync(require.resolve('axe-core/axe.min.js'), 'utf8');
const sample = (name) => readFileSync(new URL(`../../samples/${name}`, import.meta.url));

const profile = mkdtempSync(join(tmpdir(), 'rastrel-web-'));
const requests = [];
const complaints = [];
let server, origin, context, page;

before(async () => {
  const { preview } = await import(pathToFileURL(require.resolve('vite')).href.replace('index.cjs', 'dist/node/index.js'));
  server = await preview({ root: web, logLevel: 'error', preview: { port: 0, host: '127.0.0.1' } });
  origin = server.resolvedUrls.local[0];
  context = await chromium.launchPersistentContext(profile, {
    executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium',
    args: ['--no-sandbox', '--disable-background-networking', '--headless=new'],
    viewport: { width: 1280, height: 800 },
    reducedMotion: 'reduce', // or colours are measured on their way
    acceptDownloads: true,
  });
  context.on('request', (request) => requests.push(request.url()));
  await open();
});
after(async () => {
  await context?.close();
  await server?.close();
});

async function open() {
  page = await context.newPage();
  page.on('console', (message) => message.type() === 'error' && complaints.push(message.text()));
  page.on('pageerror', (error) => complaints.push(String(error)));
  await page.goto(origin);
}
async function drop(...files) {
  const data = await page.evaluateHandle((given) => {
    const transfer = new DataTransfer();
    for (const [name, bytes] of given) transfer.items.add(new File([Uint8Array.from(atob(bytes), (c) => c.charCodeAt(0))], name));
    return transfer;
  }, files.map(([name, bytes]) => [name, Buffer.from(bytes).toString('base64')]));
  await page.dispatchEvent('body', 'drop', { dataTransfer: data });
}
const states = () => page.$$eval('.pages li', (items) => items.map((item) => item.dataset.state));
async function settled(count) {
  await page.waitForFunction(
    (wanted) => {
      const all = [...document.querySelectorAll('.pages li')];
      return all.length === wanted && all.every((item) => ['done', 'failed'].includes(item.dataset.state));
    },
    count,
    { timeout: 60_000 },
  );
}
const isShown = (what) => page.waitForFunction((kinds) => document.querySelector('.viewer').dataset.shown?.split(',').every(Boolean)
  && !document.querySelector('.viewer.busy') && document.querySelector('.viewer').dataset.view === kinds, what, { timeout: 60_000 });
const found = () => page.$$eval('.found li', (items) => items.map((item) => item.textContent));
const openPage = (name) => page.click(`.page:has-text("${name}")`);
async function picture(name) {
  if (process.env.RASTREL_SCREENSHOTS) await page.screenshot({ path: join(process.env.RASTREL_SCREENSHOTS, `${name}.png`), caret: 'initial' });
}
async function download(act) {
  const [file] = await Promise.all([page.waitForEvent('download'), act()]);
  return { name: file.suggestedFilename(), bytes: readFileSync(await file.path()) };
}
async function isAccessible(where) {
  for (const colorScheme of ['light', 'dark']) {
    await page.emulateMedia({ colorScheme });
    await page.evaluate(axe);
    const { violations } = await page.evaluate(() => globalThis.axe.run());
    const serious = violations.filter(({ impact }) => impact === 'serious' || impact === 'critical');
    assert.deepEqual(serious.map(({ id, nodes }) => `${id}: ${nodes[0].html}`), [], `${where}, ${colorScheme}`);
    await picture(`${where}-${colorScheme}`);
  }
  await page.emulateMedia({ colorScheme: 'light' });
}

test('the start, and samples by a click', async () => {
  await isAccessible('start');
  await page.click('[data-sample=letter]');
  await settled(1);
  await isShown('compare');
  // The script that draws the sample leans it by 2.3 degrees and punches two holes.
  const said = (await found()).join('; ');
  assert.match(said, /Turned by 2\.(2[5-9]|3[0-5])°/);
  assert.match(said, /2 punch holes filled/);
  await isAccessible('page');
});

test('drop, bad files among them', async () => {
  const letter = sample('letter-1bit.tif');
  await drop(['report.png', sample('report-grey.png')], ['catalogue.jpg', sample('catalogue-colour.jpg')],
    ['notes.tif', Buffer.from('Dear diary')], ['cut.tif', letter.subarray(0, 40)], ['cut.png', sample('report-grey.png').subarray(0, 900)]);
  await settled(6);
  // Other than the file names, the list is by name.
  const names = await page.$$eval('.page .name', (all) => all.map((one) => one.textContent));
  assert.deepEqual(names.slice(1), ['catalogue.jpg', 'cut.png', 'cut.tif', 'notes.tif', 'report.png']);
  assert.deepEqual(await states(), ['done', 'done', 'failed', 'failed', 'failed', 'done']);
  for (const [name, sentence] of [['notes.tif', /no page that can be read/], ['cut.tif', /damaged/], ['cut.png', /damaged/]]) {
    await openPage(name);
    assert.match(await page.textContent('.refusal'), sentence);
    await page.keyboard.press('Delete');
  }
  await settled(3);
});

test('slide, zoom, and what was removed', async () => {
  await openPage('report.png');
  await isShown('compare');
  const frame = page.locator('.frame');
  const at = async (percent) => {
    await page.locator('.slider').fill(String(percent));
    return frame.screenshot({ caret: 'initial' });
  };
  const [after, both, before] = [await at(0), await at(50), await at(100)];
  assert.ok(!after.equals(both) && !both.equals(before) && !after.equals(before));
  await page.focus('.slider');
  await page.keyboard.press('ArrowLeft');
  assert.equal(await page.inputValue('.slider'), '99.5');
  await at(50);
  await picture('compare');
  const zooms = [];
  for (let i = 0; i < 9; ++i) {
    await page.keyboard.press('+');
    zooms.push(await page.textContent('.zoom'));
  }
  assert.deepEqual([...new Set(zooms)].slice(-5), ['100 %', '200 %', '400 %', '600 %', '800 %']);
  await page.keyboard.press('0');
  await page.keyboard.press('3');
  await isShown('removed');
  assert.ok(await page.locator('.legend').isVisible());
  const colours = await page.$eval('canvas.removed', async (canvas) => {
    const picture = await createImageBitmap(canvas);
    const context = new OffscreenCanvas(canvas.width, canvas.height).getContext('2d');
    context.drawImage(picture, 0, 0);
    const { data } = context.getImageData(0, 0, canvas.width, canvas.height);
    let blue = 0;
    for (let i = 0; i < data.length; i += 4) if (data[i] === 0 && data[i + 1] === 114 && data[i + 2] === 178) ++blue;
    return blue;
  });
  assert.ok(colours > 1000, 'the report has a border, which is blue');
  await picture('removed');
  await page.keyboard.press('1');
});

test('steps off and on, undo, turn', async () => {
  await openPage('letter-1bit.tif');
  assert.match((await found())[0], /Turned/);
  await page.uncheck('#step-deskew');
  await page.waitForFunction(() => !/Turned/.test(document.querySelector('.found').textContent));
  await page.click('text=Undo');
  await page.waitForFunction(() => /Turned/.test(document.querySelector('.found').textContent));
  assert.ok(await page.isChecked('#step-deskew'));
  const size = async () => (await found()).at(-1).match(/(\d+) × (\d+)/).slice(1).map(Number);
  const [width, height] = await size();
  await page.click('[aria-label="Turn right"]');
  await page.waitForFunction(() => {
    const size = document.querySelector('.found li:last-child')?.textContent.match(/(\d+) × (\d+)/);
    return size && Number(size[1]) > Number(size[2]);
  });
  const [turnedWidth, turnedHeight] = await size();
  assert.ok(Math.abs(turnedWidth - height) < 80 && Math.abs(turnedHeight - width) < 80);
  await page.keyboard.press('Control+z');
  await settled(3);
});

let kept;
test('save as a ZIP of TIFF, of PNG, and as a PDF, which can be dropped again', async () => {
  await openPage('letter-1bit.tif');
  const [width, height] = (await found()).at(-1).match(/(\d+) × (\d+)/).slice(1).map(Number);
  const all = async (form) => {
    await page.click('.menu.right summary');
    return download(() => page.click(`.menu.right .choices >> text=${form}`));
  };
  const tiffs = unzipSync((await all('TIFF')).bytes);
  const pngs = unzipSync((await all('PNG')).bytes);
  assert.deepEqual(Object.keys(tiffs), ['letter-1bit.tif', 'catalogue.tif', 'report.tif']);
  const bytes = tiffs['letter-1bit.tif'].slice().buffer;
  const [directory] = UTIF.decode(bytes);
  UTIF.decodeImage(bytes, directory);
  assert.deepEqual([directory.width, directory.height, directory.t258[0], Math.round(directory.t282[0][0] / directory.t282[0][1])], [width, height, 1, 200]);
  const png = Buffer.from(pngs['letter-1bit.png']);
  assert.deepEqual([png.readUInt32BE(16), png.readUInt32BE(20), png[24], png[25]], [width, height, 1, 0]);
  kept = (await all('PDF')).bytes;
  assert.equal(String(kept).match(/\/Type \/Page /g).length, 3);

  // The three pages come out of the PDF as they went in: bits, colour and grey, of the same sizes.
  await drop(['all.pdf', kept]);
  await settled(6);
  await openPage('all.pdf · 1');
  await isShown('compare');
  const last = (await found()).at(-1);
  assert.match(last, new RegExp(`${width} × ${height} pixels, black and white, 200 dpi`));
  await drop(['cut.pdf', kept.subarray(0, 300)]);
  await settled(7);
  await openPage('cut.pdf');
  assert.match(await page.textContent('.refusal'), /damaged/);
});

test('after a reload, and without a network, all is there', async () => {
  await page.evaluate(() => navigator.serviceWorker.ready);
  await page.waitForFunction(() => navigator.serviceWorker.controller !== null);
  const wasThere = await states();
  await context.setOffline(true);
  await page.reload();
  await page.waitForSelector('.pages li');
  assert.deepEqual(await states(), wasThere); // done at once: nothing is cleaned again
  await openPage('catalogue.jpg');
  await isShown('compare');
  await page.uncheck('#step-borders');
  await page.waitForFunction(() => !/Borders/.test(document.querySelector('.found').textContent));
  await context.setOffline(false);
  complaints.length = 0; // that the network was not there
  await page.click('[aria-label="Remove all"]');
  await page.reload();
  await page.waitForSelector('.start', { state: 'visible' });
  assert.deepEqual(await states(), []);
});

test('on the width of a telephone', async () => {
  await page.setViewportSize({ width: 390, height: 844 });
  await isAccessible('phone-start');
  await page.click('[data-sample=report]');
  await settled(1);
  await isShown('compare');
  await isAccessible('phone');
  assert.ok(await page.evaluate(() => document.documentElement.scrollWidth <= innerWidth));
});

test('nothing was asked of another host, and the policy was kept', () => {
  const foreign = requests.filter((url) => !url.startsWith(origin) && !url.startsWith('blob:'));
  assert.deepEqual(foreign, []);
  assert.ok(requests.some((url) => url.endsWith('.wasm')));
  // A file that cannot be read is no fault of the page.
  assert.deepEqual(complaints, []);
});
