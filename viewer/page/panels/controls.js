/** The camera's controls, a row each. */

import { button, element, freshId, setText } from '../base/dom.js';
import { signed, words } from '../base/format.js';
import { sentenceOf } from './control_texts.js';

/** @typedef {{name: string, minimum: number, maximum: number, step: number, default: number, value: number,
 *   saved?: number, unit?: string, meaning: string, hasEffect: boolean}} ControlRow */

export class Controls {
  /**
   * @param {HTMLElement} place
   * @param {import('../picture/stage.js').Stage} stage
   * @param {import('../connection/store.js').Store} store
   * @param {import('../connection/connection.js').Connection} connection
   * @param {(text: string) => void} announce
   */
  constructor(place, stage, store, connection, announce) {
    Object.assign(this, { stage, connection, announce });
    this.rows = new Map();
    this.list = element('div', { class: 'rows' });
    this.resetAll = button('Reset all', () => this.reset(), { class: 'quiet' });
    place.append(this.list, element('p', { class: 'below' }, 'Changes are saved for the next start.', this.resetAll));
    stage.addEventListener('selected', () => this.rebuild());
    for (const kind of ['controls', 'camera']) {
      store.addEventListener(kind, (event) => event.detail === stage.selected && this.show());
    }
  }

  rebuild() {
    this.rows.clear();
    this.list.replaceChildren();
    this.show();
  }

  show() {
    const rows = this.stage.camera?.info.controls ?? [];
    for (const row of rows) this.rowFor(row).show(row);
    this.resetAll.disabled = rows.every((row) => row.value === row.default);
  }

  rowFor(row) {
    if (!this.rows.has(row.name)) {
      const control = new Control(
        row,
        (value) => this.set(row.name, value),
        () => this.reset(row.name),
      );
      this.rows.set(row.name, control);
      this.list.append(control.element);
    }
    return this.rows.get(row.name);
  }

  set(name, value) {
    return this.ask({ do: 'set', camera: this.stage.selected, name, value }, words(name));
  }

  reset(name) {
    return this.ask(
      { do: 'reset', camera: this.stage.selected, ...(name ? { name } : {}) },
      name ? words(name) : 'Reset',
    );
  }

  /** @returns {Promise<boolean>} whether the camera has taken it */
  async ask(message, subject) {
    try {
      await this.connection.ask(message);
      return true;
    } catch (error) {
      this.announce(`${subject}: ${error.message}`);
      this.show();
      return false;
    }
  }
}

/** One row: a slider, a switch or a choice, and what its values are. */
class Control {
  /** @param {ControlRow} row */
  constructor(row, send, reset) {
    this.send = send;
    this.row = row;
    this.pending = null; // value to send when the last one has been answered
    this.waits = false;
    this.isOutdated = false; // rows came while it waited
    const id = freshId('control');
    this.value = element('output', { class: 'value', for: id });
    this.resetButton = button('Reset', reset, {
      class: 'reset',
      'aria-label': `Reset ${words(row.name)} to ${row.default}`,
      title: `Back to ${row.default}`,
    });
    this.facts = element('span', {});
    this.saved = element('span', { class: 'saved' });
    this.note = element('span', { class: 'note', id: `${id}-note` }, this.facts, this.saved);
    this.meaning = element('span', { class: 'meaning', id: `${id}-meaning` }, sentenceOf(row));
    this.input = makeInput(row, id, (value) => this.changed(value));
    this.input.describe(`${id}-meaning ${id}-note`);
    this.element = element(
      'div',
      { class: `control ${this.input.kind}`, 'data-name': row.name },
      element('div', { class: 'head' }, this.input.label, this.value, this.resetButton),
      this.input.element,
      element('p', { class: 'foot' }, this.meaning, this.note),
    );
  }

  changed(value) {
    this.pending = value;
    this.showValue(value);
    if (!this.waits) this.sendPending();
  }

  /** While a slider moves, only its last place is sent when the camera has taken the one before. */
  async sendPending() {
    this.waits = true;
    this.isOutdated = false;
    let isTaken = true;
    while (this.pending !== null) {
      const value = this.pending;
      this.pending = null;
      isTaken = await this.send(value);
    }
    this.waits = false;
    if (this.isOutdated || !isTaken) this.show(this.row);
  }

  /** @param {ControlRow} row */
  show(row) {
    this.row = row;
    this.resetButton.disabled = row.value === row.default;
    this.element.classList.toggle('without-effect', row.hasEffect === false);
    setText(this.saved, isUnsaved(row) ? ` · saved ${this.input.nameOf(row.saved)}` : '');
    setText(this.facts, noteOf(row, this.input.nameOf, this.input.kind === 'slider'));
    this.input.mark(row);
    this.isOutdated = this.waits; // what is being moved isn't moved back below the hand
    if (this.waits) return;
    this.input.show(row.value);
    this.showValue(row.value);
  }

  showValue(value) {
    setText(this.value, this.input.nameOf(value));
  }
}

/** @param {ControlRow} row @param {(value: number) => string} nameOf @param {boolean} hasRange */
function noteOf(row, nameOf, hasRange) {
  if (row.hasEffect === false) return 'no effect with this sensor';
  const range = hasRange ? `${nameOf(row.minimum)} to ${nameOf(row.maximum)} · ` : '';
  return `${range}default ${nameOf(row.default)}`;
}

function isUnsaved(row) {
  return row.saved !== undefined && row.saved !== null && row.saved !== row.value;
}

function makeInput(row, id, changed) {
  if (row.minimum === 0 && row.maximum === 1) return switchInput(row, id, changed);
  const choices = namedValues(row);
  return choices ? choiceInput(row, id, choices, changed) : sliderInput(row, id, changed);
}

/** "mains light: 0 none, 1 50 Hz, 2 60 Hz": a name for each value, or null. */
function namedValues(row) {
  const names = new Map(
    [...row.meaning.matchAll(/(?:^|[,:] ?)(\d+) ([^,]+)/g)].map(([, value, name]) => [Number(value), name]),
  );
  const count = (row.maximum - row.minimum) / row.step + 1;
  return names.size === count && count <= 4 ? names : null;
}

function labelFor(row, id) {
  return element('label', { for: id, class: 'name' }, words(row.name));
}

function sliderInput(row, id, changed) {
  const input = element('input', {
    type: 'range',
    id,
    min: row.minimum,
    max: row.maximum,
    step: row.step,
    input: () => changed(input.valueAsNumber),
  });
  const marks = { default: element('i', { class: 'mark default' }), saved: element('i', { class: 'mark saved' }) };
  const part = (value) => (value - row.minimum) / (row.maximum - row.minimum);
  return {
    kind: 'slider',
    label: labelFor(row, id),
    element: element('div', { class: 'track' }, marks.default, marks.saved, input),
    describe: (ids) => input.setAttribute('aria-describedby', ids),
    nameOf: signed,
    show(value) {
      input.value = value;
      input.style.setProperty('--part', part(value));
    },
    mark(now) {
      input.style.setProperty('--part', part(input.valueAsNumber));
      marks.default.style.setProperty('--part', part(now.default));
      marks.saved.hidden = !isUnsaved(now);
      marks.saved.style.setProperty('--part', part(now.saved ?? 0));
    },
  };
}

function switchInput(row, id, changed) {
  const input = element('input', {
    type: 'checkbox',
    role: 'switch',
    id,
    change: () => changed(input.checked ? 1 : 0),
  });
  return {
    kind: 'switch',
    label: labelFor(row, id),
    element: input,
    describe: (ids) => input.setAttribute('aria-describedby', ids),
    nameOf: (value) => (value ? 'on' : 'off'),
    show: (value) => {
      input.checked = value !== 0;
    },
    mark: () => {},
  };
}

function choiceInput(row, id, choices, changed) {
  const radios = [...choices].map(([value, name], i) => {
    const input = element('input', {
      type: 'radio',
      name: id,
      id: i === 0 ? id : `${id}-${value}`,
      value,
      change: () => changed(value),
    });
    return { value, input, element: element('label', {}, input, element('span', {}, name)) };
  });
  const label = element('span', { class: 'name', id: `${id}-name` }, words(row.name));
  const group = element(
    'div',
    { class: 'choice', role: 'radiogroup', 'aria-labelledby': `${id}-name` },
    ...radios.map((radio) => radio.element),
  );
  return {
    kind: 'choices',
    label,
    element: group,
    describe: (ids) => group.setAttribute('aria-describedby', ids),
    nameOf: (value) => choices.get(value) ?? `${value}`,
    show: (value) =>
      radios.forEach((radio) => {
        radio.input.checked = radio.value === value;
      }),
    mark: () => {},
  };
}
