/** The registers that the driver has written or read, by name, and those that changed lately. */

import { button, element, setText } from '../base/dom.js';
import { age, hex } from '../base/format.js';

const LATELY = 10; // seconds
const PERIOD = 500; // milliseconds

export class RegistersPanel {
  /**
   * @param {HTMLElement} place
   * @param {import('../picture/stage.js').Stage} stage
   * @param {import('../connection/store.js').Store} store
   * @param {import('../connection/connection.js').Connection} connection
   * @param {() => boolean} isSeen
   */
  constructor(place, stage, store, connection, isSeen) {
    Object.assign(this, { stage, connection, isSeen });
    this.rows = new Map();
    this.filter = element('input', {
      type: 'search',
      placeholder: 'name or address',
      'aria-label': 'Filter of registers',
      input: () => this.show(),
    });
    this.lately = element('input', { type: 'checkbox', change: () => this.show() });
    this.count = element('span', { class: 'count' });
    this.body = element('div', { class: 'cells', role: 'list' });
    this.form = this.makeForm();
    place.append(
      element(
        'div',
        { class: 'bar-row' },
        this.filter,
        element('label', { class: 'check' }, this.lately, 'changed lately'),
        this.count,
        this.form,
      ),
      element('div', { class: 'scroll', tabindex: '0', role: 'region', 'aria-label': 'Registers' }, this.body),
    );
    stage.addEventListener('selected', () => this.rebuild());
    setInterval(() => this.isSeen() && this.show(), PERIOD);
  }

  makeForm() {
    this.chip = element(
      'select',
      { 'aria-label': 'Chip' },
      element('option', {}, 'bridge'),
      element('option', {}, 'sensor'),
    );
    this.address = element('input', {
      type: 'text',
      class: 'hex',
      placeholder: 'FF0A',
      maxlength: 4,
      'aria-label': 'Address, hexadecimal',
      spellcheck: 'false',
    });
    this.value = element('input', {
      type: 'text',
      class: 'hex',
      placeholder: 'value',
      maxlength: 4,
      'aria-label': 'Value, hexadecimal',
      spellcheck: 'false',
    });
    this.result = element('output', { class: 'result' });
    return element(
      'form',
      {
        class: 'access',
        submit: (event) => {
          event.preventDefault();
          this.access(false);
        },
      },
      this.chip,
      this.address,
      this.value,
      element('button', {}, 'Read'),
      button('Write', () => this.access(true)),
      this.result,
    );
  }

  async access(writes) {
    const address = parseInt(this.address.value, 16);
    const value = parseInt(this.value.value, 16);
    if (Number.isNaN(address) || (writes && Number.isNaN(value))) {
      setText(this.result, writes ? 'needs an address and a value' : 'needs an address');
      return;
    }
    const message = {
      do: 'register',
      camera: this.stage.selected,
      chip: this.chip.value,
      address: address < 0x100 ? 0xff00 + address : address,
    };
    try {
      const answer = await this.connection.ask(writes ? { ...message, value } : message);
      if (answer.value !== undefined) this.value.value = hex(answer.value, 2);
      setText(this.result, writes ? 'written' : 'read');
    } catch (error) {
      setText(this.result, error.message);
    }
  }

  rebuild() {
    this.rows.clear();
    this.body.replaceChildren();
    this.show();
  }

  show() {
    const { camera } = this.stage;
    if (!camera) return;
    if (camera.registers.size !== this.rows.size) this.makeRows(camera.registers);
    const now = performance.now() / 1000;
    const wanted = this.filter.value.trim().toLowerCase();
    let seen = 0;
    for (const [key, register] of camera.registers) {
      const isWanted = this.wants(register, wanted, now);
      this.rows.get(key).show(register, now, isWanted);
      seen += isWanted ? 1 : 0;
    }
    setText(this.count, `${seen} of ${camera.registers.size}`);
  }

  wants(register, wanted, now) {
    if (this.lately.checked && now - register.changedAt > LATELY) return false;
    return (
      wanted === '' || `${register.chip} ${hex(register.address, 4)} ${register.name}`.toLowerCase().includes(wanted)
    );
  }

  makeRows(registers) {
    const sorted = [...registers].sort(([, a], [, b]) => a.chip.localeCompare(b.chip) || a.address - b.address);
    this.rows = new Map(sorted.map(([key, register]) => [key, new Row(register, () => this.choose(register))]));
    this.body.replaceChildren(...[...this.rows.values()].map((row) => row.element));
  }

  /** Puts a register into the form, to be read or written. */
  choose(register) {
    this.chip.value = register.chip;
    this.address.value = hex(register.address, 4);
    this.value.value = hex(register.value, 2);
    this.value.focus();
  }
}

class Row {
  constructor(register, choose) {
    this.value = element('b', {});
    this.changed = element('span', { class: 'changed' });
    this.element = element(
      'div',
      { role: 'listitem', class: 'cell' },
      button('', choose, { class: 'register', title: 'to read or write it' }),
    );
    this.element.firstChild.append(
      element('span', { class: 'chip' }, register.chip),
      element('code', {}, hex(register.address, 4)),
      element('span', { class: 'name' }, register.name || '·'),
      this.value,
      this.changed,
    );
  }

  show(register, now, isWanted) {
    this.element.hidden = !isWanted;
    if (!isWanted) return;
    const since = now - register.changedAt;
    setText(this.value, hex(register.value, register.value > 0xff ? 4 : 2));
    this.element.classList.toggle('fresh', since < 2);
    this.element.classList.toggle('lately', since < LATELY);
    setText(this.changed, since < LATELY && register.before !== undefined ? `was ${hex(register.before, 2)}` : '');
  }
}
