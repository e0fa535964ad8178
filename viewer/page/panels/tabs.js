/** A row of tabs with their panels, for the pointer, the keyboard and screen readers. */

import { element, freshId } from '../base/dom.js';

/** Event `chosen` (detail: the name of the tab). */
export class Tabs extends EventTarget {
  /** @param {HTMLElement} place @param {string} label */
  constructor(place, label) {
    super();
    this.list = element('div', {
      class: 'tabs',
      role: 'tablist',
      'aria-label': label,
      keydown: (event) => this.key(event),
    });
    this.place = place;
    this.tabs = new Map();
    this.chosen = null;
    place.append(this.list);
  }

  /** @param {string} name @param {string} label @returns {HTMLElement} the panel */
  add(name, label) {
    const id = freshId('tab');
    const tab = element(
      'button',
      {
        type: 'button',
        role: 'tab',
        id,
        'aria-controls': `${id}-panel`,
        'aria-selected': 'false',
        tabindex: '-1',
        click: () => this.choose(name),
      },
      label,
    );
    const panel = element('div', {
      class: `panel ${name}`,
      role: 'tabpanel',
      id: `${id}-panel`,
      'aria-labelledby': id,
      hidden: true,
    });
    this.list.append(tab);
    this.place.append(panel);
    this.tabs.set(name, { tab, panel });
    if (!this.chosen) this.choose(name);
    return panel;
  }

  isChosen(name) {
    return this.chosen === name && this.tabs.get(name).panel.offsetParent !== null;
  }

  /** Leaves a tab out, for a camera that has nothing in it. */
  offer(name, offered) {
    this.tabs.get(name).tab.hidden = !offered;
    if (!offered && this.chosen === name) this.choose(this.offered()[0]);
  }

  offered() {
    return [...this.tabs.keys()].filter((name) => !this.tabs.get(name).tab.hidden);
  }

  choose(name) {
    this.chosen = name;
    for (const [other, { tab, panel }] of this.tabs) {
      tab.setAttribute('aria-selected', String(other === name));
      tab.tabIndex = other === name ? 0 : -1;
      panel.hidden = other !== name;
    }
    this.dispatchEvent(new CustomEvent('chosen', { detail: name }));
  }

  key(event) {
    const names = this.offered();
    const at = names.indexOf(this.chosen);
    const to = { ArrowRight: at + 1, ArrowLeft: at - 1, Home: 0, End: names.length - 1 }[event.key];
    if (to === undefined) return;
    event.preventDefault();
    const name = names[(to + names.length) % names.length];
    this.choose(name);
    this.tabs.get(name).tab.focus();
  }
}
