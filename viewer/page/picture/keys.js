/** Keys for what is done most, and the list of them. */

import { button, element } from '../base/dom.js';

const PAN = 60; // screen pixels

/** @param {import('./stage.js').Stage} stage @param {import('./tools.js').Tools} tools @param {import('./recorder.js').Recorder} recorder */
function keysOf(stage, tools, recorder) {
  const view = () => stage.picture?.view;
  return [
    { keys: [' '], name: 'Space', meaning: 'freeze and go on', run: () => tools.freeze() },
    { keys: ['.'], name: '.', meaning: 'the next frame', run: () => tools.step() },
    { keys: ['s'], name: 'S', meaning: 'save a snapshot', run: () => tools.snapshot() },
    { keys: ['r'], name: 'R', meaning: 'begin and end a recording', run: () => recorder.toggle() },
    { keys: ['f'], name: 'F', meaning: 'full screen', run: () => tools.fullScreen() },
    { keys: ['+', '='], name: '+', meaning: 'enlarge', run: () => view()?.zoom(1) },
    { keys: ['-'], name: '−', meaning: 'reduce', run: () => view()?.zoom(-1) },
    { keys: ['0'], name: '0', meaning: 'fit to the window', run: () => view()?.fit() },
    { keys: ['ArrowLeft'], name: '← ↑ → ↓', meaning: 'move an enlarged picture', run: () => view()?.move(-PAN, 0) },
    { keys: ['ArrowRight'], run: () => view()?.move(PAN, 0) },
    { keys: ['ArrowUp'], run: () => view()?.move(0, -PAN) },
    { keys: ['ArrowDown'], run: () => view()?.move(0, PAN) },
  ];
}

/** Keys work where they have no other meaning: not in fields, on sliders, buttons and tabs. */
function isTaken(event) {
  if (event.ctrlKey || event.metaKey || event.altKey || document.querySelector('dialog[open]')) return true;
  return event.target.closest('input, select, textarea, button, a, [role=tab], .scroll') !== null;
}

export function listenForKeys(stage, tools, recorder, helpButton) {
  const keys = keysOf(stage, tools, recorder);
  const dialog = helpDialog(keys);
  document.body.append(dialog);
  helpButton.addEventListener('click', () => dialog.showModal());
  document.addEventListener('keydown', (event) => {
    if (isTaken(event)) return;
    const key = keys.find((other) => other.keys.includes(event.key.length === 1 ? event.key.toLowerCase() : event.key));
    if (key) event.preventDefault();
    if (key) key.run();
  });
}

function helpDialog(keys) {
  const rows = keys
    .filter((key) => key.name)
    .map((key) => element('div', {}, element('dt', {}, element('kbd', {}, key.name)), element('dd', {}, key.meaning)));
  const dialog = element(
    'dialog',
    { class: 'help', 'aria-label': 'Keys' },
    element('h2', {}, 'Keys'),
    element('dl', {}, ...rows),
    element('p', {}, 'The wheel enlarges below the pointer; a double click enlarges four times, and back.'),
    button('Close', () => dialog.close(), { autofocus: true }),
  );
  return dialog;
}
