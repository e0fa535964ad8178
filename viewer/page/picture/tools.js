/** The row of buttons below the picture. */

import { button, drawing, element, setText } from '../base/dom.js';
import { fixed } from '../base/format.js';

export class Tools {
  /**
   * @param {HTMLElement} place
   * @param {import('./stage.js').Stage} stage
   * @param {import('../connection/store.js').Store} store
   * @param {import('./recorder.js').Recorder} recorder
   * @param {{connection: import('../connection/connection.js').Connection, announce: (text: string) => void}} page
   */
  constructor(place, stage, store, recorder, page) {
    Object.assign(this, { stage, store, page });
    this.freezeButton = button('Freeze', () => this.freeze(), {
      'aria-pressed': 'false',
      'aria-keyshortcuts': 'Space',
    });
    this.stepButton = button('Step', () => this.step(), { 'aria-keyshortcuts': '.' });
    this.snapshotButton = button('Snapshot', () => this.snapshot(), { 'aria-keyshortcuts': 'S' });
    this.scale = button('', () => this.stage.picture?.view.fit(), {
      class: 'scale',
      title: 'Fit to the window',
      'aria-keyshortcuts': '0',
    });
    this.size = element('select', { 'aria-label': 'Picture size', change: () => this.changeSize() });
    this.sideBySide = button('Side by side', () => this.arrange(), { hidden: true });
    place.append(
      element('div', { class: 'group' }, this.freezeButton, this.stepButton, this.snapshotButton),
      recorder.element,
      element(
        'div',
        { class: 'group end' },
        this.sideBySide,
        this.size,
        button('−', () => this.zoom(-1), { 'aria-label': 'Zoom out', class: 'glyph' }),
        this.scale,
        button('+', () => this.zoom(1), { 'aria-label': 'Zoom in', class: 'glyph' }),
        button('', () => this.fullScreen(), {
          class: 'glyph full-screen',
          'aria-label': 'Full screen',
          title: 'Full screen',
          'aria-keyshortcuts': 'F',
        }),
      ),
    );
    place.querySelector('.full-screen').append(corners());
    stage.addEventListener('selected', () => this.showAll());
    stage.addEventListener('view', () => this.showScale());
    stage.addEventListener('frozen', () => this.showFrozen());
    store.addEventListener('camera', () => this.showSizes());
  }

  freeze() {
    this.stage.picture?.setFrozen(!this.stage.picture.frozen);
  }

  step() {
    this.stage.picture?.step();
    const isRecording = this.stage.camera?.info.kind === 'recording';
    if (isRecording) this.page.connection.send({ do: 'step', camera: this.stage.selected });
  }

  zoom(steps) {
    this.stage.picture?.view.zoom(steps);
  }

  async snapshot() {
    const { picture } = this.stage;
    if (!picture?.header) {
      this.page.announce('There is no picture to save yet');
      return;
    }
    const { number } = picture.header;
    const blob = await new Promise((resolve) => {
      picture.canvas.toBlob(resolve, 'image/png');
    });
    save(blob, `lidcam-${picture.camera.info.unit.replace(/[^\w-]+/g, '-')}-${number}.png`);
    this.page.announce(`Frame ${number} saved as a PNG file`);
  }

  fullScreen() {
    if (document.fullscreenElement) document.exitFullscreen();
    else document.getElementById('stage').requestFullscreen();
  }

  arrange() {
    this.stage.setAlone(!this.stage.alone);
    this.showAll();
  }

  async changeSize() {
    const [width, height] = this.size.value.split('x').map(Number);
    try {
      await this.page.connection.ask({ do: 'size', camera: this.stage.selected, width, height });
    } catch (error) {
      this.page.announce(`${this.size.value}: ${error.message}`);
      this.showSizes();
    }
  }

  showAll() {
    this.sideBySide.hidden = this.store.cameras.size < 2;
    setText(this.sideBySide, this.stage.alone ? 'Side by side' : 'One camera');
    this.showFrozen();
    this.showScale();
    this.showSizes();
  }

  showFrozen() {
    const frozen = this.stage.picture?.frozen ?? false;
    this.freezeButton.setAttribute('aria-pressed', String(frozen));
    document.getElementById('stage').classList.toggle('frozen', frozen);
  }

  showScale() {
    const { picture } = this.stage;
    if (!picture) return;
    const enlargement = `${fixed(100 * picture.view.factor(), 0)} %`;
    setText(this.scale, enlargement);
    this.scale.setAttribute('aria-label', `${enlargement}: fit to the window`);
    this.scale.disabled = picture.view.isFitted;
  }

  showSizes() {
    const info = this.stage.camera?.info;
    const names = (info?.sizes ?? []).map(({ width, height }) => `${width}x${height}`);
    if (names.join() !== [...this.size.options].map((option) => option.value).join()) {
      this.size.replaceChildren(...names.map((name) => element('option', { value: name }, name.replace('x', ' × '))));
    }
    this.size.hidden = names.length === 0;
    if (info?.size) this.size.value = `${info.size.width}x${info.size.height}`;
  }
}

function corners() {
  return drawing(
    'svg',
    { viewBox: '0 0 16 16', width: 16, height: 16, 'aria-hidden': 'true' },
    drawing('path', {
      d: 'M2 6V2h4M10 2h4v4M14 10v4h-4M6 14H2v-4',
      fill: 'none',
      stroke: 'currentColor',
      'stroke-width': 1.6,
    }),
  );
}

function save(blob, name) {
  const address = URL.createObjectURL(blob);
  element('a', { href: address, download: name }).click();
  setTimeout(() => URL.revokeObjectURL(address), 10000);
}
