/** The driver's trace, as a page that asks for it gets it. */

import { until } from './browser.js';

export class Trace {
  /** Listens over a WebSocket of its own. @param {import('playwright-core').Page} page whose session it takes */
  static async of(page) {
    await page.evaluate(listen);
    return new Trace(page);
  }

  /** @param {import('playwright-core').Page} page */
  constructor(page) {
    this.page = page;
  }

  /**
   * Waits for the exposure control's next commit, which is made every 22 or 42 frames and takes no turns with the
   * register accesses of an application: a control that is set just then goes to the wrong register.
   */
  async afterCommit() {
    await this.linesOf(/write sensor FF2F=83/, async () => {});
  }

  /** Waits until what is done has led to a line. @param {RegExp} pattern @param {() => Promise<void>} action */
  async linesOf(pattern, action) {
    await this.page.evaluate(() => window.tracedLines.splice(0));
    await action();
    const lines = () => this.page.evaluate(() => window.tracedLines);
    await until(async () => (await lines()).some((line) => pattern.test(line)), `${pattern}`);
  }
}

/** Runs in the page. */
function listen() {
  window.tracedLines = [];
  return new Promise((resolve, reject) => {
    const socket = new WebSocket(`${location.origin.replace(/^http/, 'ws')}/live`);
    socket.onopen = () => socket.send(JSON.stringify({ do: 'trace', id: 1, camera: 0, on: true }));
    socket.onerror = () => reject(new Error('no connection'));
    socket.onmessage = ({ data }) => {
      if (typeof data !== 'string') return;
      const message = JSON.parse(data);
      if (message.answer === 1) resolve();
      if (message.trace) window.tracedLines.push(...message.trace.lines);
    };
  });
}
