/** Recording what the camera sends, into a file that the program writes. */

import { button, element, setText } from '../base/dom.js';
import { clockTime } from '../base/format.js';

export class Recorder {
  /**
   * @param {import('./stage.js').Stage} stage
   * @param {import('../connection/store.js').Store} store
   * @param {import('../connection/connection.js').Connection} connection
   * @param {(text: string) => void} announce
   */
  constructor(stage, store, connection, announce) {
    Object.assign(this, { stage, store, connection, announce });
    this.running = new Map(); // camera to {recording, begun}
    this.finished = new Map(); // camera to {href, frames}
    this.form = element('select', { 'aria-label': 'File format of recordings' });
    this.recordButton = button('Record', () => this.toggle(), {
      class: 'record',
      'aria-pressed': 'false',
      'aria-keyshortcuts': 'R',
    });
    this.result = element('span', { class: 'recorded' });
    this.element = element('div', { class: 'group' }, this.recordButton, this.form, this.result);
    store.addEventListener('hello', () => this.showForms());
    stage.addEventListener('selected', () => this.show());
    connection.addEventListener('link', (event) => this.linkChanged(event.detail.state));
    connection.addEventListener('message', (event) => this.ended(event.detail.recordingEnded));
    setInterval(() => this.running.size > 0 && this.show(), 100);
  }

  toggle() {
    const camera = this.stage.selected;
    return this.running.has(camera) ? this.stop(camera) : this.begin(camera);
  }

  async begin(camera) {
    try {
      const answer = await this.connection.ask({ do: 'record', camera, form: this.form.value });
      this.running.set(camera, { recording: answer.recording, begun: performance.now() });
      this.finished.delete(camera);
      this.announce('Recording');
    } catch (error) {
      this.announce(`No recording: ${error.message}`);
    }
    this.show();
  }

  async stop(camera) {
    const { recording } = this.running.get(camera);
    try {
      const answer = await this.connection.ask({ do: 'stop', camera, recording });
      this.finish(camera, answer);
    } catch (error) {
      this.announce(`The recording failed: ${error.message}`);
    }
    this.running.delete(camera);
    this.show();
  }

  finish(camera, { frames, lost, href, failure }) {
    this.finished.set(camera, { frames, href });
    const until = failure ? `, then: ${failure}` : '';
    this.announce(`Recorded ${frames} frames${lost > 0 ? `; ${lost} were lost` : ''}${until}`);
  }

  /** A recording has ended that nobody stopped, such as on a full disk. */
  ended(recording) {
    if (!recording) return;
    this.running.delete(recording.camera);
    if (recording.error) this.announce(`The recording failed: ${recording.error}`);
    else this.finish(recording.camera, recording);
    this.show();
  }

  /** The program ends the recordings of a page that it lost. */
  linkChanged(state) {
    if (state !== 'lost' || this.running.size === 0) return;
    this.running.clear();
    this.announce('The recording ended with the connection');
    this.show();
  }

  showForms() {
    const forms = this.store.hello.forms ?? [];
    this.form.replaceChildren(...forms.map((form) => element('option', { value: form }, form.toUpperCase())));
    this.element.hidden = forms.length === 0;
  }

  show() {
    const running = this.running.get(this.stage.selected);
    const finished = this.finished.get(this.stage.selected);
    this.recordButton.setAttribute('aria-pressed', String(Boolean(running)));
    setText(this.recordButton, running ? 'Stop' : 'Record');
    this.form.disabled = Boolean(running);
    if (running) this.showTime(running);
    else this.showResult(finished);
  }

  showTime(running) {
    if (!this.time?.isConnected) {
      this.time = element('span', { class: 'time', role: 'timer' });
      this.result.replaceChildren(this.time);
    }
    setText(this.time, clockTime((performance.now() - running.begun) / 1000));
  }

  showResult(finished) {
    const link = finished && element('a', { href: finished.href, download: true }, `Save ${finished.frames} frames`);
    this.result.replaceChildren(...(link ? [link] : []));
  }
}
