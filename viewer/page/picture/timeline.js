/** The time line of a recorded camera. */

import { button, element, setText } from '../base/dom.js';
import { clockTime } from '../base/format.js';

export class Timeline {
  /**
   * @param {HTMLElement} place
   * @param {import('./stage.js').Stage} stage
   * @param {import('../connection/store.js').Store} store
   * @param {import('../connection/connection.js').Connection} connection
   */
  constructor(place, stage, store, connection) {
    Object.assign(this, { place, stage, connection });
    this.playing = true;
    this.seeking = null;
    this.waits = false;
    this.playButton = button('Pause', () => this.play(!this.playing));
    this.slider = element('input', {
      type: 'range',
      min: 0,
      step: 0.01,
      value: 0,
      'aria-label': 'Time in the capture',
      input: () => this.seek(this.slider.valueAsNumber),
    });
    this.time = element('output', { class: 'time' });
    place.append(this.playButton, element('div', { class: 'track' }, this.slider), this.time);
    stage.addEventListener('selected', () => this.show(true));
    store.addEventListener('position', (event) => event.detail === stage.selected && this.show());
    store.addEventListener('camera', (event) => event.detail === stage.selected && this.show(true));
  }

  async play(on) {
    await this.connection.ask({ do: 'play', camera: this.stage.selected, on }).catch(() => {});
    this.showPlaying(on);
  }

  showPlaying(on) {
    this.playing = on;
    setText(this.playButton, on ? 'Pause' : 'Play');
  }

  /** Scrubs: the last place of a moving slider, when the one before was answered. */
  async seek(seconds) {
    this.seeking = seconds;
    this.showTime(seconds);
    if (this.waits) return;
    this.waits = true;
    while (this.seeking !== null) {
      const to = this.seeking;
      this.seeking = null;
      await this.connection.ask({ do: 'seek', camera: this.stage.selected, seconds: to }).catch(() => {});
    }
    this.waits = false;
  }

  /** @param {boolean} [whole] also whether it plays, which a position doesn't tell */
  show(whole = false) {
    const camera = this.stage.camera;
    const { seconds, playing } = camera?.info.kind === 'recording' ? (camera.info.panel ?? {}) : {};
    this.place.hidden = seconds === undefined;
    if (seconds === undefined) return;
    this.slider.max = seconds;
    if (whole && playing !== undefined) this.showPlaying(playing);
    if (this.waits || this.slider.matches(':active')) return;
    this.slider.value = camera.position;
    this.showTime(camera.position);
  }

  showTime(seconds) {
    this.slider.style.setProperty('--part', seconds / Number(this.slider.max));
    this.slider.setAttribute('aria-valuetext', clockTime(seconds));
    setText(this.time, `${clockTime(seconds)} / ${clockTime(Number(this.slider.max))}`);
  }
}
