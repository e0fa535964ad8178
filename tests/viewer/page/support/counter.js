/** Reads the frame counter that the test card shows: six digits of 5 by 7 cells. */

const PLACES = 6;
const COLUMNS = 5;
const ROWS = 7;
const AREA = { left: 260, top: 800, right: 740, bottom: 960 }; // thousandths of the card
const GLYPHS = [
  [14, 17, 19, 21, 25, 17, 14],
  [4, 12, 4, 4, 4, 4, 14],
  [14, 17, 1, 6, 8, 16, 31],
  [31, 2, 4, 2, 1, 17, 14],
  [2, 6, 10, 18, 31, 2, 2],
  [31, 16, 30, 1, 1, 17, 14],
  [6, 8, 16, 30, 17, 17, 14],
  [31, 1, 2, 4, 8, 8, 8],
  [14, 17, 17, 14, 17, 17, 14],
  [14, 17, 17, 15, 1, 2, 12],
];

/** Where the counter is in a picture of this size. */
export function counterArea(width, height) {
  const x = Math.trunc((AREA.left * width) / 1000);
  const y = Math.trunc((AREA.top * height) / 1000);
  return {
    x,
    y,
    width: Math.trunc((AREA.right * width) / 1000) - x,
    height: Math.trunc((AREA.bottom * height) / 1000) - y,
  };
}

/** The middles of all cells, in an area of this size: place by place, row by row. */
export function cellCentres(width, height) {
  const centres = [];
  for (let place = 0; place < PLACES; place += 1) {
    const left = Math.trunc((place * width) / PLACES);
    const right = Math.trunc(((place + 1) * width) / PLACES);
    const span = right - Math.trunc((right - left) / 5) - left;
    for (let row = 0; row < ROWS; row += 1) {
      for (let column = 0; column < COLUMNS; column += 1) {
        centres.push({
          x: left + Math.trunc(((column + 0.5) * span) / COLUMNS),
          y: Math.trunc(((row + 0.5) * height) / ROWS),
        });
      }
    }
  }
  return centres;
}

/**
 * @param {number[]} cells luminance at the cells' middles
 * @returns {number} NaN where the cells make no digit
 */
export function readCounter(cells) {
  const middle = (Math.min(...cells) + Math.max(...cells)) / 2;
  let counter = 0;
  for (let place = 0; place < PLACES; place += 1) {
    const digit = GLYPHS.findIndex((glyph) => glyph.every((bits, row) => bits === bitsOf(cells, place, row, middle)));
    counter = 10 * counter + (digit < 0 ? NaN : digit);
  }
  return counter;
}

function bitsOf(cells, place, row, middle) {
  let bits = 0;
  for (let column = 0; column < COLUMNS; column += 1) {
    bits = 2 * bits + (cells[(place * ROWS + row) * COLUMNS + column] > middle ? 1 : 0);
  }
  return bits;
}
