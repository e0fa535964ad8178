import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { mkdtemp, rm } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, test } from 'node:test';
import { promisify } from 'node:util';

import { loadAxe, violations } from './support/axe.js';
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

const PICTURES = process.env.VIEWER_TEST_PICTURES;
const run = promisify(execFile);

let browser;

before(async () => {
  browser = await launch();
});
after(async () => {
  await browser?.close();
});

test('several cameras are side by side, and the panels belong to the one that is chosen', async (t) => {
  const program = await Program.start(['sim:1af0:0511,seed=817', 'sim:1af0:6010,sensor=OV7670,seed=818']);
  t.after(() => program.close());
  const { page, context, watch } = await openPage(browser, program);
  await firstPicture(page, 0);
  await firstPicture(page, 1);
  await page.locator('.window').nth(1).click();
  await until(async () => (await page.locator('.identity .sensor').innerText()) === 'OV7670', 'the second camera');
  await frameAfter(page, await shownNumber(page, 0), 0);
  await frameAfter(page, await shownNumber(page, 1), 1);
  const calm = await pictureSample(page, 0);
  await page.locator('.control[data-name="Brightness"]').getByRole('slider').press('End');
  await until(async () => difference(calm, await pictureSample(page, 1)) > 15, 'the second picture is brighter');
  assert.ok(difference(calm, await pictureSample(page, 0)) < 10, 'the first one is as it was');
  await page.screenshot({ path: join(PICTURES, 'several.png') });
  assert.deepEqual(await violations(await loadAxe(context, page)), []);
  const good = async () => Number((await page.locator('.counts .good dd').innerText()).replace(/\D/g, ''));
  for (const number of [1, 0]) {
    await page.locator('.window').nth(number).click();
    await page.getByRole('tab', { name: 'Exposure loop' }).click();
    await until(async () => /^\d+$/.test(await page.locator('.lane.luminance strong').innerText()), 'its luminance');
    await page.getByRole('tab', { name: 'Bus' }).click();
    await until(async () => (await good()) > 0, 'its good frames');
    await page.getByRole('tab', { name: 'Trace' }).click();
    await until(async () => /^frame end /m.test(await page.locator('.lines').innerText()), 'its trace');
  }
  await page.getByRole('button', { name: 'One camera' }).click();
  assert.equal(await page.locator('.tile:visible').count(), 1);
  watch.assertClean();
  await context.close();
});

test('a capture has a time line that is scrubbed, paused and stepped', async (t) => {
  const folder = await mkdtemp(join(tmpdir(), 'lidcam-page-'));
  t.after(() => rm(folder, { recursive: true }));
  const capture = join(folder, 'bus.pcap');
  await run(
    process.env.VIEWER_TEST_PROGRAM,
    [
      'record',
      '--camera',
      'sim:1af0:0511,seed=819',
      '--fast',
      '--size',
      '320x240',
      '--duration',
      '4s',
      '-q',
      '-o',
      capture,
    ],
    { env: { ...process.env, LIDCAM_HOME: folder } },
  );
  const program = await Program.start([`capture:${capture}`]);
  t.after(() => program.close());
  const { page, context, watch } = await openPage(browser, program);
  await firstPicture(page);
  const slider = page.getByLabel('Time in the capture');
  await slider.waitFor();
  await page.getByRole('button', { name: 'Pause' }).first().click();
  await page.getByRole('button', { name: 'Play' }).waitFor();
  const seek = async (part) => {
    const box = await slider.boundingBox();
    const before = await shownNumber(page);
    await page.mouse.click(box.x + 8 + part * (box.width - 16), box.y + box.height / 2);
    await until(async () => (await shownNumber(page)) !== before, 'the picture of that time');
    await page.waitForTimeout(500);
    return pictureSample(page);
  };
  await seek(0.8);
  assert.match(await page.locator('.timeline .time').innerText(), /^0:03\.[0-4] \/ 0:0[34]/);
  assert.equal(await page.locator('.identity .state').innerText(), 'paused');
  const overflow = await page.evaluate(() => document.documentElement.scrollWidth - window.innerWidth);
  assert.ok(overflow <= 0, `${overflow} pixels wider than the window`);
  await page.screenshot({ path: join(PICTURES, 'capture.png') });
  assert.deepEqual(await violations(await loadAxe(context, page)), []);
  await page.getByRole('button', { name: 'Play' }).click();
  await page.getByRole('button', { name: 'Pause' }).first().waitFor();
  await until(async () => (await page.locator('.identity .state').innerText()) === 'playing', 'playing');
  await frameAfter(page, await shownNumber(page));
  watch.assertClean();
  await context.close();
});
