/** Numbers as the page shows them. */

const grouped = new Intl.NumberFormat('en', { maximumFractionDigits: 0, useGrouping: true });

/** @param {number} value */
export function whole(value) {
  return grouped.format(value).replaceAll(',', '\u202f');
}

/** @param {number} value @param {number} digits */
export function fixed(value, digits) {
  return Number.isFinite(value) ? value.toFixed(digits) : '–';
}

/** @param {number} bytesPerSecond */
export function dataRate(bytesPerSecond) {
  if (bytesPerSecond >= 1e6) return `${fixed(bytesPerSecond / 1e6, 1)} MB`;
  if (bytesPerSecond >= 1e3) return `${fixed(bytesPerSecond / 1e3, 1)} kB`;
  return `${bytesPerSecond} B`;
}

/** @param {number} seconds */
export function clockTime(seconds) {
  const minutes = Math.floor(seconds / 60);
  return `${minutes}:${fixed(seconds - 60 * minutes, 1).padStart(4, '0')}`;
}

/** How long ago, in words that change seldom. @param {number} seconds */
export function age(seconds) {
  if (seconds < 1) return 'now';
  if (seconds < 60) return `${Math.floor(seconds)} s ago`;
  if (seconds < 3600) return `${Math.floor(seconds / 60)} min ago`;
  return `${Math.floor(seconds / 3600)} h ago`;
}

/** Light, with as many digits as the eye tells apart. @param {number} lux */
export function light(lux) {
  if (lux < 10) return `${fixed(lux, lux < 1 ? 2 : 1)} lx`;
  return `${whole(Math.round(lux))} lx`;
}

/** "BacklightCompensation" as "Backlight compensation"; abbreviations stay. @param {string} name */
export function words(name) {
  const spaced = name.replace(/([a-z])([A-Z])/g, (_, before, after) => `${before} ${after.toLowerCase()}`);
  return spaced.replace(/^([A-Z]{2,})([A-Z][a-z])/, (_, before, after) => `${before} ${after.toLowerCase()}`);
}

/** @param {number} value @param {number} digits */
export function hex(value, digits) {
  return value.toString(16).toUpperCase().padStart(digits, '0');
}

/** With a true minus sign, as wide as the plus. @param {number} value */
export function signed(value) {
  return String(value).replace('-', '−');
}
