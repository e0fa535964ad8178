/** What all drawings on a canvas share: their size in the screen's pixels, and the page's colours. */

const NAMES = {
  ink: '--ink',
  ink2: '--ink-2',
  ink3: '--ink-3',
  line: '--line',
  accent: '--accent',
  band: '--band',
  bad: '--bad',
  warn: '--warn',
  panel: '--panel',
  font: '--sans',
};

let colours = null;

function readColours() {
  const style = getComputedStyle(document.documentElement);
  return Object.fromEntries(Object.entries(NAMES).map(([key, name]) => [key, style.getPropertyValue(name).trim()]));
}

matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => {
  colours = null;
});

/**
 * Clears a canvas, in the size that it has on the page.
 * @param {HTMLCanvasElement} canvas
 * @returns {{context: CanvasRenderingContext2D, width: number, height: number, colours: Record<string, string>}}
 *   width and height in CSS pixels
 */
export function prepare(canvas) {
  colours ??= readColours();
  const ratio = window.devicePixelRatio || 1;
  const width = canvas.clientWidth;
  const height = canvas.clientHeight;
  const across = Math.max(1, Math.round(width * ratio));
  const down = Math.max(1, Math.round(height * ratio));
  if (canvas.width !== across || canvas.height !== down) Object.assign(canvas, { width: across, height: down });
  const context = canvas.getContext('2d');
  context.setTransform(ratio, 0, 0, ratio, 0, 0);
  context.clearRect(0, 0, width, height);
  return { context, width, height, colours };
}

/**
 * Draws steps: each value holds until the next one. A silence longer than `gap` seconds is left empty.
 * @param {CanvasRenderingContext2D} context
 * @param {{at: number}[]} points in order of time
 * @param {(point: any) => number} valueOf
 * @param {(at: number) => number} x
 * @param {(value: number) => number} y
 */
export function strokeSteps(context, points, valueOf, x, y, gap = 2) {
  context.beginPath();
  let last = null;
  for (const point of points) {
    const place = x(point.at);
    const level = y(valueOf(point));
    if (last && point.at - last.at < gap) {
      if (level !== last.level) {
        context.lineTo(place, last.level);
        context.lineTo(place, level);
      }
    } else {
      if (last) context.lineTo(x(last.at), last.level);
      context.moveTo(place, level);
    }
    last = { at: point.at, level };
  }
  if (last) context.lineTo(x(last.at), last.level);
  context.stroke();
}

/** The first index whose time is not before `at`. @param {{at: number}[]} points in order of time */
export function firstSince(points, at) {
  let low = 0;
  let high = points.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (points[middle].at < at) low = middle + 1;
    else high = middle;
  }
  return low;
}
