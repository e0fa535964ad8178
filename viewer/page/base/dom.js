/** Elements of the page, made without markup in strings. */

/**
 * Makes an element. Attributes whose value is a function become listeners, `true` an empty attribute; `false`, `null`
 * and `undefined` are left out.
 * @param {string} tag
 * @param {Record<string, unknown>} [attributes]
 * @param {...(Node|string|null)} children
 * @returns {HTMLElement}
 */
export function element(tag, attributes = {}, ...children) {
  return fill(document.createElement(tag), attributes, children);
}

/**
 * The same for drawings.
 * @param {string} tag
 * @param {Record<string, unknown>} [attributes]
 * @param {...(Node|string|null)} children
 * @returns {SVGElement}
 */
export function drawing(tag, attributes = {}, ...children) {
  return fill(document.createElementNS('http://www.w3.org/2000/svg', tag), attributes, children);
}

function fill(node, attributes, children) {
  for (const [name, value] of Object.entries(attributes)) setAttribute(node, name, value);
  node.append(...children.filter((child) => child !== null && child !== undefined));
  return node;
}

function setAttribute(node, name, value) {
  if (typeof value === 'function') node.addEventListener(name, value);
  else if (value === true) node.setAttribute(name, '');
  else if (value !== false && value !== null && value !== undefined) node.setAttribute(name, String(value));
}

/**
 * @param {string} label
 * @param {(event: Event) => void} onPress
 * @param {Record<string, unknown>} [attributes]
 */
export function button(label, onPress, attributes = {}) {
  return element('button', { type: 'button', click: onPress, ...attributes }, label);
}

/** Sets a text only where it differs: a text that is set anew ends a selection and is read out again. */
export function setText(node, text) {
  const words = String(text);
  if (node.textContent !== words) node.textContent = words;
}

let lastId = 0;

/** An id for `aria-labelledby` and the like, different at each call. */
export function freshId(stem) {
  lastId += 1;
  return `${stem}-${lastId}`;
}
