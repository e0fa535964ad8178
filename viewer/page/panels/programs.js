/** Addresses of the picture for other programs. */

import { button, element } from '../base/dom.js';

export class ForOtherPrograms {
  /**
   * @param {HTMLElement} place
   * @param {import('../picture/stage.js').Stage} stage
   * @param {import('../connection/store.js').Store} store
   * @param {(text: string) => void} announce
   */
  constructor(place, stage, store, announce) {
    Object.assign(this, { place, stage, store, announce });
    stage.addEventListener('selected', () => this.show());
  }

  show() {
    const token = this.store.hello?.snapshotToken;
    if (!token) return;
    const query = `camera=${this.stage.selected}&token=${token}`;
    const still = `${location.origin}/snapshot.jpg?${query}`;
    const stream = `${location.origin}/stream.mjpg?${query}`;
    this.place.replaceChildren(
      element(
        'p',
        { class: 'lead' },
        'Stable addresses of this camera’s picture. Their token opens these two and nothing else.',
      ),
      this.entry('One picture', still, 'For scripts, home automation, a time-lapse.'),
      this.entry('A stream of JPEG pictures', stream, 'For an <img>, a media player, OpenCV.'),
      this.entry('To watch it', `ffplay '${stream}'`),
      this.entry('To save a picture', `curl -o picture.jpg '${still}'`),
    );
  }

  entry(name, text, meaning = '') {
    return element(
      'div',
      { class: 'address' },
      element(
        'div',
        { class: 'head' },
        element('span', { class: 'name' }, name),
        button('Copy', () => this.copy(text), { class: 'quiet', 'aria-label': `Copy: ${name}` }),
      ),
      element('code', {}, text),
      meaning ? element('p', { class: 'meaning' }, meaning) : null,
    );
  }

  /** Only a secure context has a clipboard; elsewhere the text can be selected. */
  async copy(text) {
    try {
      await navigator.clipboard.writeText(text);
      this.announce('Copied');
    } catch {
      this.announce('This browser allows no copying here: select the text');
    }
  }
}
