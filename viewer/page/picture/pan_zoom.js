/** A canvas in a window of the page: fitted to it, or enlarged and moved. */

import { element } from '../base/dom.js';

const MOST = 48; // screen pixels for one of the picture
const STEP = 1.25;
const PIXELS_FROM = 2; // enlarged more than this, the pixels are shown as squares

export class PanZoom {
  /** @param {HTMLCanvasElement} canvas @param {() => void} changed after each change of scale or place */
  constructor(canvas, changed) {
    this.canvas = canvas;
    this.changed = changed;
    this.scale = 0; // 0: fitted
    this.centre = { x: 0.5, y: 0.5 };
    this.element = element('div', { class: 'window' }, canvas);
    this.element.addEventListener('wheel', (event) => this.wheel(event), { passive: false });
    this.element.addEventListener('dblclick', (event) => this.toggle(event));
    this.element.addEventListener('pointerdown', (event) => this.grab(event));
    new ResizeObserver(() => this.refit()).observe(this.element);
  }

  get isFitted() {
    return this.scale === 0;
  }

  /** Screen pixels for one of the picture. */
  factor() {
    return this.scale || this.fitted();
  }

  fitted() {
    const { clientWidth, clientHeight } = this.element;
    return Math.min(clientWidth / this.canvas.width, clientHeight / this.canvas.height) || 1;
  }

  fit() {
    this.scale = 0;
    this.centre = { x: 0.5, y: 0.5 };
    this.refit();
  }

  /** @param {number} steps how often to enlarge; negative to reduce */
  zoom(steps, place = { x: this.element.clientWidth / 2, y: this.element.clientHeight / 2 }) {
    this.scaleTo(this.factor() * STEP ** steps, place);
  }

  /** Enlarges so that the picture's point below `place` (in the window) stays there. */
  scaleTo(scale, place) {
    const point = this.pointBelow(place.x, place.y);
    if (scale <= this.fitted()) {
      this.fit();
      return;
    }
    this.scale = Math.min(MOST, scale);
    this.centre.x =
      point.x / this.canvas.width - (place.x - this.element.clientWidth / 2) / this.scale / this.canvas.width;
    this.centre.y =
      point.y / this.canvas.height - (place.y - this.element.clientHeight / 2) / this.scale / this.canvas.height;
    this.refit();
  }

  /** Moves the window over the picture, by screen pixels. */
  move(x, y) {
    if (this.isFitted) return;
    this.centre.x += x / this.scale / this.canvas.width;
    this.centre.y += y / this.scale / this.canvas.height;
    this.refit();
  }

  /** The point of the picture below a point of the window; it may lie outside of the picture. */
  pointBelow(x, y) {
    const factor = this.factor();
    return {
      x: this.centre.x * this.canvas.width + (x - this.element.clientWidth / 2) / factor,
      y: this.centre.y * this.canvas.height + (y - this.element.clientHeight / 2) / factor,
    };
  }

  refit() {
    const factor = this.factor();
    this.keepInside(factor);
    const width = this.canvas.width * factor;
    const height = this.canvas.height * factor;
    const left = this.element.clientWidth / 2 - this.centre.x * width;
    const top = this.element.clientHeight / 2 - this.centre.y * height;
    Object.assign(this.canvas.style, {
      width: `${width}px`,
      height: `${height}px`,
      transform: `translate(${left}px, ${top}px)`,
    });
    this.canvas.classList.toggle('pixels', factor > PIXELS_FROM);
    this.element.classList.toggle('enlarged', !this.isFitted);
    this.changed();
  }

  /** No more empty space at a side than a fitted picture has. */
  keepInside(factor) {
    const half = Math.min(0.5, this.fitted() / factor / 2);
    for (const axis of ['x', 'y']) this.centre[axis] = Math.min(1 - half, Math.max(half, this.centre[axis]));
  }

  wheel(event) {
    event.preventDefault();
    this.zoom(-Math.sign(event.deltaY), this.placeOf(event));
  }

  toggle(event) {
    if (this.isFitted) this.scaleTo(Math.max(1, 4 * this.fitted()), this.placeOf(event));
    else this.fit();
  }

  placeOf(event) {
    const bounds = this.element.getBoundingClientRect();
    return { x: event.clientX - bounds.left, y: event.clientY - bounds.top };
  }

  grab(event) {
    if (this.isFitted || event.button !== 0) return;
    this.element.setPointerCapture(event.pointerId);
    const drag = (moved) => this.move(-moved.movementX, -moved.movementY);
    const release = () => {
      this.element.removeEventListener('pointermove', drag);
      this.element.classList.remove('grabbed');
    };
    this.element.classList.add('grabbed');
    this.element.addEventListener('pointermove', drag);
    this.element.addEventListener('pointerup', release, { once: true });
    this.element.addEventListener('pointercancel', release, { once: true });
  }
}
