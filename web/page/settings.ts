// What is done to a page.
export interface Settings {
  deskew: boolean;
  borders: boolean;
  holes: boolean;
  specks: boolean;
  cropSheet: boolean;
  flatten: boolean;
  whitePaper: boolean;
  bleed: boolean;
  blackAndWhite: boolean;
  quarters: number; // 0 to 3, counter-clockwise, before all else
}
export type Step = Exclude<keyof Settings, 'quarters'>;

export const standard: Readonly<Settings> = {
  deskew: true,
  borders: true,
  holes: true,
  specks: true,
  cropSheet: false,
  flatten: false,
  whitePaper: false,
  bleed: false,
  blackAndWhite: false,
  quarters: 0,
};
export const steps = Object.keys(standard).filter((name) => name !== 'quarters') as Step[];
