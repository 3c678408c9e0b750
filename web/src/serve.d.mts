import type { Rastrel } from './rastrel.mjs';

/** For a worker of one's own: its methods, each of which gets, after its arguments, a function that reports progress,
 * or undefined where nobody asks. Results are handed over, not copied. */
export function serve(
  methodsOf: (rastrel: Rastrel) => { [name: string]: (...values: any[]) => unknown },
): Promise<void>;
