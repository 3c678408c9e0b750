// Rastrel for browsers and Node: straight, clean pages of scanned ones. rastrel.d.mts says what each thing takes
// and gives.
export { RastrelError, compile, load } from './library.mjs';
export { Pool } from './pool.mjs';
