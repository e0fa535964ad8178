/** The bus: its traffic a second, the frames that came of it, and what was done where it failed. */

import { element, setText } from '../base/dom.js';
import { age, dataRate, whole } from '../base/format.js';
import { firstSince, prepare } from '../base/plot.js';

const SPAN = 180; // seconds
const FRAMES = [
  ['good', 'good'],
  ['short', 'short'],
  ['long', 'long'],
  ['discarded', 'discarded'],
];

export class BusPanel {
  /** @param {HTMLElement} place @param {import('../picture/stage.js').Stage} stage @param {import('../connection/store.js').Store} store @param {() => boolean} isSeen */
  constructor(place, stage, store, isSeen) {
    Object.assign(this, { stage, isSeen });
    this.rates = [
      new Rate('Packets', 'a second', (second) => second.packets, whole),
      new Rate('Data', 'a second', (second) => second.bytes, dataRate),
      new Rate('Errors', 'a second', (second) => second.errors, whole),
    ];
    this.frames = new FrameBars();
    this.counts = FRAMES.map(([name, label]) => new Count(name, label));
    this.reasons = element('ul', { class: 'reasons' });
    this.events = element('ol', { class: 'events' });
    place.append(
      element('div', { class: 'rates' }, ...this.rates.map((rate) => rate.element)),
      element(
        'div',
        { class: 'frames' },
        element('h3', {}, 'Frames'),
        this.frames.element,
        element('dl', { class: 'counts' }, ...this.counts.map((count) => count.element)),
        this.reasons,
      ),
      element('div', { class: 'recovery' }, element('h3', {}, 'Recovery'), this.events),
    );
    stage.addEventListener('selected', () => this.show());
    for (const kind of ['bus', 'recovery'])
      store.addEventListener(kind, (event) => event.detail === stage.selected && this.show());
  }

  show() {
    const { camera } = this.stage;
    if (!camera || !this.isSeen()) return;
    const now = performance.now() / 1000;
    const seconds = camera.bus.slice(firstSince(camera.bus, now - SPAN));
    for (const rate of this.rates) rate.show(seconds, now);
    for (const count of this.counts) count.show(camera.totals);
    this.frames.show(
      seconds,
      camera.recoveries.filter((event) => event.at > now - SPAN),
      now,
    );
    this.showReasons(camera.totals.reasons);
    this.showEvents(camera.recoveries, now);
  }

  showReasons(reasons) {
    this.reasons.replaceChildren(
      ...[...reasons].map(([reason, count]) =>
        element('li', {}, element('span', {}, reason), element('b', {}, whole(count))),
      ),
    );
  }

  showEvents(events, now) {
    const rows = events
      .slice(-50)
      .reverse()
      .map((event) => element('li', {}, element('time', {}, age(now - event.at)), element('span', {}, event.text)));
    const empty = element('li', { class: 'empty' }, 'Nothing had to be recovered.');
    this.events.replaceChildren(...(rows.length > 0 ? rows : [empty]));
  }
}

/** A figure with its course over the last minutes. */
class Rate {
  constructor(title, unit, valueOf, format) {
    Object.assign(this, { valueOf, format });
    this.value = element('strong', {}, '–');
    this.canvas = element('canvas', { role: 'img', 'aria-label': `${title} over the last minutes` });
    this.element = element(
      'div',
      { class: 'rate' },
      element('h3', {}, title),
      element('p', {}, this.value, element('span', { class: 'unit' }, unit)),
      this.canvas,
    );
  }

  show(seconds, now) {
    const last = seconds.at(-1);
    setText(this.value, last ? this.format(this.valueOf(last)) : '–');
    const { context, width, height, colours } = prepare(this.canvas);
    const most = Math.max(1, ...seconds.map(this.valueOf));
    context.fillStyle = colours.line;
    context.fillRect(0, height - 1, width, 1);
    context.fillStyle = colours.ink3;
    drawBars(seconds, now, width, (second, x, bar) => {
      const size = (this.valueOf(second) / most) * (height - 2);
      context.fillRect(x, height - size - 1, bar, size);
    });
  }
}

/** The frames of each second: the good ones, above them those that failed, and where something was recovered. */
class FrameBars {
  constructor() {
    this.element = element('canvas', {
      class: 'frame-bars',
      role: 'img',
      'aria-label': 'Frames of each second over the last three minutes',
    });
  }

  show(seconds, events, now) {
    const { context, width, height, colours } = prepare(this.element);
    const bad = (second) => second.short + second.long + second.discarded;
    const most = Math.max(30, ...seconds.map((second) => second.good + bad(second)));
    const bottom = height - 8;
    context.fillStyle = colours.line;
    context.fillRect(0, bottom, width, 1);
    drawBars(seconds, now, width, (second, x, bar) => {
      const good = (second.good / most) * (bottom - 1);
      const failed = (bad(second) / most) * (bottom - 1);
      context.fillStyle = colours.accent;
      context.fillRect(x, bottom - good, bar, good);
      context.fillStyle = colours.bad;
      context.fillRect(x, bottom - good - failed, bar, failed);
    });
    context.fillStyle = colours.warn;
    for (const event of events)
      context.fillRect(Math.round(width - ((now - event.at) / SPAN) * width) - 1, bottom + 3, 2, 5);
  }
}

class Count {
  constructor(name, label) {
    this.name = name;
    this.value = element('dd', {}, '0');
    this.element = element('div', { class: name }, element('dt', {}, label), this.value);
  }

  show(totals) {
    setText(this.value, whole(totals[this.name]));
    this.element.classList.toggle('none', totals[this.name] === 0);
  }
}

function drawBars(seconds, now, width, draw) {
  const step = width / SPAN;
  for (const second of seconds) {
    const right = width - (now - second.at) * step;
    draw(second, right - step, Math.max(1, step - 1));
  }
}
