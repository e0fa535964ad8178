/** What each control does, for a person who moves it on the page. */

const SENTENCES = {
  Brightness: 'Lightens or darkens it all.',
  Contrast: 'Spreads light and dark apart.',
  Saturation: 'Strengthens the colours.',
  Sharpness: 'Enhances edges.',
  Gamma: 'Lower brightens the shadows.',
  WhiteBalance: 'Is only reported: the camera accepts any value and keeps its own.',
  BacklightCompensation: 'Exposes against the light.',
  ColorEnable: 'Off, it is black and white.',
  Exposure: 'By hand turns auto exposure off.',
  AutoExposure: 'Has the camera’s chip or the driver choose the exposure.',
  Mirror: 'Exchanges left and right.',
  Vertical: 'Turns the picture upside down.',
  Flicker: 'Fits the exposure to lamps on the mains, which else show as moving bands.',
  Effect: 'Chooses one of the camera’s picture effects; 0 is none.',
  LDMode: 'Holds the sensor’s registers for low light.',
  LED: 'Switches the camera’s lamp on or off, or has it follow the light.',
};

/** @param {{name: string, meaning: string}} row @returns {string} a sentence */
export function sentenceOf(row) {
  return SENTENCES[row.name] ?? `${row.meaning.charAt(0).toUpperCase()}${row.meaning.slice(1)}.`;
}
