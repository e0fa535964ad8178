/** The page as it looks: without a violation of the rules of accessibility, and kept as pictures. */

import assert from 'node:assert/strict';
import { join } from 'node:path';
import { after, before, test } from 'node:test';

import { loadAxe, violations } from './support/axe.js';
import { firstPicture, launch, openPage, until } from './support/browser.js';
import { Program } from './support/program.js';

const PICTURES = process.env.VIEWER_TEST_PICTURES;

let program;
let browser;

before(async () => {
  program = await Program.start(['sim:1af0:0511,seed=816']);
  browser = await launch();
});

after(async () => {
  await browser?.close();
  await program?.close();
});

const LOOKS = {
  wide: { viewport: { width: 1440, height: 900 }, colorScheme: 'dark' },
  light: { viewport: { width: 1440, height: 900 }, colorScheme: 'light' },
  laptop: { viewport: { width: 1280, height: 760 }, colorScheme: 'dark' },
  phone: {
    viewport: { width: 390, height: 844 },
    colorScheme: 'light',
    deviceScaleFactor: 2,
    isMobile: true,
    hasTouch: true,
  },
  'phone-dark': {
    viewport: { width: 390, height: 844 },
    colorScheme: 'dark',
    deviceScaleFactor: 2,
    isMobile: true,
    hasTouch: true,
  },
};

for (const [name, options] of Object.entries(LOOKS)) {
  test(`no tab of the page violates a rule of accessibility: ${name}`, async () => {
    const { page, context, watch } = await openPage(browser, program, options);
    await firstPicture(page);
    await until(async () => Number(await page.locator('.rate b').first().innerText()) > 0, 'a rate');
    await page.screenshot({ path: join(PICTURES, `${name}.png`) });
    const session = await loadAxe(context, page);
    const found = await violations(session);
    for (const tab of ['Bus', 'Registers', 'Trace', 'Simulation', 'Addresses']) {
      await page.getByRole('tab', { name: tab }).click();
      found.push(
        ...(await violations(session, '[role=tabpanel]:not([hidden])')).map((violation) => [tab, ...violation]),
      );
    }
    assert.deepEqual(found, []);
    const overflow = await page.evaluate(() => document.documentElement.scrollWidth - window.innerWidth);
    assert.ok(overflow <= 0, `${overflow} pixels wider than the window`);
    watch.assertClean();
    await context.close();
  });
}

test('every tab is kept as a picture', async () => {
  const { page, context } = await openPage(browser, program);
  await firstPicture(page);
  await page.getByRole('tab', { name: 'Simulation' }).click();
  await page.getByLabel('Light on the scene').press('Home');
  await until(async () => (await page.locator('.machine').getAttribute('data-state')) === 'LowLight', 'LowLight');
  for (const tab of ['Exposure loop', 'Bus', 'Registers', 'Trace']) {
    await page.getByRole('tab', { name: tab }).click();
    await page.waitForTimeout(1200);
    await page.screenshot({ path: join(PICTURES, `${tab.toLowerCase().replace(' ', '-')}.png`) });
  }
  await context.close();
});

test('the page works where motion is not wanted', async () => {
  const { page, context, watch } = await openPage(browser, program, { reducedMotion: 'reduce' });
  await firstPicture(page);
  await until(async () => /^\d+$/.test(await page.locator('.lane.luminance strong').innerText()), 'the loop');
  watch.assertClean();
  await context.close();
});

test('the keys are listed in a dialog that Escape closes', async () => {
  const { page, context } = await openPage(browser, program);
  await page.getByRole('button', { name: 'Keys' }).click();
  await page.getByRole('dialog').waitFor();
  assert.deepEqual(await violations(await loadAxe(context, page), 'dialog'), []);
  await page.keyboard.press('Escape');
  await until(async () => !(await page.getByRole('dialog').isVisible()), 'closed');
  await context.close();
});
