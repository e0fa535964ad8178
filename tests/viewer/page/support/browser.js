/** A page in Debian's Chromium, and what it must never do: print an error, ask another origin. */

import assert from 'node:assert/strict';
import { chromium } from 'playwright-core';

const EXECUTABLE = process.env.VIEWER_TEST_CHROMIUM ?? '/usr/bin/chromium';

/** Many times what anything takes on a quiet machine. */
export const LIMIT = 20000;

export function launch() {
  return chromium.launch({ executablePath: EXECUTABLE, args: ['--no-sandbox', '--disable-dev-shm-usage'] });
}

/**
 * @param {import('playwright-core').Browser} browser
 * @param {import('./program.js').Program} program
 * @param {import('playwright-core').BrowserContextOptions} [options]
 */
export async function openPage(browser, program, options = {}) {
  const context = await browser.newContext({ viewport: { width: 1440, height: 900 }, colorScheme: 'dark', ...options });
  const page = await context.newPage();
  page.setDefaultTimeout(LIMIT);
  const watch = watchOver(page, program);
  await page.goto(program.address);
  return { page, context, watch };
}

/** Notes what the page prints and asks for. */
function watchOver(page, program) {
  const faults = [];
  page.on('console', (message) => {
    if (['error', 'warning'].includes(message.type())) faults.push(`console: ${message.text()}`);
  });
  page.on('pageerror', (error) => faults.push(`error: ${error.message}`));
  page.on('request', (request) => {
    const { origin, protocol } = new URL(request.url());
    if (origin !== program.origin && protocol !== 'blob:') faults.push(`request: ${request.url()}`);
  });
  page.on('websocket', (socket) => {
    if (new URL(socket.url()).host !== new URL(program.origin).host) faults.push(`socket: ${socket.url()}`);
  });
  return {
    /** @param {RegExp} [expected] what a test brings about itself */
    assertClean(expected = /^$/) {
      assert.deepEqual(
        faults.filter((fault) => !expected.test(fault)),
        [],
      );
    },
  };
}

/** The number of the frame on the canvas; NaN before the first. */
export function shownNumber(page, index = 0) {
  return page.evaluate((at) => Number(document.querySelectorAll('canvas.picture')[at]?.dataset.number), index);
}

/** Waits until a camera's picture is on its canvas. */
export async function firstPicture(page, index = 0) {
  await until(async () => !Number.isNaN(await shownNumber(page, index)), 'a picture');
}

/** Waits until a later frame than `number` is shown. */
export async function frameAfter(page, number, index = 0) {
  await until(async () => (await shownNumber(page, index)) > number, `a frame after ${number}`);
}

/** Mean luminance of the canvas. */
export function meanLuminance(page, index = 0) {
  return page.evaluate((at) => {
    const canvas = document.querySelectorAll('canvas.picture')[at];
    const { data } = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height);
    let sum = 0;
    for (let i = 0; i < data.length; i += 4) sum += 0.299 * data[i] + 0.587 * data[i + 1] + 0.114 * data[i + 2];
    return sum / (data.length / 4);
  }, index);
}

/** A small copy of the picture's pixels, for comparing. */
export function pictureSample(page, index = 0) {
  return page.evaluate((at) => {
    const canvas = document.querySelectorAll('canvas.picture')[at];
    const small = new OffscreenCanvas(64, 24).getContext('2d');
    small.drawImage(canvas, 0, 0, canvas.width, canvas.height * 0.6, 0, 0, 64, 24);
    return [...small.getImageData(0, 0, 64, 24).data];
  }, index);
}

/** A sample of a picture that has stopped changing: a control shows some frames after it was set. */
export async function calmSample(page) {
  let last = await pictureSample(page);
  await until(async () => {
    const before = last;
    await frameAfter(page, (await shownNumber(page)) + 3);
    last = await pictureSample(page);
    return difference(before, last) < 1;
  }, 'a picture that stands still');
  return last;
}

/** Mean difference of two samples. */
export function difference(a, b) {
  return a.reduce((sum, value, i) => sum + Math.abs(value - b[i]), 0) / a.length;
}

/**
 * Waits until a condition holds. (The page's policy forbids the waiting inside of it that playwright has.)
 * @param {() => Promise<boolean>} holds @param {string} what
 */
export async function until(holds, what) {
  for (const begun = Date.now(); Date.now() - begun < LIMIT; ) {
    if (await holds()) return;
    await new Promise((resolve) => {
      setTimeout(resolve, 50);
    });
  }
  assert.fail(`never: ${what}`);
}
