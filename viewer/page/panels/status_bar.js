/** The bar above: which camera this is, how it does, and whether the program is there. */

import { button, element, setText } from '../base/dom.js';
import { fixed, whole } from '../base/format.js';

const PERIOD = 500; // milliseconds: figures that change faster can't be read

const STATE_WORDS = { off: 'off', opening: 'starting', on: 'live', unplugged: 'unplugged', failed: 'failed' };

export class StatusBar {
  /**
   * @param {{identity: HTMLElement, figures: HTMLElement, link: HTMLElement}} places
   * @param {import('../picture/stage.js').Stage} stage
   * @param {import('../connection/store.js').Store} store
   * @param {import('../connection/connection.js').Connection} connection
   */
  constructor(places, stage, store, connection) {
    Object.assign(this, { places, stage, store, connection });
    this.figures = {
      rate: figure('Rate', 'frames/s', 'Frames shown a second'),
      latency: figure('Latency', 'ms', 'From the end of the frame on the bus to the screen'),
      skipped: figure('Skipped', '', 'Frames that this page was too slow for'),
      viewers: figure('Viewers', '', 'Pages that look at this program'),
    };
    places.figures.append(...Object.values(this.figures).map((entry) => entry.element));
    this.name = element('strong', { class: 'unit' });
    this.sensor = element('span', { class: 'sensor' });
    this.state = element('span', { class: 'state' });
    places.identity.append(this.state, this.name, this.sensor);
    for (const kind of ['selected', 'frozen']) stage.addEventListener(kind, () => this.showIdentity());
    store.addEventListener('camera', () => this.showIdentity());
    store.addEventListener('viewers', () => this.showFigures());
    connection.addEventListener('link', (event) => this.showLink(event.detail));
    setInterval(() => this.showFigures(), PERIOD);
  }

  showIdentity() {
    const info = this.stage.camera?.info;
    if (!info) {
      setText(this.name, 'no camera');
      return;
    }
    const frozen = this.stage.picture?.frozen && info.state === 'on';
    setText(this.name, info.description || info.unit);
    setText(this.sensor, info.sensor ?? '');
    setText(this.state, frozen ? 'frozen' : stateOf(info));
    this.state.dataset.state = frozen ? 'frozen' : info.state;
    document.title = `${info.unit} – lidcam`;
  }

  showFigures() {
    const { picture } = this.stage;
    if (!picture) return;
    const rate = picture.frozen ? NaN : picture.rate();
    this.figures.rate.show(fixed(rate, 1));
    this.figures.latency.show(rate > 0 ? fixed(picture.latency(), 0) : '–');
    this.figures.skipped.show(whole(picture.skipped));
    this.figures.viewers.show(String(this.store.viewers || 1));
  }

  showLink({ state, seconds }) {
    const { link } = this.places;
    document.body.dataset.link = state;
    const text = {
      connecting: '',
      open: '',
      lost: `Connection lost. Trying again in ${fixed(seconds, 1)} s.`,
      ended: 'This page’s session has ended. Open the address that lidcam view prints.',
    }[state];
    if (state === 'connecting' && link.textContent !== '') return;
    link.replaceChildren(
      ...(text ? [text] : []),
      ...(state === 'lost' ? [button('Now', () => this.connection.openUnlessRefused())] : []),
    );
  }
}

/** A recording is not live. */
function stateOf({ state, kind, panel }) {
  if (kind === 'recording' && state === 'on') return panel?.playing === false ? 'paused' : 'playing';
  return STATE_WORDS[state] ?? state;
}

function figure(name, unit, meaning) {
  const value = element('b', {}, '–');
  return {
    element: element(
      'div',
      { title: meaning, class: name.toLowerCase() },
      element('dt', {}, name),
      element('dd', {}, value, unit ? element('span', {}, ` ${unit}`) : null),
    ),
    show: (text) => setText(value, text),
  };
}
