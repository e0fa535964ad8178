/** The light states, which of them the camera is in, and what would change it. */

import { drawing, element } from '../base/dom.js';

const WIDTH = 76;
const HEIGHT = 28;

const STATES = {
  Initial: { x: 98, y: 4, title: 'Initial' },
  Normal: { x: 2, y: 78, title: 'Normal' },
  Dummy: { x: 98, y: 78, title: 'Dummy' },
  LowLight: { x: 194, y: 78, title: 'LowLight' },
};

const EXITS = {
  Initial: ['Normal when the exposure is below 5', 'LowLight when it is 5 or more'],
  Normal: ['Dummy at luminance 48 or less, exposure 7 or more, for 11 frames'],
  Dummy: [
    'LowLight at luminance 21 or less, exposure 19 or more, for 11 frames',
    'Normal at luminance 81 or more, exposure 8 or less, for 6 frames',
  ],
  LowLight: ['Dummy at luminance 64 or more, exposure below 20, for 6 frames'],
};

export class LightMachine {
  /** @param {HTMLElement} place @param {import('../picture/stage.js').Stage} stage @param {import('../connection/store.js').Store} store */
  constructor(place, stage, store) {
    this.stage = stage;
    this.state = null;
    this.nodes = new Map(Object.entries(STATES).map(([name, state]) => [name, node(state)]));
    this.diagram = drawing(
      'svg',
      { viewBox: '0 0 272 110', class: 'machine', role: 'img' },
      arrowHead(),
      ...edges(),
      ...this.nodes.values(),
    );
    this.exits = element('ul', { class: 'exits' });
    this.element = element('div', { class: 'light' }, element('h3', {}, 'Light state'), this.diagram, this.exits);
    place.append(this.element);
    stage.addEventListener('selected', () => this.show());
    store.addEventListener('loop', (event) => event.detail === stage.selected && this.show());
    this.show();
  }

  show() {
    const state = this.stage.camera?.loop.at(-1)?.light ?? '';
    if (state === this.state) return;
    this.state = state;
    for (const [name, shape] of this.nodes) shape.classList.toggle('current', name === state);
    this.diagram.setAttribute('aria-label', state ? `Light state ${state}` : 'Light state not known');
    this.diagram.dataset.state = state;
    const exits = EXITS[state] ?? [];
    this.exits.replaceChildren(
      ...exits.map((exit) => {
        const [to, ...condition] = exit.split(' ');
        return element('li', {}, element('strong', {}, `→ ${to}`), ` ${condition.join(' ')}`);
      }),
    );
  }
}

function node({ x, y, title }) {
  return drawing(
    'g',
    { class: 'state' },
    drawing('rect', { x, y, width: WIDTH, height: HEIGHT, rx: 6 }),
    drawing('text', { x: x + WIDTH / 2, y: y + HEIGHT / 2 + 4, 'text-anchor': 'middle' }, title),
  );
}

function edges() {
  const between = (from, to, way) => [`M ${from} ${86 + way} H ${to}`];
  return [
    `M 98 24 L 46 72`,
    `M 174 24 L 226 72`,
    ...between(80, 94, 0),
    ...between(96, 82, 13),
    ...between(176, 190, 0),
    ...between(192, 178, 13),
  ].map((path) => drawing('path', { d: path, 'marker-end': 'url(#arrow)' }));
}

function arrowHead() {
  return drawing(
    'defs',
    {},
    drawing(
      'marker',
      { id: 'arrow', viewBox: '0 0 6 6', refX: 4, refY: 3, markerWidth: 5, markerHeight: 5, orient: 'auto' },
      drawing('path', { d: 'M 0 0 L 6 3 L 0 6 z', class: 'head' }),
    ),
  );
}
