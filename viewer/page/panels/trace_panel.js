/** The driver's trace as text: register accesses, state changes, decisions about frames. */

import { button, element, setText } from '../base/dom.js';
import { whole } from '../base/format.js';

const SHOWN = 400; // lines
const PERIOD = 200; // milliseconds

export class TracePanel {
  /**
   * @param {HTMLElement} place
   * @param {import('../picture/stage.js').Stage} stage
   * @param {import('../connection/store.js').Store} store
   * @param {import('../connection/connection.js').Connection} connection
   * @param {() => boolean} isSeen
   */
  constructor(place, stage, store, connection, isSeen) {
    Object.assign(this, { stage, connection, isSeen });
    this.asked = null;
    this.paused = false;
    this.dirty = true;
    this.filter = element('input', {
      type: 'search',
      placeholder: 'words that a line contains',
      'aria-label': 'Filter of the trace',
      input: () => {
        this.dirty = true;
      },
    });
    this.pauseButton = button('Pause', () => this.pause(), { 'aria-pressed': 'false' });
    this.count = element('span', { class: 'count' });
    this.text = element('pre', { class: 'lines' });
    this.scroll = element('div', { class: 'scroll', tabindex: '0', role: 'region', 'aria-label': 'Trace' }, this.text);
    place.append(
      element(
        'div',
        { class: 'bar-row' },
        this.filter,
        this.pauseButton,
        button('Clear', () => this.clear()),
        this.count,
      ),
      this.scroll,
    );
    store.addEventListener('trace', () => {
      this.dirty = true;
    });
    stage.addEventListener('selected', () => this.ask());
    connection.addEventListener('link', () => {
      this.asked = null;
    });
    document.addEventListener('visibilitychange', () => this.ask());
    setInterval(() => {
      this.ask();
      this.show();
    }, PERIOD);
  }

  /** Lines are sent only while they are looked at. */
  ask() {
    const wanted = this.isSeen() && !document.hidden && this.connection.isOpen ? this.stage.selected : null;
    if (wanted === this.asked) return;
    if (this.asked !== null) this.connection.send({ do: 'trace', camera: this.asked, on: false });
    if (wanted !== null) this.connection.send({ do: 'trace', camera: wanted, on: true });
    this.asked = wanted;
    this.dirty = true;
  }

  pause() {
    this.paused = !this.paused;
    this.pauseButton.setAttribute('aria-pressed', String(this.paused));
    this.dirty = true;
  }

  clear() {
    const { camera } = this.stage;
    camera.trace = [];
    camera.traceSkipped = 0;
    this.dirty = true;
  }

  show() {
    if (!this.dirty || this.paused || !this.isSeen()) return;
    this.dirty = false;
    const { camera } = this.stage;
    if (!camera) return;
    const wanted = this.filter.value.trim().toLowerCase();
    const lines = wanted ? camera.trace.filter((line) => line.toLowerCase().includes(wanted)) : camera.trace;
    const atEnd = this.scroll.scrollTop + this.scroll.clientHeight > this.scroll.scrollHeight - 30;
    setText(this.text, lines.length > 0 ? lines.slice(-SHOWN).join('\n') : 'No line yet.');
    if (atEnd) this.scroll.scrollTop = this.scroll.scrollHeight;
    const skipped = camera.traceSkipped > 0 ? `, ${whole(camera.traceSkipped)} left out` : '';
    setText(this.count, `${whole(lines.length)} lines${skipped}`);
  }
}
