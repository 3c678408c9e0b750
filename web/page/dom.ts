// Elements in one line. No style attributes: the page's policy forbids them.
type Attributes = Record<string, string | boolean | ((event: Event) => void)>;

export function make<Name extends keyof HTMLElementTagNameMap>(
  name: Name,
  attributes: Attributes = {},
  ...children: (Node | string)[]
): HTMLElementTagNameMap[Name] {
  const element = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) {
    if (typeof value === 'function') element.addEventListener(key, value);
    else if (typeof value === 'boolean') element.toggleAttribute(key, value);
    else element.setAttribute(key, value);
  }
  element.append(...children);
  return element;
}

const svgNames = 'http://www.w3.org/2000/svg';
// Of the strokes of 24 x 24 squares.
export function icon(path: string): SVGSVGElement {
  const svg = document.createElementNS(svgNames, 'svg');
  svg.setAttribute('viewBox', '0 0 24 24');
  svg.setAttribute('aria-hidden', 'true');
  svg.setAttribute('class', 'icon');
  const shape = document.createElementNS(svgNames, 'path');
  shape.setAttribute('d', path);
  svg.append(shape);
  return svg;
}
export const icons = {
  add: 'M12 5v14M5 12h14',
  minus: 'M5 12h14',
  left: 'M4 5v5h5M4.6 10a8 8 0 1 1-.4 4',
  right: 'M20 5v5h-5M19.4 10a8 8 0 1 0 .4 4',
  undo: 'M9 7 4 12l5 5M4 12h10a6 6 0 0 1 6 6',
  save: 'M12 4v11M7 11l5 5 5-5M5 20h14',
  remove: 'M6 6l12 12M18 6 6 18',
  previous: 'M15 5l-7 7 7 7',
  next: 'M9 5l7 7-7 7',
  folder: 'M3 7v11h18V8h-9l-2-2H3z',
};

export function button(label: string, symbol: string | null, act: () => void, attributes: Attributes = {}): HTMLButtonElement {
  const content = symbol === null ? [label] : attributes['aria-label'] ? [icon(symbol)] : [icon(symbol), label];
  return make('button', { type: 'button', click: act, ...attributes }, ...content);
}
export function iconButton(label: string, symbol: string, act: () => void): HTMLButtonElement {
  return button(label, symbol, act, { 'aria-label': label, title: label, class: 'quiet' });
}
