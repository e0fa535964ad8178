/** Histogram and waveform of the luminance of the picture shown, and the pixels below the pointer. */

import { element, setText } from '../base/dom.js';
import { prepare } from '../base/plot.js';

const COLUMNS = 192; // samples of the picture, across and down: enough for the shapes
const ROWS = 144;
const PERIOD = 100; // milliseconds between two drawings

export class Scopes {
  /** @param {HTMLElement} place @param {import('./stage.js').Stage} stage */
  constructor(place, stage) {
    this.stage = stage;
    this.sampler = new OffscreenCanvas(COLUMNS, ROWS).getContext('2d', { willReadFrequently: true, alpha: false });
    this.sampler.imageSmoothingEnabled = false;
    this.lastDrawn = 0;
    this.histogram = element('canvas', { role: 'img', 'aria-label': 'Histogram of the luminance' });
    this.waveform = element('canvas', {
      role: 'img',
      'aria-label': 'Waveform of the luminance, from the left of the picture to its right',
    });
    this.summary = element('output', { 'aria-label': 'Mean luminance, and pixels at black or white' });
    place.append(
      panel('Histogram', this.histogram, 'histogram', this.summary),
      panel('Waveform', this.waveform, 'waveform'),
    );
    stage.addEventListener('shown', () => this.shown());
  }

  shown() {
    const now = performance.now();
    if (now - this.lastDrawn < PERIOD || this.histogram.offsetParent === null) return;
    this.lastDrawn = now;
    const luminance = this.sample();
    this.drawHistogram(luminance);
    this.drawWaveform(luminance);
  }

  sample() {
    this.sampler.drawImage(this.stage.picture.canvas, 0, 0, COLUMNS, ROWS);
    const { data } = this.sampler.getImageData(0, 0, COLUMNS, ROWS);
    const luminance = new Uint8Array(COLUMNS * ROWS);
    for (let i = 0; i < luminance.length; i += 1) {
      luminance[i] = 0.299 * data[4 * i] + 0.587 * data[4 * i + 1] + 0.114 * data[4 * i + 2] + 0.5;
    }
    return luminance;
  }

  drawHistogram(luminance) {
    const counts = new Uint32Array(128);
    let sum = 0;
    for (const value of luminance) {
      counts[value >> 1] += 1;
      sum += value;
    }
    const { context, width, height, colours } = prepare(this.histogram);
    const most = largestButPeaks(counts);
    context.fillStyle = colours.ink2;
    counts.forEach((count, i) => {
      const x = Math.round((i * width) / counts.length);
      const bar = Math.min(1, Math.sqrt(count / most)) * (height - 1);
      context.fillRect(x, height - bar, Math.round(((i + 1) * width) / counts.length) - x, bar);
    });
    this.showSummary(sum / luminance.length, counts[0] / luminance.length, counts[127] / luminance.length);
  }

  showSummary(mean, black, white) {
    setText(this.summary, `mean ${Math.round(mean)}, clipped ${Math.round(100 * (black + white))} %`);
  }

  drawWaveform(luminance) {
    const counts = new Uint16Array(COLUMNS * 128);
    for (let i = 0; i < luminance.length; i += 1) counts[(i % COLUMNS) * 128 + (luminance[i] >> 1)] += 1;
    const { context, width, height, colours } = prepare(this.waveform);
    drawLevels(context, width, height, colours);
    context.fillStyle = colours.accent;
    for (let column = 0; column < COLUMNS; column += 1) {
      for (let level = 0; level < 128; level += 1) {
        const count = counts[column * 128 + level];
        if (count === 0) continue;
        context.globalAlpha = Math.min(1, 0.18 + count / 24);
        context.fillRect(
          (column * width) / COLUMNS,
          height - ((level + 1) * height) / 128,
          width / COLUMNS + 0.3,
          Math.max(1, height / 128),
        );
      }
    }
    context.globalAlpha = 1;
  }
}

function panel(title, canvas, name, note = null) {
  return element(
    'figure',
    { class: `scope ${name}` },
    element('figcaption', {}, element('h2', {}, title), note),
    canvas,
  );
}

/** One level that fills half of the picture would flatten all the others. */
function largestButPeaks(counts) {
  const sorted = [...counts].sort((a, b) => b - a);
  return Math.max(1, sorted[3]);
}

function drawLevels(context, width, height, colours) {
  context.fillStyle = colours.line;
  for (const part of [0.25, 0.5, 0.75]) context.fillRect(0, Math.round(height * part), width, 1);
}
