import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';

import { firstPicture, frameAfter, launch, meanLuminance, openPage, shownNumber, until } from './support/browser.js';
import { Program } from './support/program.js';

let program;
let browser;
let opened;
let page;

before(async () => {
  program = await Program.start(['sim:1af0:0511,seed=813']);
  browser = await launch();
  opened = await openPage(browser, program);
  page = opened.page;
  await firstPicture(page);
  await tab('Simulation');
});

after(async () => {
  await browser?.close();
  await program?.close();
});

const tab = (name) => page.getByRole('tab', { name }).click();

test('darkness leads the loop out of its state, with marks where the sensor was written', async () => {
  await until(async () => (await page.locator('.machine').getAttribute('data-state')) === 'Normal', 'Normal');
  await page.getByLabel('Light on the scene').press('Home');
  await until(
    async () => ['Dummy', 'LowLight'].includes(await page.locator('.machine').getAttribute('data-state')),
    'a darker state',
  );
  assert.match(await page.locator('.lane.luminance strong').innerText(), /^\d+$/);
  assert.notEqual(await page.locator('.lane.exposure strong').innerText(), '0');
  assert.ok((await page.locator('.exits li').count()) > 0);
});

test('the light slider brightens the picture', async () => {
  const dark = await meanLuminance(page);
  const slider = page.getByLabel('Light on the scene');
  const box = await slider.boundingBox();
  await page.mouse.click(box.x + box.width * 0.7, box.y + box.height / 2);
  assert.match(await page.locator('.light .value').first().innerText(), /lx$/);
  await until(async () => (await meanLuminance(page)) > dark + 30, 'a brighter picture');
});

/** Runs in the page: the bytes of a PNG file, grey all over. */
async function plainPicture() {
  const canvas = new OffscreenCanvas(64, 48);
  const context = canvas.getContext('2d');
  context.fillStyle = '#777';
  context.fillRect(0, 0, 64, 48);
  const file = await canvas.convertToBlob({ type: 'image/png' });
  return [...new Uint8Array(await file.arrayBuffer())];
}

test('a picture file becomes the scene, and the test card comes back', async () => {
  const plain = await page.evaluate(plainPicture);
  await page
    .locator('input[type=file]')
    .setInputFiles({ name: 'plain.png', mimeType: 'image/png', buffer: Buffer.from(plain) });
  const spread = () =>
    page.evaluate(() => {
      const canvas = document.querySelector('canvas.picture');
      const { data } = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height);
      let least = 255;
      let most = 0;
      for (let i = 1; i < data.length; i += 4) {
        least = Math.min(least, data[i]);
        most = Math.max(most, data[i]);
      }
      return most - least;
    });
  await until(async () => (await spread()) < 60, 'a plain picture');
  await page.getByRole('button', { name: 'Test card' }).click();
  await until(async () => (await spread()) > 120, 'the test card');
});

test('a camera that is unplugged says so, and its picture continues when it is plugged in', async () => {
  await page.getByRole('button', { name: 'Unplug' }).click();
  await until(async () => (await page.locator('.identity .state').innerText()) === 'unplugged', 'unplugged');
  assert.match(await page.locator('.message').innerText(), /Unplugged\s+The picture continues when/);
  const last = await shownNumber(page);
  await page.getByRole('button', { name: 'Plug in' }).click();
  await until(async () => (await page.locator('.identity .state').innerText()) === 'live', 'live');
  await until(async () => (await shownNumber(page)) !== last, 'a new picture');
  await until(async () => !(await page.locator('.message').isVisible()), 'nothing before the picture');
});

test('lost packets show as short frames on the bus, with their reason', async () => {
  await tab('Bus');
  await until(
    async () => Number((await page.locator('.counts .good dd').innerText()).replace(/\D/g, '')) > 0,
    'good frames',
  );
  await until(async () => /\d/.test(await page.locator('.rate strong').first().innerText()), 'packets a second');
  await page.getByLabel('Script of faults').fill('at 0s lose 400');
  await page.getByRole('button', { name: 'Begin' }).click();
  const bad = async () =>
    Number(await page.locator('.counts .short dd').innerText()) +
    Number(await page.locator('.counts .discarded dd').innerText());
  await until(async () => (await bad()) > 0, 'a short frame');
  await until(async () => (await page.locator('.reasons li').count()) > 0, 'a reason');
});

test('a camera that is silent shows as a recovery, with its time and what was done', async () => {
  await page.getByRole('button', { name: 'silence of 300 ms' }).click();
  const events = page.locator('.events li:not(.empty)');
  await until(async () => (await events.count()) > 0, 'a recovery');
  assert.match(await events.first().innerText(), /(now|ago)\s+\S+/);
  await frameAfter(page, await shownNumber(page));
});

test('registers are shown by name, read and written', async () => {
  await tab('Registers');
  const search = page.getByLabel('Filter of registers');
  await search.fill('Brightness');
  const cell = page.locator('.cell:visible');
  await until(async () => (await cell.count()) === 1, 'one register');
  assert.match(await cell.innerText(), /bridge\s+FF77\s+Brightness/);
  await tab('Controls');
  const slider = page.locator('.control[data-name="Brightness"]').getByRole('slider');
  const before = await cell.locator('b').innerText();
  await slider.press('End');
  await until(async () => (await cell.locator('b').innerText()) !== before, 'the register follows the control');
  assert.match(await cell.innerText(), /was [0-9A-F]{2}/);
  await search.fill('');
  await page.getByLabel('changed lately').check();
  await until(async () => (await cell.count()) > 0 && (await cell.count()) < 40, 'what changed lately');
  await page.getByLabel('changed lately').uncheck();
  await search.fill('Brightness');
  await cell.getByRole('button').click();
  await page.getByLabel('Value, hexadecimal').fill('00');
  await page.getByRole('button', { name: 'Write' }).click();
  await until(async () => (await page.locator('.access .result').innerText()) === 'written', 'written');
  await page.getByLabel('Value, hexadecimal').fill('');
  await page.getByRole('button', { name: 'Read' }).click();
  await until(async () => (await page.getByLabel('Value, hexadecimal').inputValue()) === '00', 'what was written');
  await page.waitForTimeout(1200); // the page has the value that was read, too
  assert.doesNotMatch(await cell.innerText(), /was 00/, 'the same value again is no change');
});

test('the trace is text with a filter', async () => {
  await tab('Trace');
  await page.getByLabel('Filter of the trace').fill('bridge FF43');
  const slider = page.locator('.control[data-name="Sharpness"]').getByRole('slider');
  await until(async () => {
    await slider.press('ArrowLeft');
    await slider.press('ArrowRight');
    return /bus\s+write bridge FF43=/.test(await page.locator('.lines').innerText());
  }, 'the write of the sharpness');
  const lines = (await page.locator('.lines').innerText()).split('\n');
  assert.ok(
    lines.every((line) => line.includes('bridge FF43')),
    lines.slice(0, 3).join('\n'),
  );
});

test('a camera whose endpoint stalls is told with the reason, and comes back by itself', async () => {
  await page.getByRole('tab', { name: 'Simulation' }).click();
  await page.getByRole('button', { name: 'a stalled endpoint' }).click();
  await until(async () => (await page.locator('.identity .state').innerText()) === 'failed', 'failed');
  assert.match(await page.locator('.message:visible').innerText(), /The camera failed\s+\S+/);
  await until(async () => (await page.locator('.identity .state').innerText()) === 'live', 'live again');
  await until(async () => !(await page.locator('.message').isVisible()), 'nothing before the picture');
});

test('the stream goes on after all of it, and the page prints no error', async () => {
  await frameAfter(page, await shownNumber(page));
  opened.watch.assertClean();
});
