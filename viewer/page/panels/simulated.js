/** What only a simulated camera has: its light, its scene, its plug, and faults on demand. */

import { button, element, freshId, setText } from '../base/dom.js';
import { light } from '../base/format.js';

const LARGEST_SCENE = 16 * 1024 * 1024;

export class SimulatedCamera {
  /**
   * @param {HTMLElement} place
   * @param {import('../picture/stage.js').Stage} stage
   * @param {import('../connection/store.js').Store} store
   * @param {import('../connection/connection.js').Connection} connection
   * @param {(text: string) => void} announce
   */
  constructor(place, stage, store, connection, announce) {
    Object.assign(this, { place, stage, connection, announce });
    this.shape = '';
    stage.addEventListener('selected', () => this.show());
    store.addEventListener('camera', (event) => event.detail === stage.selected && this.show());
  }

  show() {
    const info = this.stage.camera?.info;
    const panel = info?.kind === 'simulated' ? (info.panel ?? {}) : null;
    const shape = panel ? `${info.camera} ${Object.keys(panel).join()} ${(panel.faults ?? []).length}` : '';
    if (shape !== this.shape) this.rebuild(panel);
    this.shape = shape;
    if (panel) this.refresh.forEach((update) => update(panel, info));
  }

  rebuild(panel) {
    this.refresh = [];
    this.place.replaceChildren();
    if (!panel) return;
    if (panel.light) this.place.append(this.lightRow(panel.light));
    if (panel.mains) this.place.append(this.mainsRow(panel.mains));
    if (panel.noise) this.place.append(this.noiseRow(panel.noise));
    if (panel.scene) this.place.append(this.sceneRow());
    if (panel.unplug) this.place.append(this.plugRow());
    if (panel.faults) this.place.append(this.faultRow(panel.faults));
  }

  /** Logarithmic, as the eye is: a decade of light has the same length everywhere. */
  lightRow({ minimum, maximum }) {
    const id = freshId('light');
    const value = element('output', { class: 'value', for: id });
    const span = Math.log(maximum / minimum);
    const luxAt = (part) => minimum * Math.exp(part * span);
    const input = element('input', {
      type: 'range',
      id,
      min: 0,
      max: 1,
      step: 0.005,
      input: () => {
        this.latest('light', Number(luxAt(input.valueAsNumber).toPrecision(3)));
        showLight(luxAt(input.valueAsNumber));
      },
    });
    const showLight = (lux) => {
      setText(value, light(lux));
      input.setAttribute('aria-valuetext', light(lux));
      input.style.setProperty('--part', input.value);
    };
    this.refresh.push(({ light: now }) => {
      if (this.sending.has('light')) return;
      input.value = Math.log(now.value / minimum) / span;
      showLight(now.value);
    });
    const scale = [1, 10, 100, 1000, 10000].filter((lux) => lux > minimum && lux < maximum);
    const ticks = element(
      'div',
      { class: 'ticks', 'aria-hidden': 'true' },
      ...scale.map((lux) => {
        const tick = element('span', {}, lux >= 1000 ? `${lux / 1000}k` : `${lux}`);
        tick.style.setProperty('--part', Math.log(lux / minimum) / span);
        return tick;
      }),
    );
    return element(
      'div',
      { class: 'control slider light' },
      element('div', { class: 'head' }, element('label', { for: id, class: 'name' }, 'Light on the scene'), value),
      element('div', { class: 'track' }, input),
      ticks,
    );
  }

  mainsRow({ values }) {
    const choices = values.map((rate) => [rate, rate === 0 ? 'daylight' : `${rate} Hz`]);
    const choice = segmented('Lamps on the mains', choices, (mains) => this.simulate({ mains }));
    this.refresh.push(({ mains }) => choice.show(mains.value));
    return row('Lamps on the mains', choice.element, 'A Flicker setting that doesn’t fit shows as moving bands.');
  }

  noiseRow({ minimum, maximum }) {
    const id = freshId('noise');
    const value = element('output', { class: 'value', for: id });
    const input = element('input', {
      type: 'range',
      id,
      min: minimum,
      max: maximum,
      step: (maximum - minimum) / 20,
      input: () => {
        this.latest('noise', input.valueAsNumber);
        showNoise(input.valueAsNumber);
      },
    });
    const showNoise = (noise) => {
      setText(value, `${noise} ×`);
      input.setAttribute('aria-valuetext', `${noise} times that of the sensor`);
      input.style.setProperty('--part', (noise - minimum) / (maximum - minimum));
    };
    this.refresh.push(({ noise }) => {
      if (this.sending.has('noise')) return;
      input.value = noise.value;
      showNoise(noise.value);
    });
    return element(
      'div',
      { class: 'control slider' },
      element('div', { class: 'head' }, element('label', { for: id, class: 'name' }, 'Noise of the sensor'), value),
      element('div', { class: 'track' }, input),
    );
  }

  sceneRow() {
    const file = element('input', {
      type: 'file',
      class: 'unseen',
      accept: '.png,.jpg,.jpeg,.y4m,image/png,image/jpeg',
      'aria-label': 'Picture file for the scene',
      change: () => {
        this.upload(file.files[0]);
        file.value = '';
      },
    });
    const drop = element(
      'div',
      {
        class: 'drop',
        dragover: (event) => {
          event.preventDefault();
          drop.classList.add('over');
        },
        dragleave: () => drop.classList.remove('over'),
        drop: (event) => {
          event.preventDefault();
          drop.classList.remove('over');
          this.upload(event.dataTransfer.files[0]);
        },
      },
      element('span', {}, 'Drop a picture here'),
      element(
        'span',
        { class: 'buttons' },
        file,
        button('Choose…', () => file.click()),
        button('Test card', () => this.simulate({ scene: null })),
      ),
    );
    return row('Scene', drop, 'PNG, JPEG or Y4M, up to 16 MiB.');
  }

  plugRow() {
    const plug = button(
      'Unplug',
      () => this.simulate(plug.dataset.plugged === 'true' ? { unplug: true } : { plug: true }),
      { class: 'plug' },
    );
    this.refresh.push((_, info) => {
      const plugged = info.state !== 'unplugged';
      plug.dataset.plugged = plugged;
      setText(plug, plugged ? 'Unplug' : 'Plug in');
    });
    return row('USB plug', plug, 'In mid-stream, as a user would.');
  }

  faultRow(faults) {
    const script = element('input', {
      type: 'text',
      'aria-label': 'Script of faults',
      spellcheck: 'false',
      placeholder: 'at 0s lose 40; at 1s error 3',
    });
    const form = element(
      'form',
      {
        class: 'script',
        submit: (event) => {
          event.preventDefault();
          this.simulate({ faults: script.value });
        },
      },
      script,
      element('button', {}, 'Begin'),
    );
    const ready = faults.map((fault) =>
      button(fault.name, () => this.simulate({ faults: fault.script }), { title: fault.script }),
    );
    const end = button('End all', () => this.simulate({ faults: '' }), { class: 'quiet' });
    return row(
      'Faults on the bus',
      element('div', { class: 'faults' }, element('div', { class: 'buttons' }, ...ready, end), form),
      'They begin when pressed; times count from there.',
    );
  }

  /** While a slider moves, only its last place is sent when the one before was answered. */
  async latest(name, value) {
    const running = this.sending.has(name);
    this.sending.set(name, value);
    if (running) return;
    let sent;
    do {
      sent = this.sending.get(name);
      await this.simulate({ [name]: sent });
    } while (this.sending.get(name) !== sent);
    this.sending.delete(name);
  }

  sending = new Map();

  refresh = [];

  async simulate(what) {
    try {
      await this.connection.ask({ do: 'simulate', camera: this.stage.selected, ...what });
    } catch (error) {
      this.announce(error.message);
    }
  }

  async upload(file) {
    if (!file) return;
    if (file.size > LARGEST_SCENE) {
      this.announce(`${file.name} is larger than 16 MiB`);
      return;
    }
    try {
      const answer = await fetch(`/scene?camera=${this.stage.selected}`, { method: 'POST', body: file });
      if (!answer.ok) throw new Error((await answer.text()).trim() || answer.statusText);
      this.announce(`The scene is ${file.name}`);
    } catch (error) {
      this.announce(`${file.name}: ${error.message}`);
    }
  }
}

function row(name, content, meaning) {
  return element(
    'div',
    { class: 'control' },
    element('div', { class: 'head' }, element('span', { class: 'name' }, name)),
    content,
    element('p', { class: 'foot' }, element('span', { class: 'meaning' }, meaning)),
  );
}

function segmented(label, choices, changed) {
  const name = freshId('choice');
  const radios = choices.map(([value, text]) => {
    const input = element('input', { type: 'radio', name, value, change: () => changed(value) });
    return { value, input, element: element('label', {}, input, element('span', {}, text)) };
  });
  return {
    element: element(
      'div',
      { class: 'choice', role: 'radiogroup', 'aria-label': label },
      ...radios.map((radio) => radio.element),
    ),
    show: (value) =>
      radios.forEach((radio) => {
        radio.input.checked = radio.value === value;
      }),
  };
}
