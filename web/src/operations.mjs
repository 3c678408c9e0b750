// The operations that make one page of one, with the words of `rastrel apply`: the function of rastrel_pages.h
// and its arguments in order. An argument is a name, a default (undefined: required), and words or, for words
// that do not count from 0, the numbers that they stand for.
const grounds = ['white', 'black'];
const directions = ['h', 'v'];
const interpolations = ['bilinear', 'cubic'];
const noYes = [false, true];

const fill = ['fill', 'white', grounds];
const angle = ['angle', undefined];
const bits = (...depths) => ['bits', 1, Object.fromEntries(depths.map((depth) => [depth, depth]))];
const method = ['method', 'bilinear', interpolations];

export const operations = {
  flip: ['FlipPage', [['direction', undefined, directions]]],
  turn: ['TurnPage', [['quarters', undefined]]],
  rotate: ['RotatePage', [angle, fill]],
  straighten: [
    'StraightenPage',
    [angle, ['quality', 'smooth', ['nearest', 'smooth']], ['size', 'whole', ['whole', 'same']], fill],
  ],
  skew: ['SkewPage', [['direction', undefined, directions], ['shift', undefined], fill]],
  deskew: ['DeskewPage', [['text', 'dark', ['dark', 'light']]]],
  trim: ['TrimPage', []],
  holes: ['FillPageHoles', [['size', 'auto', { auto: -4 }]]],
  despeckle: ['DespecklePage', [['level', 40], ['full', false, noYes]]],
  dither: ['DitherPage', [['method', 'fs', ['fs', 'jjn']], bits(1, 4, 8)]],
  halftone: ['HalftonePage', [['method', 'threshold', ['threshold', 'diffusion', 'ordered']], ['brightness', 0]]],
  binarize: [
    'BinarizePage',
    [['quality', 'fast', ['fast', 'best']], ['doubled', false, noYes], ['pictures', true, noYes]],
  ],
  smoothDither: ['DitherPageSmoothly', [bits(1, 4)]],
  sharpDither: ['DitherPageSharply', [bits(1, 4)]],
  grey: ['GreyPage', [['formula', 'weighted', ['weighted', 'average']], ['smoothing', 0]]],
  invert: ['InvertPage', []],
  colour: ['ColourPage', []],
  crop: ['CropPage', [['left', undefined], ['top', undefined], ['width', 0], ['height', 0]]],
  cropSheet: ['CropPageSheet', [['share', 50], ['margin', 0], ['sheet', 'light', ['light', 'dark']]]],
  scale: ['ScalePage', [['width', 0], ['height', 0], ['percent', 0], ['dpi', 0], method]],
  scaleGrey: ['ScaleGreyPage', [['factor', undefined], ['down', 0], method]],
};

// What CleanPage is told: the option's name, the member of CleanOptions, and its words.
const deskews = { off: 0, whole: 1, fine: 2, false: 0, true: 2 };
const holeSizes = { auto: -5, any: -4, true: -5, false: -5 };
export const cleanOptions = {
  text: ['text', ['auto', 'dark', 'light']],
  cropSheet: ['cropSheet', noYes],
  borders: ['trim', noYes],
  holes: ['holeSize', holeSizes],
  specks: ['specks', noYes],
  speckLevel: ['speckLevel'],
  speckFull: ['speckFull', noYes],
  deskew: ['deskew', deskews],
  maxSkew: ['mostSkew'],
  blankPercent: ['blankPercent'],
  reduce: ['reduce', ['none', 'threshold', 'ordered', 'fs', 'jjn', 'auto']],
  brightness: ['brightness'],
  toDpi: ['toDpi'],
  flatten: ['evenLight', noYes],
  paper: ['whitePaper', ['keep', 'white']],
  bleed: ['lessBleed', noYes],
  classic: ['classic', noYes],
};

// The number that a value stands for. Numbers go through where there are no words, and beside "auto".
export function numberOf(name, value, words) {
  const refuse = (expected) => {
    throw new RangeError(`${name} is ${expected}, not ${String(value)}`);
  };
  if (Array.isArray(words)) {
    const place = words.indexOf(value);
    return place >= 0 ? place : refuse(`one of ${words.join(', ')}`);
  }
  if (words !== undefined && Object.hasOwn(words, String(value))) return words[String(value)];
  const takesNumbers = words === undefined || Object.hasOwn(words, 'auto');
  if (takesNumbers && typeof value === 'number' && Number.isFinite(value)) return value;
  return refuse(words === undefined ? 'a number' : `one of ${Object.keys(words).join(', ')}`);
}
