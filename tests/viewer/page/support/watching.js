/** What pictures show, gathered frame by frame. */

import { cellCentres, counterArea, readCounter } from './counter.js';

/**
 * Reads the counter of each frame that comes onto the canvas.
 * @param {import('playwright-core').Page} page
 * @param {number} count of frames
 * @returns {Promise<{counters: Map<number, number>, whole: Set<number>}>} counter by the frame's number, and the
 *   numbers of frames that lost nothing on the bus: the end of others, with the counter, is that of an older frame
 */
export async function countersOnCanvas(page, count) {
  const { width, height } = await page
    .locator('canvas.picture')
    .first()
    .evaluate(({ width, height }) => ({ width, height }));
  const area = counterArea(width, height);
  const frames = await page.evaluate(gatherFromCanvas, { count, area, centres: cellCentres(area.width, area.height) });
  return {
    counters: new Map(frames.map(([number, { luminance }]) => [number, readCounter(luminance)])),
    whole: new Set(frames.filter(([, { whole }]) => whole).map(([number]) => number)),
  };
}

/** Runs in the page. */
async function gatherFromCanvas({ count, area, centres }) {
  const canvas = document.querySelector('canvas.picture');
  const found = new Map();
  while (found.size < count) {
    const number = Number(canvas.dataset.number);
    if (!found.has(number)) {
      const { data } = canvas.getContext('2d').getImageData(area.x, area.y, area.width, area.height);
      found.set(number, {
        whole: canvas.dataset.whole === 'true',
        luminance: centres.map(({ x, y }) => data[4 * (y * area.width + x) + 1]),
      });
    }
    await new Promise((resolve) => {
      requestAnimationFrame(resolve);
    });
  }
  return [...found];
}

/**
 * Watches the camera over a WebSocket of its own and asks for the true luminance of the counter's cells.
 * @param {import('playwright-core').Page} page whose session it takes
 * @param {number} count of frames
 * @returns {Promise<Map<number, number>>} counter by the frame's number
 */
export async function countersSent(page, count) {
  const { width, height } = await page
    .locator('canvas.picture')
    .first()
    .evaluate(({ width, height }) => ({ width, height }));
  const area = counterArea(width, height);
  const cells = await page.evaluate(gatherFromCamera, { count, area, centres: cellCentres(area.width, area.height) });
  return new Map(cells.map(([number, luminance]) => [number, readCounter(luminance)]));
}

/** Runs in the page. One question for each row of cells: the program answers for a limited number of pixels. */
function gatherFromCamera({ count, area, centres }) {
  const rows = [...new Set(centres.map(({ y }) => y))];
  return new Promise((resolve, reject) => {
    const socket = new WebSocket(`${location.origin.replace(/^http/, 'ws')}/live`);
    const found = new Map(); // number to luminance by row
    const asked = new Map(); // question to row
    socket.binaryType = 'arraybuffer';
    const send = (message) => socket.send(JSON.stringify(message));
    socket.onopen = () => send({ do: 'watch', cameras: [0] });
    socket.onerror = () => reject(new Error('no connection'));
    socket.onmessage = ({ data }) => {
      if (typeof data === 'string') answered(JSON.parse(data));
      else shown(data);
    };
    const shown = (data) => {
      const length = new DataView(data).getUint32(0, true);
      const { number } = JSON.parse(new TextDecoder().decode(new Uint8Array(data, 4, length)));
      for (const row of rows) {
        asked.set(asked.size + 1, { row, number });
        send({
          do: 'pixels',
          id: asked.size,
          camera: 0,
          number,
          x: area.x,
          y: area.y + row,
          width: area.width,
          height: 1,
        });
      }
      // After the questions, and ahead of their answers: a busy machine would leave most frames out.
      send({ do: 'shown', camera: 0, number });
    };
    const answered = (message) => {
      if (message.error) reject(new Error(message.error));
      if (message.answer === undefined) return;
      const { row, number } = asked.get(message.answer);
      if (!found.has(number)) found.set(number, new Map());
      if (message.number === number) found.get(number).set(row, message.y);
      if (row !== rows.at(-1) || found.size < count) return;
      socket.close();
      const whole = [...found].filter(([, lines]) => lines.size === rows.length);
      resolve(whole.map(([frame, lines]) => [frame, centres.map(({ x, y }) => lines.get(y)[x])]));
    };
  });
}
