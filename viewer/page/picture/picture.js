/** One camera's live picture on a canvas. */

import { element } from '../base/dom.js';
import { PanZoom } from './pan_zoom.js';

const RATE_OVER = 2000; // milliseconds that the rate is taken over
const LATENCIES_KEPT = 60; // frames

/**
 * Events: `shown` (detail: the frame's header; it is on the canvas), `view` (zoom or place changed), `frozen`.
 *
 * The server has at most two frames on their way that are not acknowledged. A frozen picture keeps the next one and
 * acknowledges none, so that nothing more is sent.
 */
export class Picture extends EventTarget {
  /**
   * @param {import('../connection/store.js').Camera} camera
   * @param {import('../connection/connection.js').Connection} connection
   * @param {import('../connection/server_clock.js').ServerClock} clock
   */
  constructor(camera, connection, clock) {
    super();
    this.camera = camera;
    this.connection = connection;
    this.clock = clock;
    this.canvas = element('canvas', { class: 'picture', role: 'img', width: 640, height: 480 });
    this.context = this.canvas.getContext('2d', { alpha: false, willReadFrequently: true });
    this.view = new PanZoom(this.canvas, () => this.dispatchEvent(new CustomEvent('view')));
    this.element = this.view.element;
    this.frozen = false;
    this.queue = []; // frames that arrived and aren't drawn
    this.drawing = false;
    this.header = null;
    this.lastNumber = null; // of the frame received before, if the next one follows it
    this.skipped = 0;
    this.shownTimes = [];
    this.latencies = [];
  }

  /** Takes a frame of the connection. */
  take(frame) {
    this.countSkipped(frame.header.number);
    this.queue.push(frame);
    if (!this.frozen) this.drawNewest();
  }

  /** The server numbers the frames that the camera delivers, and sends a slow page fewer of them. */
  countSkipped(number) {
    if (this.lastNumber !== null) this.skipped += Math.max(0, number - this.lastNumber - 1);
    this.lastNumber = this.frozen ? null : number;
  }

  /** A new connection owes no acknowledgement of the last one's frames. */
  forgetWaiting() {
    this.queue = [];
    this.lastNumber = null;
  }

  /** Drops what a picture that isn't seen would draw later. */
  hide() {
    this.acknowledge(this.queue.splice(0));
    this.lastNumber = null;
  }

  setFrozen(frozen) {
    if (frozen === this.frozen) return;
    this.frozen = frozen;
    this.lastNumber = null;
    if (!frozen) this.drawNewest();
    this.dispatchEvent(new CustomEvent('frozen'));
  }

  /** Shows the next frame and stays frozen. */
  step() {
    this.setFrozen(true);
    if (this.queue.length > 0) this.draw(this.queue.shift());
  }

  /** Frames a second, over the last two seconds. */
  rate() {
    const since = performance.now() - RATE_OVER;
    this.shownTimes = this.shownTimes.filter((time) => time > since);
    const [first] = this.shownTimes;
    const last = this.shownTimes.at(-1);
    return this.shownTimes.length < 2 ? 0 : (this.shownTimes.length - 1) / ((last - first) / 1000);
  }

  /** Milliseconds from the frame's end on the bus to the screen: the middle one of the last frames; NaN if unknown. */
  latency() {
    const sorted = this.latencies.filter(Number.isFinite).sort((a, b) => a - b);
    return sorted.length === 0 ? NaN : sorted[sorted.length >> 1];
  }

  drawNewest() {
    if (this.drawing || this.queue.length === 0) return;
    const frame = this.queue.pop();
    this.skipped += this.queue.length;
    this.acknowledge(this.queue.splice(0));
    this.draw(frame);
  }

  async draw(frame) {
    this.drawing = true;
    try {
      const bitmap = await createImageBitmap(frame.picture);
      await nextPaint();
      this.paint(bitmap, frame.header);
      bitmap.close();
      this.acknowledge([frame]);
      this.measureLatency(frame.header);
    } catch (error) {
      this.acknowledge([frame]);
      console.error(`frame ${frame.header.number}: ${error.message}`);
    }
    this.drawing = false;
    if (!this.frozen) this.drawNewest();
  }

  paint(bitmap, header) {
    if (this.canvas.width !== bitmap.width || this.canvas.height !== bitmap.height) {
      this.canvas.width = bitmap.width;
      this.canvas.height = bitmap.height;
      this.view.refit();
    }
    this.context.drawImage(bitmap, 0, 0);
    this.canvas.dataset.number = header.number;
    this.canvas.dataset.whole = header.whole;
    this.header = header;
    this.shownTimes.push(performance.now());
    this.dispatchEvent(new CustomEvent('shown', { detail: header }));
  }

  acknowledge(frames) {
    for (const { header } of frames) {
      this.connection.send({ do: 'shown', camera: header.camera, number: header.number });
    }
  }

  /** What is drawn now is on the screen when the browser paints again. */
  async measureLatency(header) {
    if (this.frozen) return;
    await nextPaint();
    this.latencies.push(this.clock.now() - header.monotonic);
    if (this.latencies.length > LATENCIES_KEPT) this.latencies.shift();
  }
}

/** A picture's description for those who don't see it. @param {Picture} picture */
export function describe(picture) {
  const { camera, header } = picture;
  const size = header ? `${header.width} by ${header.height}` : 'no frame yet';
  picture.canvas.setAttribute('aria-label', `Live picture of ${camera.info.unit}, ${size}`);
}

/** Hidden pages have no next paint: a frame must not wait for it there. */
function nextPaint() {
  if (document.hidden) return Promise.resolve();
  return new Promise((resolve) => {
    const timer = setTimeout(resolve, 250);
    requestAnimationFrame(() => {
      clearTimeout(timer);
      resolve();
    });
  });
}
