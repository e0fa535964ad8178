/** Draws the picture of the guide: a page whose exposure loop has followed the light there and back. */

import { firstPicture, launch, openPage, until } from './support/browser.js';
import { Program } from './support/program.js';

const [file] = process.argv.slice(2);
const STEADY = 8000; // milliseconds of each light, of the 30 s that the loop shows

const program = await Program.start(['sim:1af0:0511']);
const browser = await launch();
try {
  const { page } = await openPage(browser, program);
  await firstPicture(page);
  const light = page.getByLabel('Light on the scene');
  const inState = (name) =>
    until(async () => (await page.locator('.machine').getAttribute('data-state')) === name, name);
  await inState('Normal');
  await page.waitForTimeout(STEADY);
  await page.getByRole('tab', { name: 'Simulation' }).click();
  const bright = await light.inputValue();
  await light.press('Home');
  await inState('LowLight');
  await page.waitForTimeout(STEADY / 2);
  await light.fill(bright);
  await inState('Normal');
  await page.waitForTimeout(STEADY);
  await page.getByRole('tab', { name: 'Controls' }).click();
  const picture = await page.locator('canvas.picture').boundingBox();
  await page.mouse.move(picture.x + picture.width * 0.625, picture.y + picture.height * 0.1);
  await until(async () => /^Y \d+/.test(await page.locator('.loupe .values').innerText()), 'the values of a pixel');
  await page.getByText('30 s', { exact: true }).click();
  await page.mouse.move(picture.x + picture.width * 0.625, picture.y + picture.height * 0.1);
  await page.screenshot({ path: file });
} finally {
  await browser.close();
  await program.close();
}
