import assert from 'node:assert/strict';
import { readFile } from 'node:fs/promises';
import { after, before, test } from 'node:test';

import {
  difference,
  firstPicture,
  frameAfter,
  launch,
  openPage,
  pictureSample,
  shownNumber,
  until,
} from './support/browser.js';
import { Program } from './support/program.js';
import { countersOnCanvas, countersSent } from './support/watching.js';

let program;
let browser;
let opened;

before(async () => {
  program = await Program.start(['sim:1af0:0511,seed=811']);
  browser = await launch();
  opened = await openPage(browser, program);
  await firstPicture(opened.page);
});

after(async () => {
  await browser?.close();
  const end = await program?.close();
  assert.equal(end?.status, 0, program?.messages);
});

test('the picture moves, and each frame on the canvas is the one that the camera sent with its number', async () => {
  const [canvas, sent] = await Promise.all([countersOnCanvas(opened.page, 40), countersSent(opened.page, 40)]);
  const numbers = [...canvas.counters.keys()].filter((number) => sent.has(number));
  assert.ok(numbers.length >= 5, `frames on both sides: ${numbers.length}`);
  for (const number of numbers) assert.equal(canvas.counters.get(number), sent.get(number), `frame ${number}`);
  assert.ok(canvas.whole.size >= 20, `whole frames: ${canvas.whole.size}`);
  const counters = [...canvas.whole].sort((a, b) => a - b).map((number) => canvas.counters.get(number));
  assert.ok(
    counters.every((counter, i) => i === 0 || counter > counters[i - 1]),
    counters.join(),
  );
});

test('rate and latency of the picture are shown', async () => {
  const figures = opened.page.locator('#figures');
  await until(async () => /^[\d.]+$/.test(await figures.locator('.rate b').innerText()), 'a rate');
  await until(async () => /^\d+$/.test(await figures.locator('.latency b').innerText()), 'a latency');
  assert.ok(Number(await figures.locator('.rate b').innerText()) > 0);
});

test('a frozen picture stays until it is stepped, a frame at a time, and goes on', async () => {
  const { page } = opened;
  await page.getByRole('button', { name: 'Freeze' }).click();
  await page.waitForTimeout(300);
  const frozen = await shownNumber(page);
  await page.waitForTimeout(500);
  assert.equal(await shownNumber(page), frozen);
  assert.equal(await page.locator('.identity .state').innerText(), 'frozen');
  await page.getByRole('button', { name: 'Step' }).click();
  await frameAfter(page, frozen);
  const stepped = await shownNumber(page);
  await page.waitForTimeout(300);
  assert.equal(await shownNumber(page), stepped);
  await page.locator('.window').focus();
  await page.keyboard.press(' ');
  await frameAfter(page, stepped + 2);
  assert.equal(await page.locator('.identity .state').innerText(), 'live');
});

test('a snapshot is the picture that is shown, with every pixel', async () => {
  const { page } = opened;
  await page.getByRole('button', { name: 'Freeze' }).click();
  await page.waitForTimeout(300);
  const [download] = await Promise.all([
    page.waitForEvent('download'),
    page.getByRole('button', { name: 'Snapshot' }).click(),
  ]);
  assert.match(download.suggestedFilename(), new RegExp(`^lidcam-.*-${await shownNumber(page)}\\.png$`));
  const file = await readFile(await download.path());
  assert.deepEqual([file.readUInt32BE(16), file.readUInt32BE(20)], [640, 480]);
  const data = `data:image/png;base64,${file.toString('base64')}`;
  const differs = await page.evaluate(differsFromCanvas, [...Buffer.from(data.split(',')[1], 'base64')]);
  assert.equal(differs, 0);
  await page.getByRole('button', { name: 'Freeze' }).click();
});

/** Runs in the page. */
async function differsFromCanvas(bytes) {
  const canvas = document.querySelector('canvas.picture');
  const bitmap = await createImageBitmap(new Blob([new Uint8Array(bytes)], { type: 'image/png' }));
  const copy = new OffscreenCanvas(bitmap.width, bitmap.height).getContext('2d');
  copy.drawImage(bitmap, 0, 0);
  const saved = copy.getImageData(0, 0, bitmap.width, bitmap.height).data;
  const shown = canvas.getContext('2d').getImageData(0, 0, bitmap.width, bitmap.height).data;
  return saved.reduce((count, value, i) => count + (value === shown[i] ? 0 : 1), 0);
}

test('the wheel enlarges below the pointer, and the values there are those that the camera sent', async () => {
  const { page } = opened;
  const canvas = await page.locator('canvas.picture').boundingBox();
  const place = { x: canvas.x + canvas.width * 0.3, y: canvas.y + canvas.height * 0.2 };
  await page.mouse.move(place.x, place.y);
  for (let i = 0; i < 12; i += 1) await page.mouse.wheel(0, -100);
  await until(async () => parseInt(await page.locator('.scale').innerText(), 10) > 800, 'enlarged eight times');
  await page.mouse.move(place.x + 1, place.y);
  const where = page.locator('.loupe .where');
  const isAt = async (x, y) => {
    const [column, line] = (await where.innerText()).split(',').map(Number);
    return Math.abs(column - x) <= 2 && Math.abs(line - y) <= 2;
  };
  await until(() => isAt(192, 96), 'the wheel keeps the point below the pointer');
  await until(async () => /^Y \d+ +U \d+ +V \d+$/.test(await page.locator('.loupe .values').innerText()), 'its values');
  const [luminance, u, v] = (await page.locator('.loupe .values').innerText()).match(/\d+/g).map(Number);
  assert.ok(luminance > 60 && u > 130 && v < 120, `the cyan bar: ${luminance} ${u} ${v}`);
  await page.locator('.window').focus();
  await page.keyboard.press('0');
  assert.ok(await page.locator('.scale').isDisabled());
});

test('histogram and waveform have the luminance of the picture', async () => {
  const { page } = opened;
  await until(async () => /mean \d+/.test(await page.locator('.histogram output').innerText()), 'a mean');
  const shown = Number((await page.locator('.histogram output').innerText()).match(/mean (\d+)/)[1]);
  const mean = await page.evaluate(() => {
    const canvas = document.querySelector('canvas.picture');
    const { data } = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height);
    let sum = 0;
    for (let i = 0; i < data.length; i += 4) sum += 0.299 * data[i] + 0.587 * data[i + 1] + 0.114 * data[i + 2];
    return sum / (data.length / 4);
  });
  assert.ok(Math.abs(shown - mean) < 6, `${shown}, ${mean}`);
  for (const name of ['histogram', 'waveform']) {
    const painted = await page.locator(`.${name} canvas`).evaluate((canvas) =>
      canvas
        .getContext('2d')
        .getImageData(0, 0, canvas.width, canvas.height)
        .data.some((value) => value > 60),
    );
    assert.ok(painted, name);
  }
});

/** Of the picture, not of the screen. */
const canvasWidth = (page) => page.evaluate(() => document.querySelector('canvas.picture').width);

test('the picture fills the screen, and leaves it', async () => {
  const { page } = opened;
  await page.locator('.window').focus();
  await page.keyboard.press('f');
  await until(() => page.evaluate(() => document.fullscreenElement?.id === 'stage'), 'full screen');
  const fills = () =>
    page.evaluate(() => {
      const { height } = document.querySelector('canvas.picture').getBoundingClientRect();
      return Math.abs(height - window.innerHeight) < 2;
    });
  await until(fills, 'the picture is as high as the screen');
  await page.keyboard.press('f');
  await until(() => page.evaluate(() => document.fullscreenElement === null), 'back on the page');
});

test('the camera sends another size when it is chosen', async () => {
  const { page } = opened;
  await page.getByLabel('Picture size').selectOption('320x240');
  await until(async () => (await canvasWidth(page)) === 320, 'pictures 320 wide');
  const before = await shownNumber(page);
  await frameAfter(page, before);
  await page.getByLabel('Picture size').selectOption('640x480');
  await until(async () => (await canvasWidth(page)) === 640, 'pictures 640 wide');
});

test('a page that is loaded anew has its picture again, without the token', async () => {
  const { page } = opened;
  await firstPicture(page);
  assert.ok(!page.url().includes('token'), page.url());
  await page.reload();
  await firstPicture(page);
  await frameAfter(page, await shownNumber(page));
});

test('two pages have the same camera, and a slow one holds up neither the camera nor the other', async () => {
  const other = await openPage(browser, program, { viewport: { width: 800, height: 700 } });
  await firstPicture(other.page);
  await firstPicture(opened.page);
  await other.page.evaluate(drawSlowly);
  const begun = await Promise.all([shownNumber(opened.page), shownNumber(other.page)]);
  await frameAfter(opened.page, begun[0] + 30);
  await frameAfter(other.page, begun[1]);
  await until(async () => Number(await other.page.locator('.skipped b').innerText()) > 0, 'the slow page gets fewer');
  const differs = async () => difference(await pictureSample(opened.page), await pictureSample(other.page));
  await until(async () => (await differs()) < 12, 'the same picture on both');
  await until(async () => (await opened.page.locator('#figures .viewers b').innerText()) === '2', 'two viewers');
  other.watch.assertClean();
  await other.context.close();
  await until(async () => (await opened.page.locator('#figures .viewers b').innerText()) === '1', 'one viewer');
});

/** Runs in the page, which then has drawn a frame only 400 ms after it came. */
function drawSlowly() {
  const { send } = WebSocket.prototype;
  WebSocket.prototype.send = function delayed(text) {
    if (JSON.parse(text).do === 'shown') setTimeout(() => send.call(this, text), 400);
    else send.call(this, text);
  };
}

test('a hidden page asks for no frames, and for frames again when it is seen', async () => {
  const { page } = opened;
  const asked = [];
  const seen = await openHidden(page, asked);
  await seen(true);
  await until(async () => asked.at(-1)?.cameras.length === 0, 'a hidden page watches nothing');
  await page.waitForTimeout(400);
  const hidden = await shownNumber(page);
  await page.waitForTimeout(600);
  assert.equal(await shownNumber(page), hidden);
  await seen(false);
  await frameAfter(page, hidden + 2);
  assert.deepEqual(asked.at(-1).cameras, [0]);
});

/** Chromium without a window has no tabs to hide: the page is told what it would be told. */
async function openHidden(page, asked) {
  await page.exposeFunction('noteSent', (text) => {
    const message = JSON.parse(text);
    if (message.do === 'watch') asked.push(message);
  });
  await page.evaluate(() => {
    const { send } = WebSocket.prototype;
    WebSocket.prototype.send = function noted(text) {
      window.noteSent(text);
      return send.call(this, text);
    };
  });
  return (hidden) =>
    page.evaluate((now) => {
      Object.defineProperty(document, 'hidden', { configurable: true, get: () => now });
      document.dispatchEvent(new Event('visibilitychange'));
    }, hidden);
}

test('the pages print no error and ask no other origin for anything', () => {
  opened.watch.assertClean();
});
