import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { stat } from 'node:fs/promises';
import { after, before, test } from 'node:test';
import { promisify } from 'node:util';

import { firstPicture, frameAfter, launch, openPage, shownNumber, until } from './support/browser.js';
import { Program } from './support/program.js';

const run = promisify(execFile);

let program;
let browser;
let opened;

before(async () => {
  program = await Program.start(['sim:1af0:0511,seed=814']);
  browser = await launch();
  opened = await openPage(browser, program);
  await firstPicture(opened.page);
});

after(async () => {
  await browser?.close();
  await program?.close();
});

async function record(form) {
  const { page } = opened;
  await page.getByLabel('File format of recordings').selectOption(form);
  await page.locator('.record').click();
  await until(async () => (await page.locator('.record').innerText()) === 'Stop', 'recording');
  const begin = await shownNumber(page); // the frames before may have passed on a busy machine
  await frameAfter(page, begin + 20);
  await page.locator('.record').click();
  const link = page.getByRole('link', { name: /^Save \d+ frames$/ });
  await link.waitFor();
  const frames = Number((await link.innerText()).match(/\d+/)[0]);
  const [download] = await Promise.all([page.waitForEvent('download'), link.click()]);
  assert.match(download.suggestedFilename(), new RegExp(`^lidcam-.*\\.${form}$`));
  return { frames, path: await download.path() };
}

test('a recording from the page plays, with the frames that the page counts', async () => {
  const { frames, path } = await record('mkv');
  assert.ok(frames >= 10, `${frames} frames`);
  const { stdout } = await run('ffprobe', [
    '-v',
    'error',
    '-count_frames',
    '-select_streams',
    'v:0',
    '-show_entries',
    'stream=width,height,nb_read_frames',
    '-of',
    'json',
    path,
  ]);
  const [stream] = JSON.parse(stdout).streams;
  assert.deepEqual([stream.width, stream.height, Number(stream.nb_read_frames)], [640, 480, frames]);
});

test('every format that is offered plays, or has the bytes of its frames', async () => {
  const forms = await opened.page
    .getByLabel('File format of recordings')
    .locator('option')
    .evaluateAll((all) => all.map((option) => option.value));
  for (const form of forms.filter((other) => other !== 'mkv')) {
    const { frames, path } = await record(form);
    if (form === 'yuy2') {
      assert.equal((await stat(path)).size, frames * 640 * 480 * 2);
      continue;
    }
    const { stdout } = await run('ffprobe', [
      '-v',
      'error',
      '-show_entries',
      'stream=width,height',
      '-of',
      'json',
      path,
    ]);
    assert.deepEqual(JSON.parse(stdout).streams[0], { width: 640, height: 480 }, form);
  }
});

test('the page prints no error', () => {
  opened.watch.assertClean();
});
