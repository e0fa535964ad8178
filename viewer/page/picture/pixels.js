/** The pixels around the place that was pointed at last, with the values that the camera really sent: the JPEG on the page only comes close. */

import { element, setText } from '../base/dom.js';
import { prepare } from '../base/plot.js';

const SIDE = 9; // pixels across and down
const PERIOD = 100; // milliseconds between two questions

export class Pixels {
  /**
   * @param {HTMLElement} place
   * @param {import('./stage.js').Stage} stage
   * @param {import('../connection/connection.js').Connection} connection
   */
  constructor(place, stage, connection) {
    Object.assign(this, { stage, connection });
    this.point = null;
    this.waits = false;
    this.lastAsked = 0;
    this.canvas = element('canvas', { role: 'img', 'aria-label': 'Pixels around the pointer' });
    this.where = element('span', { class: 'where' });
    this.values = element('output', { class: 'values', 'aria-label': 'Values of the pixel' });
    this.figure = element(
      'figure',
      { class: 'scope loupe' },
      element('figcaption', {}, element('h2', {}, 'Pixel'), this.where),
      this.canvas,
      this.values,
    );
    place.append(this.figure);
    stage.place.addEventListener('pointermove', (event) => this.pointed(event));
    stage.place.addEventListener('pointerdown', (event) => this.pointed(event));
    stage.addEventListener('selected', () => {
      this.point = null;
    });
    stage.addEventListener('shown', () => this.ask());
    setText(this.values, 'Y –  U –  V –');
  }

  pointed(event) {
    const { picture } = this.stage;
    if (!picture?.element.contains(event.target)) return;
    const place = picture.view.placeOf(event);
    const { x, y } = picture.view.pointBelow(place.x, place.y);
    const inside = x >= 0 && y >= 0 && x < picture.canvas.width && y < picture.canvas.height;
    if (!inside) return;
    this.point = { x: Math.floor(x), y: Math.floor(y) };
    this.ask();
  }

  /** One question at a time, of the frame that is on the canvas. */
  async ask() {
    const { picture } = this.stage;
    if (!picture?.header || this.waits || this.figure.offsetParent === null) return;
    if (performance.now() - this.lastAsked < PERIOD) return;
    this.waits = true;
    this.lastAsked = performance.now();
    const area = areaAround(this.point ?? middleOf(picture.canvas), picture.canvas);
    try {
      const answer = await this.connection.ask({
        do: 'pixels',
        camera: this.stage.selected,
        number: picture.header.number,
        ...area,
      });
      this.show(area, answer);
    } catch (error) {
      setText(this.values, error.message);
    }
    this.waits = false;
  }

  show(area, answer) {
    const point = this.point ?? { x: area.x + (area.width >> 1), y: area.y + (area.height >> 1) };
    const column = Math.min(area.width - 1, Math.max(0, point.x - area.x));
    const row = Math.min(area.height - 1, Math.max(0, point.y - area.y));
    const at = row * area.width + column;
    this.draw(area, answer, column, row);
    setText(this.where, `${area.x + column}, ${area.y + row}`);
    setText(this.values, `Y ${answer.y[at]}  U ${answer.u[at]}  V ${answer.v[at]}`);
    this.values.dataset.number = answer.number;
  }

  draw(area, { y, u, v }, column, row) {
    const { context, width, height, colours } = prepare(this.canvas);
    const cell = Math.min(width, height) / SIDE;
    const left = (width - cell * area.width) / 2;
    for (let i = 0; i < y.length; i += 1) {
      context.fillStyle = colourOf(y[i], u[i], v[i]);
      const x = left + (i % area.width) * cell;
      context.fillRect(x, Math.floor(i / area.width) * cell, cell - 1, cell - 1);
    }
    context.strokeStyle = colours.accent;
    context.lineWidth = 2;
    context.strokeRect(left + column * cell - 0.5, row * cell - 0.5, cell, cell);
  }
}

/** Before anything was pointed at. */
function middleOf(canvas) {
  return { x: canvas.width >> 1, y: canvas.height >> 1 };
}

function areaAround(point, canvas) {
  const width = Math.min(SIDE, canvas.width);
  const height = Math.min(SIDE, canvas.height);
  const between = (value, most) => Math.max(0, Math.min(most, value));
  return {
    x: between(point.x - (SIDE >> 1), canvas.width - width),
    y: between(point.y - (SIDE >> 1), canvas.height - height),
    width,
    height,
  };
}

/** A YUY2 pixel, luminance 16 to 235, for the screen. */
function colourOf(y, u, v) {
  const level = 1.164 * (y - 16);
  const red = level + 1.596 * (v - 128);
  const green = level - 0.813 * (v - 128) - 0.391 * (u - 128);
  const blue = level + 2.018 * (u - 128);
  return `rgb(${Math.round(red)} ${Math.round(green)} ${Math.round(blue)})`;
}
