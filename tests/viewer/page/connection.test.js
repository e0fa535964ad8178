import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';

import { firstPicture, frameAfter, launch, openPage, shownNumber, until } from './support/browser.js';
import { Program } from './support/program.js';

let program;
let browser;

before(async () => {
  program = await Program.start(['sim:1af0:0511,seed=815']);
  browser = await launch();
});

after(async () => {
  await browser?.close();
  await program?.close();
});

test('a lost connection is told and tried again, and the state comes back', async () => {
  const opened = await openPage(browser, program);
  const { page } = opened;
  await page.evaluate(() => {
    window.sockets = [];
    const { send } = WebSocket.prototype;
    WebSocket.prototype.send = function noted(text) {
      if (!window.sockets.includes(this)) window.sockets.push(this);
      return send.call(this, text);
    };
  });
  await firstPicture(page);
  await frameAfter(page, (await shownNumber(page)) + 2);
  await page.evaluate(() => window.sockets.at(-1).close());
  await until(async () => /Connection lost/.test(await page.locator('#link').innerText()), 'told');
  await until(async () => (await page.locator('#link').innerText()) === '', 'connected again');
  await program.command('set', 'Brightness=5');
  await until(
    async () => (await page.locator('.control[data-name="Brightness"] .value').innerText()) === '5',
    'its state',
  );
  await frameAfter(page, await shownNumber(page));
  opened.watch.assertClean();
  await opened.context.close();
});

test('a page of a program that was started anew is told to open the new address', async () => {
  const opened = await openPage(browser, program);
  await firstPicture(opened.page);
  const { port } = new URL(program.origin);
  await program.end();
  await until(async () => /Connection lost/.test(await opened.page.locator('#link').innerText()), 'told');
  await program.launch(['--listen', `127.0.0.1:${port}`]);
  await until(
    async () => /session has ended/.test(await opened.page.locator('#link').innerText()),
    'told to open the address',
  );
  opened.watch.assertClean(/^console: (WebSocket connection|Failed to load resource)/);
  await opened.context.close();
});

test('the addresses for other programs work without the page’s session, and no others do', async () => {
  const opened = await openPage(browser, program);
  const { page } = opened;
  await firstPicture(page);
  await page.getByRole('tab', { name: 'Addresses' }).click();
  const [still, stream] = await page.locator('.address > code').allInnerTexts();
  const picture = await fetch(still);
  assert.equal(picture.status, 200);
  assert.equal(picture.headers.get('content-type'), 'image/jpeg');
  assert.deepEqual([...new Uint8Array(await picture.arrayBuffer()).slice(0, 2)], [0xff, 0xd8]);
  const controller = new AbortController();
  const moving = await fetch(stream, { signal: controller.signal });
  assert.match(moving.headers.get('content-type'), /multipart\/x-mixed-replace/);
  controller.abort();
  const other = await fetch(`${program.origin}/`, { redirect: 'manual' });
  assert.ok([401, 403].includes(other.status), `${other.status}`);
  opened.watch.assertClean();
  await opened.context.close();
});
