/** The pictures of all cameras, and which of them the panels belong to. */

import { element, setText } from '../base/dom.js';
import { Picture, describe } from './picture.js';

const STATES = {
  off: ['The camera is off', 'It is switched on as soon as the page looks at it.'],
  opening: ['Starting the camera', 'The first picture takes a moment.'],
  unplugged: ['Unplugged', 'The picture continues when the camera is plugged in again.'],
  failed: ['The camera failed', 'It is opened again in a moment.'],
};

/** Events: `selected` (another camera's panels are to be shown), `shown`, `view`, `frozen` of the selected picture. */
export class Stage extends EventTarget {
  /**
   * @param {HTMLElement} place
   * @param {import('../connection/store.js').Store} store
   * @param {import('../connection/connection.js').Connection} connection
   * @param {import('../connection/server_clock.js').ServerClock} clock
   */
  constructor(place, store, connection, clock) {
    super();
    Object.assign(this, { place, store, connection, clock });
    /** @type {Map<number, {picture: Picture, tile: HTMLElement, message: HTMLElement}>} */
    this.tiles = new Map();
    this.selected = 0;
    this.alone = false;
    store.addEventListener('hello', () => this.rebuild());
    store.addEventListener('camera', (event) => this.showState(event.detail));
    connection.addEventListener('frame', (event) => this.take(event.detail));
    connection.addEventListener('link', (event) => this.linkChanged(event.detail.state));
    document.addEventListener('visibilitychange', () => this.visibilityChanged());
  }

  /** The selected picture. @returns {Picture|undefined} */
  get picture() {
    return this.tiles.get(this.selected)?.picture;
  }

  get camera() {
    return this.store.cameras.get(this.selected);
  }

  select(number) {
    if (!this.tiles.has(number)) return;
    this.selected = number;
    this.arrange();
    this.dispatchEvent(new CustomEvent('selected'));
  }

  /** Shows the selected camera alone, or all side by side. */
  setAlone(alone) {
    this.alone = alone;
    this.arrange();
    this.watch();
  }

  rebuild() {
    for (const number of this.tiles.keys()) if (!this.store.cameras.has(number)) this.remove(number);
    for (const camera of this.store.cameras.values()) this.add(camera);
    if (!this.tiles.has(this.selected)) this.selected = this.tiles.keys().next().value ?? 0;
    this.arrange();
    this.watch();
    this.dispatchEvent(new CustomEvent('selected'));
  }

  add(camera) {
    if (!this.tiles.has(camera.number)) this.tiles.set(camera.number, this.makeTile(camera));
    this.tiles.get(camera.number).picture.camera = camera;
    this.showState(camera.number);
  }

  remove(number) {
    this.tiles.get(number).tile.remove();
    this.tiles.delete(number);
  }

  makeTile(camera) {
    const picture = new Picture(camera, this.connection, this.clock);
    for (const name of ['shown', 'view', 'frozen']) {
      picture.addEventListener(name, (event) => this.forward(name, camera.number, event.detail));
    }
    picture.element.tabIndex = 0;
    picture.element.setAttribute('role', 'group');
    const message = element('div', { class: 'message' });
    const caption = element('p', { class: 'caption' }, camera.info.unit);
    const tile = element(
      'div',
      { class: 'tile', pointerdown: () => this.choose(camera.number), focusin: () => this.choose(camera.number) },
      picture.element,
      message,
      caption,
    );
    this.place.append(tile);
    return { picture, tile, message, caption };
  }

  choose(number) {
    if (number !== this.selected) this.select(number);
  }

  forward(name, number, detail) {
    if (name === 'shown') this.hideMessage(number);
    if (number === this.selected) this.dispatchEvent(new CustomEvent(name, { detail }));
  }

  arrange() {
    const several = this.tiles.size > 1 && !this.alone;
    this.place.classList.toggle('several', several);
    this.place.dataset.count = several ? this.tiles.size : 1;
    for (const [number, { tile }] of this.tiles) {
      tile.hidden = !several && number !== this.selected;
      tile.classList.toggle('selected', number === this.selected);
    }
  }

  visible() {
    if (document.hidden) return [];
    return [...this.tiles.keys()].filter((number) => !this.tiles.get(number).tile.hidden);
  }

  /** Tells the server whose frames are wanted: those that are seen. */
  watch() {
    this.connection.send({ do: 'watch', cameras: this.visible() });
  }

  visibilityChanged() {
    if (document.hidden) for (const { picture } of this.tiles.values()) if (!picture.frozen) picture.hide();
    this.watch();
  }

  linkChanged(state) {
    if (state === 'lost' || state === 'ended') for (const { picture } of this.tiles.values()) picture.forgetWaiting();
    this.place.classList.toggle('stale', state !== 'open');
  }

  take(frame) {
    this.tiles.get(frame.header.camera)?.picture.take(frame);
  }

  showState(number) {
    const { picture, tile, message, caption } = this.tiles.get(number) ?? {};
    if (!picture) return;
    const { info } = picture.camera;
    describe(picture);
    picture.element.setAttribute('aria-label', `Picture of ${info.unit}: arrow keys move it when it is enlarged`);
    setText(caption, `${info.unit}  ${info.sensor ?? ''}`);
    tile.dataset.state = info.state;
    const [title, text] = STATES[info.state] ?? ['Waiting for the first picture', ''];
    const waits = info.state !== 'on' || !picture.header;
    message.hidden = !waits;
    message.replaceChildren(
      element('strong', {}, title),
      element('span', {}, (info.state === 'failed' && info.error) || text),
    );
  }

  hideMessage(number) {
    const { picture, message } = this.tiles.get(number);
    if (picture.camera.info.state === 'on' && !message.hidden) message.hidden = true;
  }
}
