/** The rules of accessibility, by axe-core. */

import { readFile } from 'node:fs/promises';
import { createRequire } from 'node:module';

const axeSource = await readFile(createRequire(import.meta.url).resolve('axe-core/axe.min.js'), 'utf8');

/** By the debugger: the page's own policy lets no script in. */
export async function loadAxe(context, page) {
  const session = await context.newCDPSession(page);
  await session.send('Runtime.evaluate', { expression: axeSource });
  return session;
}

/** @param {string} [part] selector of the part of the page that is looked at */
export async function violations(session, part = 'html') {
  const { result } = await session.send('Runtime.evaluate', {
    expression: `axe.run(${JSON.stringify(part)}).then((found) => JSON.stringify(
      found.violations.map(({ id, nodes }) => [id, ...nodes.map((node) => node.html.slice(0, 120))])))`,
    awaitPromise: true,
    returnByValue: true,
  });
  return JSON.parse(result.value);
}
