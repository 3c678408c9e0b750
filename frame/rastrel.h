/* Rastrel: straightens, trims, cleans and converts scanned pages.
 *
 * Conventions that hold for every function here:
 *
 * - A `dib` is the handle of a movable memory block that holds one packed bitmap: a 40-byte BITMAPINFOHEADER,
 *   the colour table (biClrUsed entries; 0 means 2, 16 or 256 for 1, 4 or 8 bits, none for 24), and the rows,
 *   bottom row first, each padded to a multiple of 4 bytes. Pixels of 1 and 4 bits lie leftmost in the high
 *   bits; pixels of 24 bits are blue, green, red.
 * - Operations that make a new page leave their input as it was. What they return belongs to the caller, who
 *   frees it with GlobalFree.
 * - Failure is 0 or a null handle. Where a function says that it sets errors, the reason is the calling
 *   thread's last error, read with RastrelError. Success leaves that error alone unless the function says
 *   otherwise, so read it only after a failure.
 * - A block that is smaller than its header says is refused: error 19 where errors are set at all. Nothing is
 *   ever read or written outside a block. No page is larger than 4 GiB - 1.
 * - Everything is per thread; functions may run on any number of threads at once, but only one at a time may
 *   show a progress window of each kind. */
#ifndef RASTREL_H
#define RASTREL_H

#include <stddef.h>
#include <stdint.h>

#ifdef _WIN32
#include <windows.h>
#define RASTREL_CALL __stdcall
#if defined(RASTREL_STATIC) || defined(RASTREL_BUILDING) /* the linker is told what is exported */
#define RASTREL_API
#else
#define RASTREL_API __declspec(dllimport)
#endif
#else
#include <rastrel_host.h>
#define RASTREL_CALL
#define RASTREL_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- frame and errors ---- */

/* The error codes. RastrelErrorString has their texts. */
enum RastrelErrorCode {
  ErrSuccess = 0,
  ErrNoMemory = 1,
  ErrCreateDC = 2,
  ErrOpenFile = 3,
  ErrFileIO = 4,
  ErrOpenClipboard = 5,
  ErrClipboardReceive = 6,
  ErrCopyBits = 7,
  ErrParameter = 8,
  ErrFileFormat = 9,
  ErrCreatePalette = 10,
  ErrCreateBitmap = 11,
  ErrMetafileMapMode = 12,
  ErrBitsPerPixel = 13,
  ErrClipboardFormat = 14,
  ErrBitmapParams = 15,
  ErrCreateMetafile = 16,
  ErrLockMemory = 17,
  ErrCompressed = 18,
  ErrDIBSize = 19,
  ErrDitherParameter = 20,
  ErrHeaderBitCount = 21,
  ErrDitherDepth = 22,
  ErrPrinterDC = 23,
  ErrDeviceRaster = 24,
  ErrDisplayDC = 25,
  ErrSetAbortProc = 26,
  ErrStartDoc = 27,
  ErrNextBand = 28,
  ErrClipboard = 29,
  ErrPrintCancelled = 30,
  ErrNothingToDo = 31,
  ErrNoScannedPage = 32
};

/* The steps of a zoom direction: `count` (1 to 10) of them, strictly increasing. */
typedef struct ScaleStepTable {
  int32_t count;
  int32_t steps[10];
} ScaleStepTable;

/* Where the corners of a sheared page lie, in pixels, y downward from the top of the new page: top left,
 * top right, bottom right, bottom left. */
typedef struct SkewCorners {
  int32_t x0, y0, x1, y1, x2, y2, x3, y3;
} SkewCorners;

/* Returns the calling thread's last error. */
RASTREL_API int RASTREL_CALL RastrelError(void);

/* Sets the calling thread's last error when `code` is 0 to 32. Returns the one before either way. */
RASTREL_API int RASTREL_CALL SetRastrelError(int code);

/* Writes the text of `code` into `buffer`, which holds at least 60 bytes (all 60 are written), and returns
 * it. A code outside 0 to 32 means the thread's last error. With a null buffer the text is shown in a
 * message box and null is returned. */
RASTREL_API char* RASTREL_CALL RastrelErrorString(char* buffer, int code);

/* Writes "Version 9.11" into `buffer`: `length` bytes of it, or all 13 with the terminator when `length` is
 * 13 or more. Shorter results are not terminated. */
RASTREL_API void RASTREL_CALL GetImageVersion(char* buffer, int length);

/* The thread's low-memory stretching flag (0 at first). The setter returns the value before. */
RASTREL_API int RASTREL_CALL GetLowMemStretch(void);
RASTREL_API int RASTREL_CALL SetLowMemStretch(int value);

/* The thread's stretch mode, 1 to 4 (4 at first). The setter returns the mode before and ignores others. */
RASTREL_API int RASTREL_CALL DisplayGetStretchBltMode(void);
RASTREL_API int RASTREL_CALL DisplaySetStretchBltMode(int mode);

/* Sets the thread's zoom base (1 to 1000) and step tables. A null table stays as it is; the first step of
 * another must equal `base`. Returns 1, or 0 with nothing stored. Sets no error. */
RASTREL_API int RASTREL_CALL BZoomSetScaleSteps(int base, const ScaleStepTable* zoomIn,
                                                const ScaleStepTable* zoomOut);

/* Copies the thread's tables to the non-null arguments and returns the zoom base. */
RASTREL_API int RASTREL_CALL BZoomGetScaleSteps(ScaleStepTable* zoomIn, ScaleStepTable* zoomOut);

/* ---- DIB blocks and bitmap files ---- */

/* Reads the headers and colour table of a bitmap from an open file (a descriptor; on Windows a file handle as
 * the old-style calls take it) that stands at a file header or at a bare bitmap header. Returns a block with
 * a 40-byte header and the table but no rows, and leaves the file at the rows. Headers of 40 and 12 bytes are
 * understood. Errors: 8 file is -1, 4 headers cut short, 9 other header sizes, 17 cannot be locked; none when
 * memory runs out. */
RASTREL_API HGLOBAL RASTREL_CALL ReadDIBInfo(int file);

/* Returns the bytes of the colour table behind `header` (an address, not a handle): 4 an entry for a 40-byte
 * header, 3 for any other. Null gives 0. */
RASTREL_API int RASTREL_CALL PaletteSize(const void* header);

/* Returns a copy of the whole block, or null. Neither header nor rows are looked at. A block that cannot be
 * locked gives a cleared copy. Sets no error. */
RASTREL_API HGLOBAL RASTREL_CALL DuplicateDIB(HGLOBAL dib);

/* Loads a bitmap file (with or without its 14-byte file header; run-length rows are kept as they stand).
 * Rows that the file lacks hold no particular values. Errors: 3 the file cannot be opened, 4 headers cut
 * short, 9 not a known header, 17 cannot be locked; none when memory runs out. */
RASTREL_API HGLOBAL RASTREL_CALL LoadDIBFromFile(const char* fileName);

/* Writes a block as a bitmap file, in place of what the file held. Returns 1, or 0 and error 8 (null handle),
 * 3 (cannot be created), 4 (a write put nothing, or the block cannot be locked), 19 (no header in the block).
 * A full disk is not noticed: compare the size of the file with the size field in it. A failed save leaves a
 * partial file. */
RASTREL_API int RASTREL_CALL SaveDIB(const char* fileName, HGLOBAL dib);

/* ---- pixels and palettes ---- */

/* Read and set one pixel of an uncompressed page of 1, 8 or 24 bits; x from the left, y from the top. Return
 * 1 or 0, and set no error. They have their own idea of where pixels lie: behind a full colour table,
 * whatever biClrUsed says, and at 1 bit with the leftmost pixel of a byte in its lowest bit, the reverse of
 * every other function. A colour that the table lacks is refused, and one more lock is left on `dib` then;
 * its top byte is ignored. */
RASTREL_API int RASTREL_CALL GetDIBPixelColor(HGLOBAL dib, unsigned x, unsigned y, COLORREF* colour);
RASTREL_API int RASTREL_CALL SetDIBPixelColor(HGLOBAL dib, unsigned x, unsigned y, COLORREF colour);

/* Returns a new palette of the page's colours, which the caller deletes with DeleteObject; for a page without
 * a colour table one of 8 reds, 8 greens and 4 blues, the last entry white. Errors: 10 when a page's colours
 * cannot become a palette (more than 65,535, no memory), 19 a header or table cut short; other failures set
 * none. Where there is no memory for the palette of a page without a table,
 * one more lock is left on `dib`. */
RASTREL_API HPALETTE RASTREL_CALL CreateDIBPalette(HGLOBAL dib);

/* Turns every colour of the colour table into 255 minus it. Returns 1 or 0; sets no error. */
RASTREL_API int RASTREL_CALL InvertDIBPalette(HGLOBAL dib);

/* Returns a new palette of the screen's colours, or null and error 2 (no device context) or 10 (a screen
 * without a colour limit, no memory). The caller deletes it. */
RASTREL_API HPALETTE RASTREL_CALL GetCurrentPalette(void);

/* Fills `entries` with the colours of a screen that has a palette and returns 1; 0 for any other. `entries`
 * has room for all of them: 2 at 1 bit, 16 at 4, 256 at 8. */
RASTREL_API int RASTREL_CALL GetSystemPalette(RGBQUAD* entries);

/* ---- depth conversions ---- */

/* Expands a run-length compressed page of 8 or 4 bits (with a full colour table) into a new one. Decoding
 * ends where the data does; what it did not reach is 0. Success sets error 0. Errors: 8 null handle, not such
 * a page, no image size, a table cut short; 1 no memory or more than a block can hold; 19 negative sizes. */
RASTREL_API HGLOBAL RASTREL_CALL ExpandCompressedDIB(HGLOBAL dib);

/* Turns a page of 8 bits into one of 24 by its colour table; pages of 2, 16 and 32 bits are taken to have a
 * byte for each pixel. Width and height count modulo 65,536. Sets error 0 on success; else 8 null handle or
 * header size, 17 cannot be locked, 18 compressed, 13 1 or 4 bits, 31 24 bits, 19 no width or height, rows of
 * more than 65,535 bytes, or a block cut short, 1 no memory. */
RASTREL_API HGLOBAL RASTREL_CALL Convert8to24(HGLOBAL dib);

/* ---- device bitmaps ----
 *
 * A bitmap is a device bitmap of the platform's. New ones belong to the caller, who frees them with
 * DeleteObject. */

/* Returns a bitmap's pixels as a page of 1, 4, 8 or 24 bits (24 for 16 and 32). The colour table is `palette`
 * (the screen's when null, but for 1 bit) when it has no more entries than the depth has colours, else a
 * standard one: black and white, the 16 standard colours, a cube of 8 reds, 8 greens and 4 blues. Null when
 * the bitmap's pixels cannot be had, as while a device context holds it. Sets no error of its own, but leaves
 * 10 behind, with success, where a palette is looked for on a screen of more than 8 bits. */
RASTREL_API HGLOBAL RASTREL_CALL ConvertBitmapToDIB(HBITMAP bitmap, HPALETTE palette);

/* Returns a page as a bitmap of 1 bit (1-bit pages: each colour the nearer of black and white) or of the
 * screen's depth. Errors: 11 cannot be made, 19 a block cut short or a size below 1; none for a
 * dead handle. */
RASTREL_API HBITMAP RASTREL_CALL ConvertDIBToBitmap(HGLOBAL dib);

/* Returns a copy of a bitmap. Errors: 1 no memory, 7 its bits cannot be had. */
RASTREL_API HBITMAP RASTREL_CALL DuplicateBitmap(HBITMAP bitmap);

/* Returns the bitmap in 1 bit: white where red + green + blue is 383 or more. Errors: 8 null handle, 1 no
 * memory. */
RASTREL_API HBITMAP RASTREL_CALL ConvertToMonochromeBitmap(HBITMAP bitmap);

/* Loads a bitmap file as ConvertDIBToBitmap gives it, with the errors of LoadDIBFromFile and of that. */
RASTREL_API HBITMAP RASTREL_CALL LoadBitmapFromFile(const char* fileName);

/* Saves a bitmap as ConvertBitmapToDIB gives it and returns what SaveDIB returns, 0 when there is no such
 * bitmap. The page made on the way is never freed: convert and save in two steps where that matters. */
RASTREL_API int RASTREL_CALL SaveBitmap(const char* fileName, HBITMAP bitmap, HPALETTE palette);

/* ---- geometry ---- */

/* Mirror a page of 1, 4, 8, 15, 16, 24 or 32 bits, upside down or left to right; left to right other depths
 * come out blank. Return a new page, or null: no such block, a block cut short, no memory. Set no error. */
RASTREL_API HGLOBAL RASTREL_CALL FlipDIBVertical(HGLOBAL dib);
RASTREL_API HGLOBAL RASTREL_CALL FlipDIBHorizontal(HGLOBAL dib);

/* Turns a page of 1, 2, 4, 8, 16, 24 or 32 bits counter-clockwise by any number of quarters, negative ones
 * too. Every pixel is kept: width and height, and the resolutions, change places on odd turns. Success sets
 * error 0. Errors: 8 null handle, 17 cannot be locked, 9 header size, 18 compressed, 19 a width or height
 * whose low 16 bits are 0 or a block cut short, 13 other depths, 11 no memory. */
RASTREL_API HGLOBAL RASTREL_CALL TurnDIB(HGLOBAL dib, int quarterTurns);

/* Mirror, turn upside down or invert a bitmap in place. Return 1 or 0; a failure leaves the bitmap as it was.
 * Errors of the first three: 15 not a bitmap, 1 no memory, 7 its bits cannot be had. InvertBitmap sets none.
 */
RASTREL_API int RASTREL_CALL FlipBitmapVertical(HBITMAP bitmap);
RASTREL_API int RASTREL_CALL FlipBitmapHorizontal(HBITMAP bitmap);
RASTREL_API int RASTREL_CALL RotateBitmap180(HBITMAP bitmap);
RASTREL_API int RASTREL_CALL InvertBitmap(HBITMAP bitmap);

/* Return a new bitmap turned by a quarter, counter-clockwise (90) or clockwise (270). Of a 1-bit bitmap
 * turned clockwise the leftmost column stays 0. Errors: 15 not a bitmap, 1 no memory, 7 its bits cannot be
 * had, 11 the new one cannot be made. */
RASTREL_API HBITMAP RASTREL_CALL RotateBitmap90(HBITMAP bitmap);
RASTREL_API HBITMAP RASTREL_CALL RotateBitmap270(HBITMAP bitmap);

/* Cuts a page into tiles. Makes `*tileArray` a block of gridCounts[0] columns x gridCounts[1] rows of
 * handles, the bottom row first, each a page of its own; the caller frees the tiles and the array. Tiles
 * begin at multiples of the tile's padded row length, so the grid is exact when tileWidth x bits is a
 * multiple of 32; otherwise padding carries the pixels between. Returns 1, or 0 with nothing left allocated.
 * Sets no error. */
RASTREL_API int RASTREL_CALL SplitDIB(HGLOBAL dib, int tileWidth, int tileHeight, HGLOBAL* tileArray,
                                      int* gridCounts);

/* Joins a grid of tiles, as SplitDIB makes it, into a new page with the first tile's colours; array and tiles
 * stay the caller's. Returns null for tiles that are no pages or do not fit together. Sets no error. */
RASTREL_API HGLOBAL RASTREL_CALL MergeDIBs(HGLOBAL tileArray, int columns, int rows);

/* Turns a page of 1, 4, 8 or 24 bits counter-clockwise by any angle in degrees, about its centre, taking the
 * nearest source pixel. The result holds the whole turned page; its width and height are even, and what lies
 * outside the page is 0. Resolutions turn with the page. Success sets error 0. Errors: 8 null handle or an
 * angle that is not a finite number, 17 cannot be locked, 9 header size, 18 compressed, 19 a width or height
 * whose low 16 bits are 0, 13 other depths, 11 no memory. */
RASTREL_API HGLOBAL RASTREL_CALL RotateDIB(HGLOBAL dib, double angle);

/* RotateDIB by 90, 180 and 270 degrees. As there, sizes come out even and a line of pixels may be lost. */
RASTREL_API HGLOBAL RASTREL_CALL RotateDIB90(HGLOBAL dib);
RASTREL_API HGLOBAL RASTREL_CALL RotateDIB180(HGLOBAL dib);
RASTREL_API HGLOBAL RASTREL_CALL RotateDIB270(HGLOBAL dib);

/* Turns a page of 1, 4, 8 or 24 bits counter-clockwise by any angle in degrees, about its centre, and fills
 * what it does not cover with `background` (0x00BBGGRR), or the colour table's nearest to it. A page is
 * straightened by the reverse of its skew.
 *
 *   quality 0  takes the nearest source pixel.
 *   quality 1  mixes the four source pixels around by their distance (bilinear), the background's among them
 *              at the page's edges. At 1 bit the nearest is taken, or the three others' colour where it is
 *              less than 42 % of that: strokes keep their weight, and dots and hairlines every pixel. Pages
 * of 4 and 8 bits are mixed if their colour table has only greys, and a mixture becomes the nearest of these.
 *              Else the nearest source pixel is taken, as indices of colours cannot be mixed.
 *
 * The result holds the whole turned page: with W, H and r for its width, height and angle after the nearest
 * number of quarter turns, it is W + 2 ceil((W cos r + H |sin r| - 1 - W) / 2) wide, and as high with W and H
 * exchanged; so the centres of both lie alike between pixels, and no pixel's centre is left out. With
 * STRAIGHTEN_SAME_SIZE added to `quality` it has the page's own width and height, and what sticks out is cut.
 * Quarter turns are exact. Resolutions and the colour table are the page's; resolutions are exchanged with
 * the sides, when the angle is nearer to 90 or 270 degrees.
 *
 * Success sets error 0. Errors: 8 null handle, an angle that is not a finite number, other bits in `quality`;
 * 17 cannot be locked, 9 header size, 18 compressed, 19 width or height below 1 or a block cut short, 13
 * other depths, 1 no memory or more than a block can hold. */
RASTREL_API HGLOBAL RASTREL_CALL StraightenDIB(HGLOBAL dib, double angleDegrees, int quality,
                                               COLORREF background);
enum { STRAIGHTEN_SAME_SIZE = 0x100 };

/* ---- tone ---- */

/* Dither a page of 4, 8 or 24 bits to fewer: `bits` is 1 (black and white), 4 (eight colours at even indices)
 * or 8 (a cube of 8 reds, 8 greens and 4 blues), by Floyd-Steinberg or Jarvis-Judice-Ninke error diffusion.
 * Success sets error 0. Errors: 8 bad `bits` or (FS4) null handle, 17 null handle (JJN) or cannot be locked
 * (FS4), 20 not fewer bits than the page has or a depth not listed (one more lock is left on `dib` then), 1
 * no memory or cannot be locked (JJN). */
RASTREL_API HGLOBAL RASTREL_CALL DitherFS4(HGLOBAL dib, int bits);
RASTREL_API HGLOBAL RASTREL_CALL DitherJJN(HGLOBAL dib, int bits);

/* Reduces a page of 4, 8 or 24 bits to black and white. `method` is 0 (threshold at 128), 1 (error diffusion)
 * or 2 (ordered, 16 x 16); `brightness` is added to every grey first. Never touches the thread's error;
 * `*error` (may be null) is written on failure only: 8 null handle, other method or depth (one more lock is
 * left on `dib` for a depth), 1 no memory or cannot be locked, 19 a block smaller than its header says. Of a
 * page of 24 bits only every third row is reduced, to the lower third of a result that is blank above: make
 * it grey before. */
RASTREL_API HGLOBAL RASTREL_CALL Halftone(HGLOBAL dib, uint16_t method, int brightness, uint16_t* error);

/* Dither a page of 4, 8 or 24 bits to fewer, 1 or 4, as DitherFS4 does, but by handing out the tone of small
 * blocks anew, to their brightest pixels first. What is left goes on to the next block: whole in
 * DitherSmooth, for photographs, half in DitherSharp, for text and line art. To 1 bit, a page's second row
 * from the bottom and the first pixel of its bottom row count by their red alone. Success sets error 0.
 * Errors: 8 other `bits`, 17 null handle, 20 not fewer bits than the page has or a depth not listed (one more
 * lock is left on `dib` then), 1 no memory or cannot be locked. */
RASTREL_API HGLOBAL RASTREL_CALL DitherSmooth(HGLOBAL dib, int bits);
RASTREL_API HGLOBAL RASTREL_CALL DitherSharp(HGLOBAL dib, int bits);

/* Turn a page of 1 bit into one of 8 bits and 256 greys. `method` is 0 (black stays 0, white 255), 1 or 2
 * (each pixel becomes the share of white in the 3 x 3 or 5 x 5 pixels around it). Colour 0 is white when its
 * red, green and blue are all above 127, else colour 1 is. Smoothed pages come out shifted by one or two rows
 * towards the top; pages of less than 6 rows are smoothed 3 x 3 at most, and those of less than 4 are not
 * smoothed by method 2. Both names do the same. Errors: 8 null handle, header size or method, 17 cannot be
 * locked, 18 not 1 bit, compressed or planes not 1, 19 bad size, 1 no memory. Success sets error 0. */
RASTREL_API HGLOBAL RASTREL_CALL ConvertMonoDIBtoGrayscale(HGLOBAL dib, uint32_t method);
RASTREL_API HGLOBAL RASTREL_CALL ConvMonoDIBtoGrayscale(HGLOBAL dib, uint32_t method);

/* Turns a page into grey: of 4 or 8 bits by its colour table, pixels as they are; of 24 bits into 8 bits and
 * 256 greys; of 1 bit as ConvertMonoDIBtoGrayscale does by `method` (not looked at otherwise), but set bits
 * are always white. Other depths give a black page of 8 bits. The grey of a colour is (8 red + 15 green + 3
 * blue) / 26 when `weighted` is non-zero, else the mean of the three. Success sets error 0 and leaves one
 * more lock on `dib`: unlock it. Errors: 8 null handle, header size or method, 17 cannot be locked, 18
 * compressed, 19 bad size, 1 no memory. */
RASTREL_API HGLOBAL RASTREL_CALL ConvColorDIBtoGrayscale(HGLOBAL dib, int weighted, uint32_t method);

/* Returns 1 when a page is blank, 0 when it is not, -1 when it cannot be read. `tolerance` (0 to 1000, others
 * count as the nearest) is in tenths of a percent of the pixels. At 1 bit (two greys; others give 0) a page
 * is blank when fewer pixels than that are ink: those of colour 0 when it is black, else those of colour 1.
 * At 8 and 24 bits it is blank when more pixels are lighter than `background`, in red, green and blue each,
 * than that leaves; at 24 bits the background's red and blue change places. Other depths give 0. Sets no
 * error. */
RASTREL_API int RASTREL_CALL IsImageBlank(HGLOBAL dib, int tolerance, COLORREF background);

/* ---- page cleanup ---- */

/* Returns by how many whole degrees (-44 to 45) the lines of a page of 1, 8 or 24 bits rise to the right, 0
 * when that cannot be told or anything fails. `darkForeground` is non-zero for dark text on a light ground.
 * `showProgress` opens a progress window, owned by `parent`, whose Cancel button ends the work. Sets no
 * error. */
RASTREL_API int RASTREL_CALL DetectSkewAngle(HGLOBAL dib, int darkForeground, int showProgress, HWND parent);

/* How MeasureSkew is to measure: `range` is how far a page may be turned to either side, in degrees, 0 for 15
 * and 45 at most; `polarity` is 1 for dark text on a light ground, 2 for light text on a dark one, 0 to let
 * it find out. */
typedef struct SkewOptions {
  double range;
  int polarity;
} SkewOptions;

/* What it finds: by how many degrees the lines rise to the right, how sure that is (0 to 1), whether there is
 * enough on the page to tell at all, and which polarity was measured (1 or 2). */
typedef struct SkewResult {
  double angle;
  double confidence;
  int hasStructure;
  int polarity;
} SkewResult;

/* Measures the skew of a page of 1, 4, 8 or 24 bits to hundredths of a degree, in pixels: where the
 * resolutions in x and y differ the angle is not that on paper. A page turned back by RotateDIB with minus
 * the angle is straight. Null `options` are all 0. Leave a page as it is when the confidence is below 0.5: of
 * the angles above that none was wrong by a quarter of a degree in our tests, but a photograph that fills the
 * page may, rarely, be taken for text (docs/skew.md). A page that shows no lines has no structure, no angle
 * and no confidence, and is no failure. Returns 1, or 0 and error 8 (null handle or result, bad options), 17
 * cannot be locked, 9 header size, 18 compressed, 19 bad size, 13 other depths, 1 no memory. */
RASTREL_API int RASTREL_CALL MeasureSkew(HGLOBAL dib, const SkewOptions* options, SkewResult* result);

/* Shears a page by `shift` pixels: sideways when `horizontal` is non-zero (a positive shift moves the top
 * edge to the right), else by columns (a positive shift moves the right edge up; depths other than 1, 4, 8
 * and 24 come out blank). The page grows by |shift|; what is uncovered is 0. `corners` receives where the old
 * corners went; by columns the whole top or bottom edge counts as moved. Success sets error 0, leaves
 * `*error` as it was, and leaves one more lock on `dib`: unlock it. On failure the code stands in the
 * thread's error and in `*error`: 8 null handle or header size, 17 cannot be locked, 18 compressed, 19 bad
 * size, 1 no memory. Either pointer may be null. */
RASTREL_API HGLOBAL RASTREL_CALL SkewDIB(HGLOBAL dib, int horizontal, int shift, uint32_t* error,
                                         SkewCorners* corners);

/* Returns a copy of a page of 1, 8 or 24 bits in which the dark margins at the left and right end of every
 * row are white: at 8 bits index 255, whatever its colour. A 1-bit page whose entry 0 is not black comes back
 * as it was. Sets no error. */
RASTREL_API HGLOBAL RASTREL_CALL TrimBlackBorder(HGLOBAL dib);

/* Turns a page back by the skew that DetectSkewAngle finds and, if `trimBorder` is set and the text is dark,
 * trims its black border. Returns null when there is no skew and when anything fails. Sets no error of its
 * own. */
RASTREL_API HGLOBAL RASTREL_CALL DeskewDIB(HGLOBAL dib, int darkForeground, int showProgress, HWND parent,
                                           int trimBorder);

/* Returns a copy of a page of 1, 8 or 24 bits with the dark punch holes at its left edge painted white.
 * `holeSize` is -3, -2, -1, 0 for holes of 9, 7, 5, 4 mm, or n of 1 and more for n / 2 + 2 mm. The page needs
 * equal resolutions in x and y. Progress as for DetectSkewAngle. Sets no error. */
RASTREL_API HGLOBAL RASTREL_CALL PunchHoleRemover(HGLOBAL dib, int holeSize, int showProgress, HWND parent);

/* Returns a copy of a page of 1, 8 or 24 bits in which dark blobs of more than 4 mm within 19 mm of the left
 * edge, and not markedly taller than wide, are painted white as punch holes. The page needs equal resolutions
 * in x and y. Progress as for DetectSkewAngle. Sets no error. */
RASTREL_API HGLOBAL RASTREL_CALL AutoPunchHoleRemover(HGLOBAL dib, int showProgress, HWND parent);

/* Returns the scanned sheet that a 1-bit page shows, straightened first unless `noDeskew` is set (a page that
 * is straight already fails then). A column or row belongs to the sheet when at least `fraction` (0 to 1) of
 * its pixels have the sheet's bit: 0 when `darkForeground` is set, else 1. The left edge is looked for from
 * column `*x` on, which receives the right edge, also when no rows are found then; `margin` pixels, less than
 * a quarter of the page, are added around the sheet. Errors: 8 bad argument, 17 cannot be locked, 15 header
 * size, 21 planes or depth not 1, 18 compressed, 1 no memory or already straight, 32 no sheet found, 19 a
 * block cut short. */
RASTREL_API HGLOBAL RASTREL_CALL CropToEdges(HGLOBAL dib, double fraction, uint32_t* x, int margin,
                                             int darkForeground, int noDeskew);

/* Returns a rectangle of a page of 1, 2, 4, 8, 16, 24 or 32 bits as a new page, which leaves one more lock on
 * the result: unlock it. All four sides belong to the rectangle; top and bottom count from the top row.
 * Errors: 8 null handle, a rectangle that is not inside the page, other depths; 17 cannot be locked, 15
 * header size, 19 a block cut short, 1 no memory. */
RASTREL_API HGLOBAL RASTREL_CALL CropDIB(HGLOBAL dib, int left, int top, int right, int bottom);

/* Cuts a page of 1, 4, 8 or 24 bits across: `*second` is a new page of the upper `rows` rows, `*first` one of
 * the others. The biSizeImage of both is that of the first. Returns 1, or 0 and handles that mean nothing;
 * sets no error. */
RASTREL_API int RASTREL_CALL CutDIB(HGLOBAL dib, int rows, HGLOBAL* first, HGLOBAL* second);

/* Returns a copy of a black-and-white page, or of an 8-bit page of 256 greys, without specks. `level` is 20
 * to 100. With `fullFilter` every pixel is filtered, else only those that look like specks. The rows are
 * taken to start at 40 + 4 * biClrUsed, also when that is 0. Sets no error. */
RASTREL_API HGLOBAL RASTREL_CALL CleanImage(HGLOBAL dib, int level, int fullFilter);

/* ---- scaling ---- */

/* Returns a page of 1, 4, 8 or 24 bits in a new size in pixels, with its own depth and colour table: by cubic
 * convolution when `cubic` is set, else bilinear; a 1-bit page by its nearest pixels. Except at 1 bit, sizes
 * count modulo 65,536. With `cubic` the page is taken to have a black row below its bottom row. With a colour
 * table colours become its nearest, and black at the beginning of a row index 0. Success leaves the thread's
 * error as it was. Errors: 8 null handle or a size of 0, 1 no memory or cannot be locked, 18 compressed (4
 * and 8 bits), 21 other depths, 19 a block cut short; a 1-bit page sets none. */
RASTREL_API HGLOBAL RASTREL_CALL ScaleDIB(HGLOBAL dib, int cubic, int newWidth, int newHeight);

/* Returns a rectangle of a page of 4 or 8 bits whose colour table is a grey ramp, enlarged by whole factors;
 * `top` counts from the bottom row. `mode` is 0 (bilinear) or 1 (cubic convolution). Most greys come out one
 * index lower. Returns null for what is not such a page, a rectangle outside it, a factor below 1 or a result
 * of more than 32,767 pixels in a direction. Sets no error. */
RASTREL_API HGLOBAL RASTREL_CALL ScaleGrayDIB(HGLOBAL dib, int16_t left, int16_t top, int16_t width,
                                              int16_t height, int16_t xFactor, int16_t yFactor, int16_t mode);

/* ---- combining ----
 *
 * Both place a source with its top left pixel at (x, y) of the destination, replacing what is there or, with
 * `andFlag`, combining red, green and blue by AND (dark wins). What lies outside the destination is clipped;
 * nothing left is a success. A mask is as large as the source and black where the source counts as black; it
 * is reduced to black and white (white from red + green + blue of 383 on). When `*destination` is null it
 * becomes a copy of the source. Return non-zero, or 0 and error 8 (null source), 7 (the copy failed), 19
 * (mask of another size). */

/* Bitmaps: draws into the destination, and the mask into the source as well. */
RASTREL_API int RASTREL_CALL CombineBMP(int x, int y, HBITMAP* destination, HBITMAP source, HBITMAP mask,
                                        int andFlag);

/* Pages, of any two depths: the destination keeps its size, depth and colour table (but on a screen with a
 * palette, whose colours it takes over), and colours become its nearest. Source and mask stay as they were.
 * Error 11 for a page that is cut short, compressed or of another depth than 1, 4, 8, 16, 24, 32. */
RASTREL_API int RASTREL_CALL CombineDIB(int x, int y, HGLOBAL* destination, HGLOBAL source, HGLOBAL mask,
                                        int andFlag);

/* ---- zoom steps ----
 *
 * A zoom ratio is numerator / denominator, for x and for y. One of the two equals the thread's zoom base:
 * base / base is 1:1, the other one larger is enlargement or reduction. */

/* words[0] is the mode, words[1] to [4] the working ratio (x numerator, x denominator, y numerator, y
 * denominator), words[12] to [15] the current one in the same order. The others are not used. */
typedef struct ZoomRecord {
  int32_t words[17];
} ZoomRecord;

/* What a window or a screen shows: each begins with the ratio on show. */
typedef struct DisplayRecord {
  int32_t xNumerator, xDenominator, yNumerator, yDenominator;
} DisplayRecord;
typedef struct ScreenRecord {
  int32_t xNumerator, xDenominator, yNumerator, yDenominator;
} ScreenRecord;

/* A zoom command: BZoomStart clears the record and stores the mode in it, words[0]; the End forms take the
 * ratio on show, if there is a record of it, as the current one, words[12] to [15], step it into the working
 * one, words[1] to [4], and write that back. A mode is 0x10 (waits for the mouse) or 0x20 (at once) plus 1
 * (no step), 2 or 3 (in or out to the next value of the thread's step tables), 4 or 5 (in or out by about 5
 * percent); other modes leave the ratio as it is. Steps go by x, and y is made equal. Windows, points and
 * rectangles are not used and may be null; without a zoom record nothing is done. */
RASTREL_API void RASTREL_CALL BZoomStart(HWND window, const POINT* point, const RECT* rect, int mode,
                                         ZoomRecord* zoom, int reserved);
RASTREL_API void RASTREL_CALL BZoomEnd(HWND window, ZoomRecord* zoom, DisplayRecord* display);
RASTREL_API void RASTREL_CALL BZoomScreenEnd(HWND window, ZoomRecord* zoom, ScreenRecord* screen);

/* A whole zoom command at once; nothing at all when `mode` has bit 0x10, which waits for the mouse. Without a
 * record of what is on show the caller's current ratio, words[12] to [15], is stepped. */
RASTREL_API void RASTREL_CALL BZoomStep(HWND window, const RECT* rect, int mode, ZoomRecord* zoom,
                                        DisplayRecord* display);
RASTREL_API void RASTREL_CALL BZoomScreenStep(HWND window, const RECT* rect, int mode, ZoomRecord* zoom,
                                              ScreenRecord* screen);

#ifdef __cplusplus
}
#endif

#endif
