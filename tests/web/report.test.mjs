// The site that `rastrel report` makes, opened from the disk in Chromium. RASTREL_COMMAND names the command, RASTREL_SCREENSHOTS a
// folder for pictures of it.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { copyFileSync, mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, test } from 'node:test';
import { fileURLToPath, pathToFileURL } from 'node:url';

const require = createRequire(new URL('../../web/package.json', import.meta.url));
const { chromium } = require('playwright-core');
const axe = readFileSync(require.resolve('axe-core/axe.min.js'), 'utf8');
const samples = fileURLToPath(new URL('../../samples/', import.meta.url));
const rastrel = process.env.RASTREL_COMMAND;
const skip = !rastrel && 'RASTREL_COMMAND is not set';
const folder = mkdtempSync(join(tmpdir(), 'rastrel-report-'));
const complaints = [];
let browser, page;

// 150 pages, more than the grid has at once, and one that is damaged.
function makeBatch() {
  mkdirSync(join(folder, 'scans'));
  for (let i = 0; i < 147; ++i) copyFileSync(join(folder, 'scrap.tif'), join(folder, `scans/page${i}.tif`));
  for (const name of ['letter-1bit.tif', 'report-grey.png', 'catalogue-colour.jpg']) copyFileSync(join(samples, name), join(folder, 'scans', name));
  writeFileSync(join(folder, 'scans/damaged <b>.tif'), readFileSync(join(samples, 'letter-1bit.tif')).subarray(0, 400));
}

before(async () => {
  if (skip) return;
  const run = (...words) => execFileSync(rastrel, words, { cwd: folder, stdio: 'pipe' });
  run('apply', join(samples, 'letter-1bit.tif'), '-o', 'scrap.tif', 'crop:100,300,400,300');
  makeBatch();
  assert.throws(() => run('batch', 'scans', '-o', 'cleaned', '--no-fsync'), /Command failed/); // the damaged one
  run('report', 'cleaned/batch.sqlite', '-o', 'report');
  browser = await chromium.launch({ executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium', args: ['--no-sandbox', '--headless=new'] });
  page = await browser.newPage({ viewport: { width: 1280, height: 900 } });
  page.on('console', (message) => message.type() === 'error' && complaints.push(message.text()));
  page.on('pageerror', (error) => complaints.push(String(error)));
  await page.goto(pathToFileURL(join(folder, 'report/index.html')).href);
  await page.waitForSelector('body[data-ready]');
});
after(async () => {
  await browser?.close();
  rmSync(folder, { recursive: true });
});

const titles = () => page.$$eval('#grid .title', (all) => all.map((each) => each.lastChild.textContent));
async function look(name) {
  if (process.env.RASTREL_SCREENSHOTS) await page.screenshot({ path: join(process.env.RASTREL_SCREENSHOTS, `${name}.png`) });
  await page.evaluate(axe);
  const found = await page.evaluate(() => axe.run(document, { runOnly: ['wcag2a', 'wcag2aa'], preload: false }));
  assert.deepEqual(found.violations.map((each) => [each.id, each.nodes[0].html]), []);
}

test('the overview counts, orders, filters and finds', { skip }, async () => {
  const totals = Object.fromEntries(await page.$$eval('#totals div', (all) => all.map((each) => [...each.children].map((child) => child.textContent))));
  assert.equal(totals.pages, '151');
  assert.equal(totals.done, '150');
  assert.equal(totals.failed, '1');
  assert.equal((await titles())[0], 'damaged <b>.tif'); // needs most attention
  assert.equal((await titles()).length, 120);
  await page.evaluate(() => scrollTo(0, document.body.scrollHeight));
  await page.waitForFunction(() => document.querySelectorAll('#grid li').length === 151);
  await page.evaluate(() => scrollTo(0, 0));
  await look('overview');
  await page.selectOption('#order', 'as in the folders');
  assert.deepEqual((await titles()).slice(2, 6), ['letter-1bit.tif', 'page0.tif', 'page1.tif', 'page2.tif']);
  await page.selectOption('#order', 'largest angle first');
  assert.deepEqual((await titles()).slice(0, 2), ['catalogue-colour.jpg', 'letter-1bit.tif']); // 3.1 and 2.3 degrees
  await page.selectOption('#filter', 'failed');
  assert.deepEqual(await titles(), ['damaged <b>.tif']);
  await page.selectOption('#filter', 'all pages');
  await page.fill('#search', 'GREY');
  assert.deepEqual(await titles(), ['report-grey.png']);
  await page.fill('#search', '');
});

test('a page is opened, slid and left by keys', { skip }, async () => {
  await page.focus('#grid li:first-child a');
  await page.keyboard.press('ArrowRight');
  await page.keyboard.press('Enter');
  await page.waitForSelector('#deeds li');
  assert.match(await page.textContent('#name'), /letter-1bit\.tif$/);
  assert.match(await page.textContent('#deeds'), /turned by 2\.3\d?°.*2 holes erased/);
  assert.equal(await page.locator('#regions .hole').count(), 2);
  // Both pictures are there, and the one before is cut at the line.
  await page.waitForFunction(() => [...document.querySelectorAll('.layer img')].every((image) => image.naturalHeight > 500));
  const cut = () => page.$eval('#before', (layer) => layer.style.clipPath);
  await page.focus('#slider');
  await page.keyboard.press('ArrowRight');
  assert.equal(await cut(), 'inset(0px 49% 0px 0px)');
  await look('page');
  const frame = await page.locator('#frame').boundingBox();
  await page.mouse.move(frame.x + frame.width / 2, frame.y + 50);
  await page.mouse.down();
  await page.mouse.move(frame.x + frame.width / 4, frame.y + 50);
  await page.mouse.up();
  assert.equal(await cut(), 'inset(0px 75% 0px 0px)');
  await page.click('#theme');
  await look('page-dark');
  await page.keyboard.press('ArrowRight');
  await page.waitForFunction(() => document.getElementById('name').textContent.endsWith('scans/page0.tif'));
  await page.keyboard.press('Escape');
  await page.waitForSelector('#overview:not([hidden])');
  assert.deepEqual(complaints, []);
});
