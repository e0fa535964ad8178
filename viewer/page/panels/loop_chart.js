/** The exposure loop over the last minutes: what it measured, what it aimed at, what it wrote to the sensor. */

import { button, element, setText } from '../base/dom.js';
import { age, fixed } from '../base/format.js';
import { firstSince, prepare, strokeSteps } from '../base/plot.js';

const SPANS = [
  [30, '30 s'],
  [120, '2 min'],
  [600, '10 min'],
];
const QUIET_PERIOD = 1000; // milliseconds between two drawings where motion is not wanted

export class LoopChart {
  /** @param {HTMLElement} place @param {import('../picture/stage.js').Stage} stage @param {() => boolean} isSeen */
  constructor(place, stage, isSeen) {
    Object.assign(this, { stage, isSeen });
    this.span = 120;
    this.cursor = null; // seconds of performance.now() below the pointer
    this.lastDrawn = 0;
    this.lanes = [
      new Lane('luminance', 'Luminance', drawLuminance, (step) => [
        fixed(step.luminance, 0),
        `target ${fixed(step.target, 0)}, ${fixed(step.low, 0)} to ${fixed(step.high, 0)}`,
      ]),
      new Lane('exposure', 'Exposure', drawExposure, (step) => [
        isChosen(step) ? fixed(step.exposure, 0) : '–',
        isChosen(step) ? `half cycles · ${fixed(step.exposureLines, 0)} lines` : 'as brought up',
      ]),
      new Lane('gain', 'Gain', drawGain, (step) => [
        isChosen(step) ? `${fixed(step.coarseGain, 0)} × ${fixed(step.fineGain / 128, 2)}` : '–',
        isChosen(step) ? `coarse ${fixed(step.coarseGain, 0)}, fine ${fixed(step.fineGain, 0)}` : 'as brought up',
      ]),
      new Lane('states', 'Light', drawStates, (step) => [step.light, '']),
    ];
    this.axis = element('div', { class: 'axis', 'aria-hidden': 'true' });
    this.empty = element(
      'p',
      { class: 'empty' },
      'No step of the exposure loop yet. Cameras whose chip exposes by itself have none.',
    );
    this.spans = element(
      'div',
      { class: 'spans', role: 'group', 'aria-label': 'Time shown' },
      ...SPANS.map(([seconds, label]) => button(label, () => this.setSpan(seconds), { 'data-seconds': seconds })),
    );
    this.moment = element('span', { class: 'moment' });
    this.element = element(
      'div',
      {
        class: 'chart',
        pointermove: (event) => this.point(event),
        pointerleave: () => {
          this.cursor = null;
        },
      },
      ...this.lanes.flatMap((lane) => [lane.legend, lane.canvas]),
      element('span', {}),
      this.axis,
    );
    place.append(this.element, this.empty, element('div', { class: 'chart-head' }, legend(), this.moment, this.spans));
    this.setSpan(this.span);
    requestAnimationFrame(() => this.tick());
  }

  setSpan(seconds) {
    this.span = seconds;
    for (const choice of this.spans.children)
      choice.setAttribute('aria-pressed', String(Number(choice.dataset.seconds) === seconds));
    const parts = [1, 0.75, 0.5, 0.25].map((part) => element('span', {}, `−${secondsName(seconds * part)}`));
    this.axis.replaceChildren(...parts, element('span', {}, 'now'));
  }

  point(event) {
    const bounds = this.lanes[0].canvas.getBoundingClientRect();
    const part = (event.clientX - bounds.left) / bounds.width;
    this.cursor = part >= 0 && part <= 1 ? { part } : null;
  }

  /** Many seconds for a pixel need no sixty drawings a second. */
  tick() {
    requestAnimationFrame(() => this.tick());
    const period = matchMedia('(prefers-reduced-motion: reduce)').matches ? QUIET_PERIOD : this.span;
    const now = performance.now();
    if (now - this.lastDrawn < period || !this.isSeen()) return;
    this.lastDrawn = now;
    this.draw(now / 1000);
  }

  draw(now) {
    const steps = this.stage.camera?.loop ?? [];
    this.empty.hidden = steps.length > 0;
    this.element.classList.toggle('without-data', steps.length === 0);
    if (steps.length === 0) return;
    const begin = now - this.span;
    const seen = steps.slice(Math.max(0, firstSince(steps, begin) - 1));
    const at = this.cursor ? begin + this.cursor.part * this.span : now;
    const step = this.cursor ? (seen.findLast((other) => other.at <= at) ?? seen[0]) : steps.at(-1);
    for (const lane of this.lanes) lane.draw(seen, begin, this.span, step, this.cursor?.part);
    setText(this.moment, this.cursor ? age(now - at) : '');
  }
}

/** Until its first step the loop has chosen neither exposure nor gain: the sensor's are those of its set file. */
function isChosen(step) {
  return step.coarseGain > 0;
}

class Lane {
  constructor(name, title, paint, words) {
    Object.assign(this, { paint, words });
    this.canvas = element('canvas', { class: name, role: 'img', 'aria-label': `${title} over time` });
    this.value = element('strong', {});
    this.detail = element('span', { class: 'detail' });
    this.legend = element(
      'div',
      { class: `lane ${name}` },
      element('span', { class: 'title' }, title),
      this.value,
      this.detail,
    );
  }

  draw(steps, begin, span, current, cursor) {
    const [value, detail] = this.words(current);
    setText(this.value, value);
    setText(this.detail, detail);
    const { context, width, height, colours } = prepare(this.canvas);
    const x = (at) => ((at - begin) / span) * width;
    this.paint({ context, width, height, colours, steps, x });
    if (cursor === undefined) return;
    context.fillStyle = colours.ink3;
    context.fillRect(Math.round(cursor * width), 0, 1, height);
  }
}

function drawLuminance({ context, width, height, colours, steps, x }) {
  const most = Math.max(160, ...steps.map((step) => step.luminance + 10));
  const y = (value) => height - 1 - (value / most) * (height - 2);
  const last = steps.at(-1);
  context.fillStyle = colours.band;
  context.fillRect(0, y(last.high), width, y(last.low) - y(last.high));
  context.fillStyle = colours.accent;
  context.globalAlpha = 0.55;
  for (let dash = 0; dash < width; dash += 8) context.fillRect(dash, Math.round(y(last.target)), 4, 1);
  context.globalAlpha = 1;
  context.strokeStyle = colours.ink;
  context.lineWidth = 1.5;
  context.lineJoin = 'round';
  strokeSteps(context, steps, (step) => step.luminance, x, y);
}

function drawExposure({ context, width, height, colours, steps, x }) {
  drawBase(context, width, height, colours);
  const most = Math.max(20, ...steps.map((step) => step.exposure));
  context.strokeStyle = colours.accent;
  context.lineWidth = 1.5;
  strokeSteps(
    context,
    steps.filter(isChosen),
    (step) => step.exposure,
    x,
    (value) => height - 2 - (value / most) * (height - 5),
  );
  drawWrites(context, height, colours, steps, x);
}

/** A mark for each write to the sensor. */
function drawWrites(context, height, colours, steps, x) {
  context.fillStyle = colours.ink2;
  let last = -Infinity;
  for (const step of steps) {
    const place = Math.round(x(step.at));
    if (!step.wrote || place === last) continue;
    last = place;
    context.fillRect(place, height - 6, 1, 6);
  }
}

/** Both stages multiply; the line is their product, on a scale of factors. */
function drawGain({ context, width, height, colours, steps, x }) {
  drawBase(context, width, height, colours);
  const product = (step) => Math.max(1, (COARSE[step.coarseGain] ?? 1) * (step.fineGain / 128));
  const most = Math.log(Math.max(3, ...steps.map(product)));
  context.strokeStyle = colours.ink2;
  context.lineWidth = 1.5;
  strokeSteps(
    context,
    steps.filter(isChosen),
    (step) => Math.log(product(step)),
    x,
    (value) => height - 2 - (value / most) * (height - 5),
  );
}

/** The stages' factors are not published: these are the simulated camera's, which fit the table of operating points. */
const COARSE = { 1: 1, 2: 1.16, 3: 1.53 };

function drawStates({ context, height, colours, steps, x, width }) {
  const shades = { Initial: 0.12, Normal: 0.28, Dummy: 0.55, LowLight: 0.9 };
  context.fillStyle = colours.accent;
  for (let i = 0; i < steps.length; ) {
    let end = i + 1;
    while (end < steps.length && steps[end].light === steps[i].light && steps[end].at - steps[end - 1].at < 2) end += 1;
    const until = end < steps.length && steps[end].at - steps[end - 1].at < 2 ? steps[end].at : steps[end - 1].at;
    const from = Math.max(0, x(steps[i].at));
    context.globalAlpha = shades[steps[i].light] ?? 0.1;
    context.fillRect(from, 1, Math.min(width, x(until)) - from, height - 2);
    i = end;
  }
  context.globalAlpha = 1;
}

function drawBase(context, width, height, colours) {
  context.fillStyle = colours.line;
  context.fillRect(0, height - 1, width, 1);
}

function legend() {
  return element(
    'p',
    { class: 'legend', 'aria-hidden': 'true' },
    element('i', { class: 'band' }),
    'dead band',
    element('i', { class: 'write' }),
    'written to the sensor',
  );
}

function secondsName(seconds) {
  return seconds >= 60 ? `${Number((seconds / 60).toFixed(1))} min` : `${Number(seconds.toFixed(1))} s`;
}
