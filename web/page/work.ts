// The worker of the page: files in, clean pages out. What is large stays here or goes as a file.
import type { AnyImage, CleanOptions, CleanRecord, Image, Rastrel } from '../src/rastrel.mjs';
import { serve } from '../src/serve.mjs';
import { countPages, decode } from './decode';
import { png, readPng, tiff } from './encode';
import { bitmap, thumbnail } from './images';
import type { Settings } from './settings';

const thumbnailSize = 320;

export interface Source {
  file: Blob;
  index: number;
}
export interface Processed {
  record: CleanRecord;
  result: Blob;
  thumbnail: Blob;
}
export interface Shown {
  picture: ImageBitmap;
  record: CleanRecord | null;
}

type Progress = ((step: string, done: number) => void) | undefined;

// What leads to an upright page: quarter turns counter-clockwise, then a mirror.
const orientations: Record<number, [quarters: number, isMirrored: boolean]> = {
  2: [0, true],
  3: [2, false],
  4: [2, true],
  5: [-1, true],
  6: [-1, false],
  7: [1, true],
  8: [1, false],
};

function optionsOf(settings: Settings): CleanOptions {
  const { deskew, borders, holes, specks, cropSheet, flatten, whitePaper, bleed, blackAndWhite } = settings;
  return {
    deskew,
    borders,
    holes: holes ? 'auto' : false,
    specks,
    cropSheet,
    flatten,
    paper: whitePaper ? 'white' : 'keep',
    bleed,
    reduce: blackAndWhite ? 'auto' : 'none',
  };
}

function methods(rastrel: Rastrel) {
  // The page that was read last: whoever looks at it switches its steps.
  let kept: { source: Source; quarters: number; image: AnyImage } | undefined;

  async function read(source: Source, quarters: number): Promise<AnyImage> {
    if (kept?.source.file === source.file && kept.source.index === source.index && kept.quarters === quarters) {
      return kept.image;
    }
    kept = undefined;
    let { image, orientation } = await decode(source.file, source.index);
    const [turned, isMirrored] = orientations[orientation] ?? [0, false];
    const turns = (((turned + (isMirrored ? -quarters : quarters)) % 4) + 4) % 4;
    if (turns !== 0) image = rastrel.apply(image, 'turn', { quarters: turns > 2 ? turns - 4 : turns });
    if (isMirrored) image = rastrel.apply(image, 'flip', { direction: 'h' });
    return image;
  }
  return {
    open: (file: Blob) => countPages(file),

    async process(source: Source, settings: Settings, progress: Progress): Promise<Processed> {
      const image = await read(source, settings.quarters);
      const cleaned = rastrel.clean(image, { ...optionsOf(settings), progress });
      return {
        record: cleaned.record,
        result: await png(cleaned.image),
        thumbnail: await thumbnail(cleaned.image, thumbnailSize),
      };
    },

    // A page for the eye: as it came, clean, or with what was removed.
    async show(source: Source, settings: Settings, what: 'before' | 'after' | 'removed'): Promise<Shown> {
      const image = await read(source, settings.quarters);
      kept = { source, quarters: settings.quarters, image };
      if (what === 'before') return { picture: await bitmap(image), record: null };
      const cleaned = rastrel.clean(image, { ...optionsOf(settings), overlay: what === 'removed' });
      const shown = what === 'removed' ? cleaned.overlay! : cleaned.image;
      return { picture: await bitmap(shown), record: cleaned.record };
    },

    async pack(image: AnyImage): Promise<Blob> {
      return png(image.format === 'rgba' || image.format === undefined ? rastrel.apply(image, 'colour') : (image as Image));
    },

    async tiff(page: Blob): Promise<Blob> {
      return tiff(await readPng(page));
    },

    // The scales that the zoom commands go through, from the smallest to the largest.
    zooms(): number[] {
      const steps = (direction: 'in' | 'out', from: [number, number]): [number, number][] => {
        const next = rastrel.zoom(from, direction);
        return next[0] * from[1] === from[0] * next[1] ? [from] : [from, ...steps(direction, next)];
      };
      const smallest = steps('out', [1, 1]).at(-1)!;
      return steps('in', smallest).map(([numerator, denominator]) => numerator / denominator);
    },
  };
}

serve(methods as never);
