import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';

import { calmSample, difference, firstPicture, launch, openPage, pictureSample, until } from './support/browser.js';
import { Program } from './support/program.js';
import { Trace } from './support/trace.js';

let program;
let browser;
let opened;
let trace;

before(async () => {
  program = await Program.start(['sim:1af0:0511,seed=812']);
  browser = await launch();
  opened = await openPage(browser, program);
  await firstPicture(opened.page);
  // What a control does is told from the picture: nothing else may change it, and the loop may come to rest anywhere
  // within its dead band.
  await until(async () => (await opened.page.locator('.machine').getAttribute('data-state')) === 'Normal', 'Normal');
  await calmSample(opened.page);
  trace = await Trace.of(opened.page);
  await trace.afterCommit();
  await program.command('set', 'AutoExposure=0');
});

after(async () => {
  await browser?.close();
  await program?.close();
});

const row = (name) => opened.page.locator(`.control[data-name="${name}"]`);

/** Drags a slider's thumb to a part of its length. */
async function drag(name, part) {
  const slider = row(name).getByRole('slider');
  await slider.scrollIntoViewIfNeeded();
  const box = await slider.boundingBox();
  await opened.page.mouse.click(box.x + 8 + part * (box.width - 16), box.y + box.height / 2);
}

async function stores(name, value) {
  await until(async () => (await program.stored(name)) === value, `lidcam get ${name}: ${value}`);
}

/** Controls that show in a bright, coloured picture at once, where each of them ends, and how much of it changes. */
const SLIDERS = [
  { name: 'Brightness', mouse: 1, least: 8 },
  { name: 'Contrast', mouse: 1, least: 4 },
  { name: 'Saturation', mouse: 0, least: 4 },
  { name: 'Gamma', mouse: 0, least: 4 },
];

for (const { name, mouse, least } of SLIDERS) {
  test(`${name} moved by mouse and by keyboard changes the picture and the stored value`, async () => {
    const slider = row(name).getByRole('slider');
    const calm = await calmSample(opened.page);
    await trace.afterCommit();
    await drag(name, mouse);
    const value = Number(await slider.inputValue());
    assert.equal(value, Number(await slider.getAttribute(mouse === 1 ? 'max' : 'min')));
    await stores(name, value);
    await until(async () => difference(calm, await pictureSample(opened.page)) > least, `the picture shows ${name}`);
    await trace.afterCommit();
    await slider.press(mouse === 1 ? 'ArrowLeft' : 'ArrowRight');
    await stores(name, value + (mouse === 1 ? -1 : 1));
    await trace.afterCommit();
    await row(name).getByRole('button', { name: 'Reset' }).click();
    await until(
      async () => await row(name).getByRole('button', { name: 'Reset', includeHidden: true }).isDisabled(),
      `${name} is at its default`,
    );
    const [, lowest, most, normal] = (await row(name).locator('.note').innerText())
      .replaceAll('−', '-')
      .match(/^(-?\d+) to (-?\d+) · default (-?\d+)/);
    assert.deepEqual([lowest, most], [await slider.getAttribute('min'), await slider.getAttribute('max')]);
    await stores(name, Number(normal));
  });
}

test('Sharpness moved by keyboard is stored', async () => {
  const slider = row('Sharpness').getByRole('slider');
  await slider.press('End');
  await stores('Sharpness', 8);
  await slider.press('Home');
  await stores('Sharpness', 0);
});

for (const name of ['Mirror', 'Vertical', 'ColorEnable']) {
  test(`${name} switched by mouse and by keyboard changes the picture and the stored value`, async () => {
    const input = row(name).getByRole('switch');
    const calm = await calmSample(opened.page);
    const value = Number(await input.isChecked());
    await trace.afterCommit();
    await input.click();
    await stores(name, 1 - value);
    await until(async () => difference(calm, await pictureSample(opened.page)) > 10, `the picture shows ${name}`);
    await trace.afterCommit();
    await input.press(' ');
    await stores(name, value);
    await until(async () => difference(calm, await pictureSample(opened.page)) < 4, `${name} is back`);
  });
}

test('Effect moved by mouse and by keyboard changes the picture and the stored value', async () => {
  const slider = row('Effect').getByRole('slider');
  const calm = await calmSample(opened.page);
  await trace.afterCommit();
  await drag('Effect', 0.2);
  await stores('Effect', 1);
  await until(async () => difference(calm, await pictureSample(opened.page)) > 10, 'the picture shows the effect');
  await trace.afterCommit();
  await slider.press('Home');
  await stores('Effect', 0);
  await until(async () => difference(calm, await pictureSample(opened.page)) < 4, 'the picture without it');
});

/** Controls that a still, bright picture hardly shows, and the register that each of them writes. */
const REGISTERS = [
  { name: 'BacklightCompensation', write: /write sensor FF49=/ },
  { name: 'AutoExposure', write: /write bridge FF0D=/ },
  { name: 'LDMode', write: /write sensor FF09=/ },
];

for (const { name, write } of REGISTERS) {
  test(`${name} switched by mouse and by keyboard writes its register and the stored value`, async () => {
    const input = row(name).getByRole('switch');
    const value = Number(await input.isChecked());
    await trace.afterCommit();
    await trace.linesOf(write, () => input.click());
    await stores(name, 1 - value);
    await trace.afterCommit();
    await trace.linesOf(write, () => input.press(' '));
    await stores(name, value);
  });
}

test('Exposure moved by mouse and by keyboard writes the sensor, is stored, and turns AutoExposure off', async () => {
  await row('AutoExposure').getByRole('switch').setChecked(true);
  await stores('AutoExposure', 1);
  const slider = row('Exposure').getByRole('slider');
  await trace.afterCommit();
  await trace.linesOf(/write sensor FF04=/, () => drag('Exposure', 1));
  await stores('Exposure', 100);
  await trace.afterCommit();
  await trace.linesOf(/write sensor FF04=/, () => slider.press('Home'));
  await stores('Exposure', 1);
  await until(async () => !(await row('AutoExposure').getByRole('switch').isChecked()), 'AutoExposure is off');
});

test('WhiteBalance, which the camera accepts and keeps as it is, goes back on the page', async () => {
  const input = row('WhiteBalance').getByRole('switch');
  const value = await input.isChecked();
  for (const move of [() => input.click(), () => input.press(' ')]) {
    await move();
    await until(async () => (await input.isChecked()) === value, 'the value that the camera has');
    await stores('WhiteBalance', Number(value));
  }
});

test('Flicker and LED are chosen by their names', async () => {
  await row('Flicker').getByRole('radio', { name: '60 Hz' }).check();
  await stores('Flicker', 2);
  await row('Flicker').getByRole('radio', { name: '60 Hz' }).press('ArrowLeft');
  await stores('Flicker', 1);
  await row('LED').getByRole('radio', { name: 'off' }).check();
  await stores('LED', 3);
});

test('every control has a row with its name, a sentence and its default, and can be reached with the keyboard', async () => {
  const controls = JSON.parse(await program.command('controls', '--json'));
  assert.ok(controls.length > 10);
  for (const control of controls) {
    const text = await row(control.name).innerText();
    assert.ok(text.toLowerCase().replaceAll(' ', '').includes(control.name.toLowerCase()), text);
    assert.match(await row(control.name).locator('.meaning').innerText(), /^[A-Z]\S* .*[^.]\.$/);
    assert.ok(/default|no effect/.test(text), text);
    assert.ok(
      await row(control.name)
        .locator('input')
        .first()
        .evaluate((input) => input.tabIndex === 0),
    );
  }
});

test('a value that is not yet saved is told apart from the saved one', async () => {
  const slider = row('Saturation').getByRole('slider');
  await stores('Saturation', Number(await slider.inputValue()));
  await slider.press('End');
  await until(
    async () => /· saved \d+$/.test(await row('Saturation').locator('.note').innerText()),
    'the saved value beside it',
  );
  await stores('Saturation', 255);
  await until(async () => !/saved/.test(await row('Saturation').locator('.note').innerText()), 'saved');
});

test('a change by lidcam set shows on the page', async () => {
  await program.command('set', 'Brightness=-37');
  await until(async () => (await row('Brightness').locator('.value').innerText()) === '−37', 'the new value');
  assert.equal(await row('Brightness').getByRole('slider').inputValue(), '-37');
});

test('a change on one page shows on the other', async () => {
  const other = await openPage(browser, program);
  await firstPicture(other.page);
  await row('Contrast').getByRole('slider').press('End');
  await until(
    async () => (await other.page.locator('.control[data-name="Contrast"] .value').innerText()) === '16',
    'the new value',
  );
  other.watch.assertClean();
  await other.context.close();
});

test('all controls are reset at once', async () => {
  await opened.page.getByRole('button', { name: 'Reset all' }).click();
  const controls = JSON.parse(await program.command('controls', '--json'));
  for (const control of controls.filter((other) => other.hasEffect && other.name !== 'WhiteBalance')) {
    await stores(control.name, control.default);
  }
});

test('what is set on the page is there when the program has ended', async () => {
  await row('Contrast').getByRole('slider').press('End');
  await until(async () => (await row('Contrast').locator('.value').innerText()) === '16', 'set');
  opened.watch.assertClean();
  await opened.context.close();
  await program.end();
  assert.equal(await program.stored('Contrast'), 16);
});
