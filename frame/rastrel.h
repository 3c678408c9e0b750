/* Rastrel: straightens, trims, cleans and converts scanned pages.
 *
 * Conventions that hold for every function here:
 *
 * - A `dib` is the handle of a movable memory block that holds one packed bitmap: a 40-byte
 *   BITMAPINFOHEADER, the colour table (biClrUsed entries; 0 means 2, 16 or 256 for 1, 4 or 8 bits, none
 *   for 24), and the rows, bottom row first, each padded to a multiple of 4 bytes. Pixels of 1 and 4 bits
 *   lie leftmost in the high bits; pixels of 24 bits are blue, green, red.
 * - Operations that make a new page leave their input as it was. What they return belongs to the caller,
 *   who frees it with GlobalFree.
 * - Failure is 0 or a null handle. Where a function says that it sets errors, the reason is the calling
 *   thread's last error, read with RastrelError. Success leaves that error alone unless the function says
 *   otherwise, so read it only after a failure.
 * - A block that is smaller than its header says is refused: ErrDIBSize where errors are set at all.
 *   Nothing is ever read or written outside a block. No page is larger than 4 GiB - 1.
 * - Everything is per thread; functions may run on any number of threads at once, but only one at a time
 *   may show a progress window of each kind. */
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

/* The version that `rastrel --version` tells; GetImageVersion has one of its own. */
#define RASTREL_VERSION "0.1.0"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- frame and errors ---- */

/* The error codes. RastrelErrorString has their texts; those without a remark belong to operations on
 * printers and clipboards, and no function here sets them. */
enum RastrelErrorCode {
  ErrSuccess = 0,  /* none */
  ErrNoMemory = 1, /* no memory, or more than a block can hold */
  ErrCreateDC = 2, /* no device context */
  ErrOpenFile = 3, /* a file cannot be opened or created */
  ErrFileIO = 4,   /* reading or writing failed */
  ErrOpenClipboard = 5,
  ErrClipboardReceive = 6,
  ErrCopyBits = 7,       /* the bits of a bitmap cannot be had */
  ErrParameter = 8,      /* a null handle or a value that is not taken */
  ErrFileFormat = 9,     /* a header that is not known */
  ErrCreatePalette = 10, /* a palette cannot be made */
  ErrCreateBitmap = 11,  /* a bitmap or result cannot be made */
  ErrMetafileMapMode = 12,
  ErrBitsPerPixel = 13, /* a depth that is not taken */
  ErrClipboardFormat = 14,
  ErrBitmapParams = 15, /* not a bitmap, or a header of another size */
  ErrCreateMetafile = 16,
  ErrLockMemory = 17,      /* a block cannot be locked */
  ErrCompressed = 18,      /* run-length rows, which only ExpandCompressedDIB takes */
  ErrDIBSize = 19,         /* bad width or height, or a block smaller than its header says */
  ErrDitherParameter = 20, /* a dither that would not take away bits */
  ErrHeaderBitCount = 21,  /* planes or a depth that is not taken */
  ErrDitherDepth = 22,
  ErrPrinterDC = 23,
  ErrDeviceRaster = 24,
  ErrDisplayDC = 25,
  ErrSetAbortProc = 26,
  ErrStartDoc = 27,
  ErrNextBand = 28,
  ErrClipboard = 29,
  ErrPrintCancelled = 30,
  ErrNothingToDo = 31,  /* the page is so already */
  ErrNoScannedPage = 32 /* no sheet found */
};

/* Returns the calling thread's last error, one of RastrelErrorCode; 0 at first. */
RASTREL_API int RASTREL_CALL RastrelError(void);

/* Sets the calling thread's last error.
 *
 *   code  0 to 32; another value changes nothing
 *
 * Returns the error before, either way. */
RASTREL_API int RASTREL_CALL SetRastrelError(int code);

/* Tells what an error means, in a sentence.
 *
 *   buffer  at least 60 bytes, all of which are written; null shows the sentence in a message box instead
 *   code    0 to 32; another value means the calling thread's last error
 *
 * Returns `buffer`. */
RASTREL_API char* RASTREL_CALL RastrelErrorString(char* buffer, int code);

/* Writes "Version 9.11", the version of this interface, which is not that of the release
 * (RASTREL_VERSION).
 *
 *   buffer  `length` bytes, or null for none
 *   length  13 and more for the text with its terminator; less cuts it, without a terminator */
RASTREL_API void RASTREL_CALL GetImageVersion(char* buffer, int length);

/* The calling thread's low-memory stretching flag, 0 at first. A setting that programs keep here for their
 * own drawing; no operation looks at it. The setter returns the value before. */
RASTREL_API int RASTREL_CALL GetLowMemStretch(void);
RASTREL_API int RASTREL_CALL SetLowMemStretch(int value);

/* The calling thread's stretch mode for drawing, 1 to 4, and 4 at first; kept in the same way. The setter
 * ignores other values, and returns the mode before. */
RASTREL_API int RASTREL_CALL DisplayGetStretchBltMode(void);
RASTREL_API int RASTREL_CALL DisplaySetStretchBltMode(int mode);

/* The steps of a zoom direction: `count` (1 to 10) of them, strictly increasing. */
typedef struct ScaleStepTable {
  int32_t count;
  int32_t steps[10];
} ScaleStepTable;

/* Sets what the calling thread's zoom commands step by.
 *
 *   base             the value that stands for 1:1 in a ratio, 1 to 1000
 *   zoomIn, zoomOut  the steps of each direction, the first of them `base`; null leaves a table as it is
 *
 * Returns 1, or 0 with nothing stored. Sets no error. */
RASTREL_API int RASTREL_CALL BZoomSetScaleSteps(int base, const ScaleStepTable* zoomIn,
                                                const ScaleStepTable* zoomOut);

/* Copies the calling thread's tables to the arguments that are not null, and returns the zoom base. */
RASTREL_API int RASTREL_CALL BZoomGetScaleSteps(ScaleStepTable* zoomIn, ScaleStepTable* zoomOut);

/* ---- DIB blocks and bitmap files ---- */

/* Reads the headers and the colour table of a bitmap from an open file, and leaves the file at the rows.
 *
 *   file  a descriptor (on Windows a file handle as the old-style calls take it) that stands at a 14-byte
 *         file header or at a bare bitmap header, of 40 or of 12 bytes
 *
 * Returns a block with a 40-byte header and the colour table, without rows, that the caller frees; or null
 * and
 *   ErrParameter   `file` is -1
 *   ErrFileIO      the headers are cut short
 *   ErrFileFormat  a header of another size
 *   ErrLockMemory  the block cannot be locked
 * No error is set where there is no memory for the block. */
RASTREL_API HGLOBAL RASTREL_CALL ReadDIBInfo(int file);

/* Returns the bytes of a colour table.
 *
 *   header  the address (not a handle) of a bitmap header: 4 bytes an entry for one of 40 bytes, 3 for any
 *           other; null gives 0 */
RASTREL_API int RASTREL_CALL PaletteSize(const void* header);

/* Returns a copy of a whole block, header and rows unseen, that the caller frees; null where there is no
 * memory. A block that cannot be locked gives a cleared copy. Sets no error. */
RASTREL_API HGLOBAL RASTREL_CALL DuplicateDIB(HGLOBAL dib);

/* Loads a bitmap file, with or without its 14-byte file header. Run-length rows are kept as they stand:
 * see ExpandCompressedDIB. Rows that the file lacks hold no particular values.
 *
 * Returns a DIB that the caller frees, or null and
 *   ErrOpenFile    the file cannot be opened
 *   ErrFileIO      the headers are cut short
 *   ErrFileFormat  not a header that is known
 *   ErrLockMemory  the block cannot be locked
 * No error is set where there is no memory. */
RASTREL_API HGLOBAL RASTREL_CALL LoadDIBFromFile(const char* fileName);

/* Writes a block as a bitmap file, in place of what the file held. A save that fails leaves a partial
 * file. A full disk is not noticed: compare the size of the file with the size field in it.
 *
 * Returns 1, or 0 and
 *   ErrParameter  null handle
 *   ErrOpenFile   the file cannot be created
 *   ErrFileIO     a write put nothing, or the block cannot be locked
 *   ErrDIBSize    there is no header in the block */
RASTREL_API int RASTREL_CALL SaveDIB(const char* fileName, HGLOBAL dib);

/* ---- pixels and palettes ---- */

/* Read and set one pixel of an uncompressed page of 1, 8 or 24 bits.
 *
 *   x, y    columns from the left, rows from the top
 *   colour  0x00BBGGRR; the top byte is ignored. At 1 and 8 bits a colour of the colour table
 *
 * These two have an idea of their own of where pixels lie: behind a full colour table, whatever biClrUsed
 * says, and at 1 bit with the leftmost pixel of a byte in its lowest bit, the reverse of every other
 * function.
 *
 * Return 1, or 0 for what is no such page or pixel and for a colour that the table lacks, which leaves one
 * more lock on `dib`. Set no error. */
RASTREL_API int RASTREL_CALL GetDIBPixelColor(HGLOBAL dib, unsigned x, unsigned y, COLORREF* colour);
RASTREL_API int RASTREL_CALL SetDIBPixelColor(HGLOBAL dib, unsigned x, unsigned y, COLORREF colour);

/* Makes a palette of a page's colours; of a page without a colour table, 8 reds, 8 greens and 4 blues, the
 * last entry white.
 *
 * Returns a palette that the caller deletes with DeleteObject, or null and
 *   ErrCreatePalette  a page's colours cannot become a palette: more than 65,535, no memory
 *   ErrDIBSize        a header or colour table cut short
 * Other failures set no error. Where there is no memory for the palette of a page without a colour table,
 * one more lock is left on `dib`. */
RASTREL_API HPALETTE RASTREL_CALL CreateDIBPalette(HGLOBAL dib);

/* Turns every colour of a page's colour table into 255 minus it. Returns 1 or 0; sets no error. */
RASTREL_API int RASTREL_CALL InvertDIBPalette(HGLOBAL dib);

/* Returns a palette of the screen's colours that the caller deletes with DeleteObject, or null and
 *   ErrCreateDC       no device context
 *   ErrCreatePalette  a screen without a limit of colours, no memory */
RASTREL_API HPALETTE RASTREL_CALL GetCurrentPalette(void);

/* Copies the colours of a screen that has a palette.
 *
 *   entries  room for all of them: 2 at 1 bit, 16 at 4, 256 at 8
 *
 * Returns 1; 0 for any other screen. Sets no error. */
RASTREL_API int RASTREL_CALL GetSystemPalette(RGBQUAD* entries);

/* ---- depth conversions ---- */

/* Expands a run-length compressed page of 8 or 4 bits with a full colour table. Decoding ends where the
 * data does, which is where the block ends; what it did not reach is 0.
 *
 * Returns a new page that the caller frees, with ErrSuccess set, or null and
 *   ErrParameter  null handle, not such a page, biSizeImage 0, a colour table cut short
 *   ErrNoMemory   no memory, or more than a block can hold
 *   ErrDIBSize    negative sizes */
RASTREL_API HGLOBAL RASTREL_CALL ExpandCompressedDIB(HGLOBAL dib);

/* Turns a page of 8 bits into one of 24 by its colour table; pages of 2, 16 and 32 bits are taken to have
 * a byte for each pixel. Width and height count modulo 65,536.
 *
 * Returns a new page that the caller frees, with ErrSuccess set, or null and
 *   ErrParameter     null handle, header size
 *   ErrLockMemory    the block cannot be locked
 *   ErrCompressed    not BI_RGB
 *   ErrBitsPerPixel  1 or 4 bits
 *   ErrNothingToDo   24 bits
 *   ErrDIBSize       no width or height, rows of more than 65,535 bytes, a block cut short
 *   ErrNoMemory      no memory for the result */
RASTREL_API HGLOBAL RASTREL_CALL Convert8to24(HGLOBAL dib);

/* ---- device bitmaps ----
 *
 * A bitmap is a device bitmap of the platform's. New ones belong to the caller, who frees them with
 * DeleteObject. */

/* Makes a page of a bitmap: of 1, 4, 8 or 24 bits, 24 for bitmaps of 16 and 32.
 *
 *   palette  the colour table, where it has no more entries than the depth has colours, else a standard
 *            one is taken: black and white, the 16 standard colours, a cube of 8 reds, 8 greens and 4
 *            blues. Null means the screen's (but for 1 bit)
 *
 * Returns a DIB that the caller frees, or null where the bitmap's pixels cannot be had, as while a device
 * context holds it. Sets no error of its own, but leaves ErrCreatePalette behind, with success, where a
 * palette is looked for on a screen of more than 8 bits. */
RASTREL_API HGLOBAL RASTREL_CALL ConvertBitmapToDIB(HBITMAP bitmap, HPALETTE palette);

/* Makes a bitmap of a page: of 1 bit for one of 1 bit (each colour the nearer of black and white), else of
 * the screen's depth.
 *
 * Returns a new bitmap, or null and
 *   ErrCreateBitmap  it cannot be made
 *   ErrDIBSize       a block cut short, a size below 1
 * A dead handle sets no error. */
RASTREL_API HBITMAP RASTREL_CALL ConvertDIBToBitmap(HGLOBAL dib);

/* Returns a copy of a bitmap, or null and
 *   ErrNoMemory  no memory
 *   ErrCopyBits  its bits cannot be had */
RASTREL_API HBITMAP RASTREL_CALL DuplicateBitmap(HBITMAP bitmap);

/* Makes a bitmap of 1 bit: white where red + green + blue is 383 or more, half of what they can be.
 *
 * Returns a new bitmap, or null and
 *   ErrParameter  null handle
 *   ErrNoMemory   no memory */
RASTREL_API HBITMAP RASTREL_CALL ConvertToMonochromeBitmap(HBITMAP bitmap);

/* Loads a bitmap file as ConvertDIBToBitmap gives it, with the errors of LoadDIBFromFile and of that. */
RASTREL_API HBITMAP RASTREL_CALL LoadBitmapFromFile(const char* fileName);

/* Saves a bitmap as ConvertBitmapToDIB gives it, and returns what SaveDIB returns; 0 when there is no such
 * bitmap. The page made on the way is never freed: convert and save in two steps where that matters. */
RASTREL_API int RASTREL_CALL SaveBitmap(const char* fileName, HBITMAP bitmap, HPALETTE palette);

/* ---- geometry ---- */

/* Mirror a page of 1, 4, 8, 15, 16, 24 or 32 bits upside down, or left to right; left to right, other
 * depths come out blank.
 *
 * Return a new page that the caller frees, or null: no such block, a block cut short, no memory. Set no
 * error. */
RASTREL_API HGLOBAL RASTREL_CALL FlipDIBVertical(HGLOBAL dib);
RASTREL_API HGLOBAL RASTREL_CALL FlipDIBHorizontal(HGLOBAL dib);

/* Turns a page of 1, 2, 4, 8, 16, 24 or 32 bits by quarters. Every pixel is kept; on odd turns width and
 * height, and the resolutions, change places.
 *
 *   quarterTurns  counter-clockwise, any number, negative ones too
 *
 * Returns a new page that the caller frees, with ErrSuccess set, or null and
 *   ErrParameter     null handle
 *   ErrLockMemory    the block cannot be locked
 *   ErrFileFormat    header size
 *   ErrCompressed    not BI_RGB
 *   ErrDIBSize       a width or height whose low 16 bits are 0, a block cut short
 *   ErrBitsPerPixel  other depths
 *   ErrCreateBitmap  no memory for the result */
RASTREL_API HGLOBAL RASTREL_CALL TurnDIB(HGLOBAL dib, int quarterTurns);

/* Mirror a bitmap, turn it upside down, or invert it, in place. A failure leaves the bitmap as it was.
 *
 * Return 1, or 0 and, but for InvertBitmap, which sets none,
 *   ErrBitmapParams  not a bitmap
 *   ErrNoMemory      no memory
 *   ErrCopyBits      its bits cannot be had */
RASTREL_API int RASTREL_CALL FlipBitmapVertical(HBITMAP bitmap);
RASTREL_API int RASTREL_CALL FlipBitmapHorizontal(HBITMAP bitmap);
RASTREL_API int RASTREL_CALL RotateBitmap180(HBITMAP bitmap);
RASTREL_API int RASTREL_CALL InvertBitmap(HBITMAP bitmap);

/* Turn a bitmap by a quarter, counter-clockwise (90) or clockwise (270). Of a 1-bit bitmap turned
 * clockwise the leftmost column stays 0.
 *
 * Return a new bitmap, or null and
 *   ErrBitmapParams  not a bitmap
 *   ErrNoMemory      no memory
 *   ErrCopyBits      its bits cannot be had
 *   ErrCreateBitmap  the new one cannot be made */
RASTREL_API HBITMAP RASTREL_CALL RotateBitmap90(HBITMAP bitmap);
RASTREL_API HBITMAP RASTREL_CALL RotateBitmap270(HBITMAP bitmap);

/* Cuts a page into tiles. Tiles begin at multiples of the tile's padded row length: the grid is exact when
 * tileWidth x bits is a multiple of 32; otherwise padding carries the pixels between.
 *
 *   tileWidth, tileHeight  in pixels
 *   tileArray              receives a block of handles, the bottom row of tiles first, each a page of its
 *                          own; the caller frees the tiles and the array
 *   gridCounts             receives the number of columns and of rows
 *
 * Returns 1, or 0 with nothing left allocated. Sets no error. */
RASTREL_API int RASTREL_CALL SplitDIB(HGLOBAL dib, int tileWidth, int tileHeight, HGLOBAL* tileArray,
                                      int* gridCounts);

/* Joins a grid of tiles, as SplitDIB makes it, into a page with the first tile's colours. Array and tiles
 * stay the caller's.
 *
 * Returns a new page that the caller frees, or null for tiles that are no pages or do not fit together.
 * Sets no error. */
RASTREL_API HGLOBAL RASTREL_CALL MergeDIBs(HGLOBAL tileArray, int columns, int rows);

/* Turns a page of 1, 4, 8 or 24 bits about its centre, taking the nearest source pixel. The result holds
 * the whole turned page; its width and height are even, and what lies outside the page is 0. Resolutions
 * turn with the page.
 *
 *   angle  degrees, counter-clockwise
 *
 * Returns a new page that the caller frees, with ErrSuccess set, or null and
 *   ErrParameter     null handle, an angle that is not a finite number
 *   ErrLockMemory    the block cannot be locked
 *   ErrFileFormat    header size
 *   ErrCompressed    not BI_RGB
 *   ErrDIBSize       a width or height whose low 16 bits are 0, a block cut short
 *   ErrBitsPerPixel  other depths
 *   ErrCreateBitmap  no memory for the result */
RASTREL_API HGLOBAL RASTREL_CALL RotateDIB(HGLOBAL dib, double angle);

/* RotateDIB by 90, 180 and 270 degrees. As there, sizes come out even and a line of pixels may be lost. */
RASTREL_API HGLOBAL RASTREL_CALL RotateDIB90(HGLOBAL dib);
RASTREL_API HGLOBAL RASTREL_CALL RotateDIB180(HGLOBAL dib);
RASTREL_API HGLOBAL RASTREL_CALL RotateDIB270(HGLOBAL dib);

/* Turns a page of 1, 4, 8 or 24 bits about its centre, smoothly and with a colour of its own around it. A
 * page is straightened by the reverse of its skew.
 *
 *   angleDegrees  counter-clockwise
 *   quality       0 takes the nearest source pixel. 1 mixes the four source pixels around by their
 *                 distance (bilinear), the background's among them at the page's edges. At 1 bit the
 *                 nearest is taken, or the three others' colour where it is less than 42 % of that:
 *                 strokes keep their weight, and dots and hairlines every pixel. Pages of 4 and 8 bits are
 *                 mixed if their colour table has only greys, and a mixture becomes the nearest of these;
 *                 else the nearest source pixel is taken, as indices of colours cannot be mixed.
 *                 STRAIGHTEN_SAME_SIZE may be added
 *   background    0x00BBGGRR, or the colour table's nearest to it
 *
 * The result holds the whole turned page: with W, H and r for its width, height and angle after the
 * nearest number of quarter turns, it is W + 2 ceil((W cos r + H |sin r| - 1 - W) / 2) wide, the least
 * width that differs from W by an even number and holds the centres of all pixels, and as high with W and
 * H exchanged; so the centres of both lie alike between pixels. With STRAIGHTEN_SAME_SIZE it has the
 * page's own width and height, and what sticks out is cut. Quarter turns are exact. Resolutions and the
 * colour table are the page's; resolutions are exchanged with the sides, when the angle is nearer to 90 or
 * 270 degrees.
 *
 * Returns a new page that the caller frees, with ErrSuccess set, or null and
 *   ErrParameter     null handle, an angle that is not a finite number, other bits in `quality`
 *   ErrLockMemory    the block cannot be locked
 *   ErrFileFormat    header size
 *   ErrCompressed    not BI_RGB
 *   ErrDIBSize       width or height below 1, a block cut short
 *   ErrBitsPerPixel  other depths
 *   ErrNoMemory      no memory, or more than a block can hold */
RASTREL_API HGLOBAL RASTREL_CALL StraightenDIB(HGLOBAL dib, double angleDegrees, int quality,
                                               COLORREF background);
enum { STRAIGHTEN_SAME_SIZE = 0x100 };

/* ---- tone ---- */

/* Dither a page of 4, 8 or 24 bits to fewer by error diffusion, with the weights that Floyd and Steinberg
 * published in 1976, in sixteenths, or those of Jarvis, Judice and Ninke of the same year, in
 * forty-eighths.
 *
 *   bits  1 (black and white), 4 (eight colours at even indices) or 8 (a cube of 8 reds, 8 greens and 4
 *         blues)
 *
 * Return a new page that the caller frees, with ErrSuccess set, or null and
 *   ErrParameter        other `bits`; null handle (DitherFS4)
 *   ErrLockMemory       null handle (DitherJJN); the block cannot be locked (DitherFS4)
 *   ErrDitherParameter  not fewer bits than the page has, or a depth not listed; one more lock is left on
 *                       `dib`
 *   ErrNoMemory         no memory; the block cannot be locked (DitherJJN) */
RASTREL_API HGLOBAL RASTREL_CALL DitherFS4(HGLOBAL dib, int bits);
RASTREL_API HGLOBAL RASTREL_CALL DitherJJN(HGLOBAL dib, int bits);

/* Reduces a page of 4, 8 or 24 bits to black and white. Of a page of 24 bits only every third row is
 * reduced, to the lower third of a result that is blank above: make it grey before.
 *
 *   method      0 threshold at 128, 1 error diffusion, 2 ordered by a matrix of 16 x 16
 *   brightness  added to every grey first
 *   error       receives the error, on failure only; may be null
 *
 * Returns a new page that the caller frees, or null and, in `*error` alone (the thread's error is never
 * touched),
 *   ErrParameter  null handle, other method, other depth (which leaves one more lock on `dib`)
 *   ErrNoMemory   no memory, the block cannot be locked
 *   ErrDIBSize    a block smaller than its header says */
RASTREL_API HGLOBAL RASTREL_CALL Halftone(HGLOBAL dib, uint16_t method, int brightness, uint16_t* error);

/* Dither a page of 4, 8 or 24 bits to fewer by handing out the tone of small blocks anew, to their
 * brightest pixels first. What is left goes on to the next block: whole in DitherSmooth, for photographs,
 * half in DitherSharp, for text and line art. To 1 bit, a page's second row from the bottom and the first
 * pixel of its bottom row count by their red alone.
 *
 *   bits  1 or 4, as in DitherFS4
 *
 * Return a new page that the caller frees, with ErrSuccess set, or null and
 *   ErrParameter        other `bits`
 *   ErrLockMemory       null handle
 *   ErrDitherParameter  not fewer bits than the page has, or a depth not listed; one more lock is left on
 *                       `dib`
 *   ErrNoMemory         no memory, the block cannot be locked */
RASTREL_API HGLOBAL RASTREL_CALL DitherSmooth(HGLOBAL dib, int bits);
RASTREL_API HGLOBAL RASTREL_CALL DitherSharp(HGLOBAL dib, int bits);

/* Turn a page of 1 bit into one of 8 bits and 256 greys. Both names do the same.
 *
 *   method  0: black stays 0, white 255. 1 and 2: each pixel becomes the share of white in the 3 x 3 or 5
 *           x 5 pixels around it
 *
 * Colour 0 is white when its red, green and blue are all above 127, else colour 1 is. Smoothed pages come
 * out shifted by one or two rows towards the top; pages of less than 6 rows are smoothed 3 x 3 at most,
 * and those of less than 4 are not smoothed by method 2.
 *
 * Return a new page that the caller frees, with ErrSuccess set, or null and
 *   ErrParameter   null handle, header size, other method
 *   ErrLockMemory  the block cannot be locked
 *   ErrCompressed  not 1 bit, not BI_RGB, planes not 1
 *   ErrDIBSize     bad size, a block cut short
 *   ErrNoMemory    no memory for the result */
RASTREL_API HGLOBAL RASTREL_CALL ConvertMonoDIBtoGrayscale(HGLOBAL dib, uint32_t method);
RASTREL_API HGLOBAL RASTREL_CALL ConvMonoDIBtoGrayscale(HGLOBAL dib, uint32_t method);

/* Turns a page into grey: of 4 or 8 bits by its colour table, pixels as they are; of 24 bits into 8 bits
 * and 256 greys; of 1 bit as ConvertMonoDIBtoGrayscale does, but set bits are always white. Other depths
 * give a black page of 8 bits.
 *
 *   weighted  non-zero: a colour's grey is (8 red + 15 green + 3 blue) / 26, near the weights 0.30, 0.59
 *             and 0.11 that television gives the three; else their mean
 *   method    that of ConvertMonoDIBtoGrayscale; for pages of 1 bit only
 *
 * Returns a new page that the caller frees, with ErrSuccess set and one more lock left on `dib` (unlock
 * it), or null and
 *   ErrParameter   null handle, header size, other method
 *   ErrLockMemory  the block cannot be locked
 *   ErrCompressed  not BI_RGB
 *   ErrDIBSize     bad size, a block cut short
 *   ErrNoMemory    no memory for the result */
RASTREL_API HGLOBAL RASTREL_CALL ConvColorDIBtoGrayscale(HGLOBAL dib, int weighted, uint32_t method);

/* Tells whether a page is blank.
 *
 *   tolerance   tenths of a percent of the pixels, 0 to 1000; others count as the nearest
 *   background  0x00BBGGRR: what is lighter in red, green and blue each is paper, at 8 and 24 bits; at 24
 *               bits its red and blue change places
 *
 * At 1 bit (two greys; others give 0) a page is blank when fewer pixels than the tolerance are ink: those
 * of colour 0 when it is black, else those of colour 1. At 8 and 24 bits it is blank when more pixels are
 * paper than the tolerance leaves. Other depths give 0.
 *
 * Returns 1 when it is blank, 0 when it is not, -1 when it cannot be read. Sets no error. */
RASTREL_API int RASTREL_CALL IsImageBlank(HGLOBAL dib, int tolerance, COLORREF background);

/* ---- page cleanup ---- */

/* Measures the skew of a page of 1, 8 or 24 bits in whole degrees.
 *
 *   darkForeground  non-zero for dark text on a light ground
 *   showProgress    opens a progress window whose Cancel button ends the work
 *   parent          that owns the window
 *
 * Returns by how many degrees (-44 to 45) the lines rise to the right; 0 when that cannot be told and when
 * anything fails. Sets no error. */
RASTREL_API int RASTREL_CALL DetectSkewAngle(HGLOBAL dib, int darkForeground, int showProgress, HWND parent);

/* How MeasureSkew is to measure. All 0 is what null options mean. */
typedef struct SkewOptions {
  double range; /* how far a page may be turned to either side: degrees, 45 at most; 0 for 15 */
  int polarity; /* 1 for dark text on a light ground, 2 for light text on a dark one, 0 to find out */
} SkewOptions;

/* What MeasureSkew finds. */
typedef struct SkewResult {
  double angle;      /* by how many degrees the lines rise to the right */
  double confidence; /* how sure that is, 0 to 1 */
  int hasStructure;  /* whether there is enough on the page to tell at all */
  int polarity;      /* the one that was measured, 1 or 2 */
} SkewResult;

/* Measures the skew of a page of 1, 4, 8 or 24 bits to hundredths of a degree, in pixels: where the
 * resolutions in x and y differ, the angle is not that on paper. A page turned by StraightenDIB with minus
 * the angle is straight.
 *
 *   options  null for the usual ones
 *   result   receives what was found. Leave a page as it is when the confidence is below 0.5: of the
 *            angles above that none was wrong by a quarter of a degree in our tests, but a photograph that
 *            fills the page may, rarely, be taken for text (docs/skew.md)
 *
 * A page that shows no lines has no structure, no angle and no confidence, and is no failure.
 *
 * Returns 1, or 0 and
 *   ErrParameter     null handle or result, bad options
 *   ErrLockMemory    the block cannot be locked
 *   ErrFileFormat    header size
 *   ErrCompressed    not BI_RGB
 *   ErrDIBSize       bad size, a block cut short
 *   ErrBitsPerPixel  other depths
 *   ErrNoMemory      no memory */
RASTREL_API int RASTREL_CALL MeasureSkew(HGLOBAL dib, const SkewOptions* options, SkewResult* result);

/* Where the corners of a sheared page lie, in pixels, y downward from the top of the new page: top left,
 * top right, bottom right, bottom left. */
typedef struct SkewCorners {
  int32_t x0, y0, x1, y1, x2, y2, x3, y3;
} SkewCorners;

/* Shears a page. It grows by |shift|; what is uncovered is 0.
 *
 *   horizontal  non-zero moves rows sideways, a positive shift the top edge to the right; 0 moves columns,
 *               a positive shift the right edge up (depths other than 1, 4, 8 and 24 come out blank then)
 *   shift       pixels
 *   error       receives the error too, on failure only; may be null
 *   corners     receives where the old corners went; by columns the whole top or bottom edge counts as
 *               moved; may be null
 *
 * Returns a new page that the caller frees, with ErrSuccess set and one more lock left on `dib` (unlock
 * it), or null and
 *   ErrParameter   null handle, header size
 *   ErrLockMemory  the block cannot be locked
 *   ErrCompressed  not BI_RGB
 *   ErrDIBSize     bad size, a block cut short
 *   ErrNoMemory    no memory for the result */
RASTREL_API HGLOBAL RASTREL_CALL SkewDIB(HGLOBAL dib, int horizontal, int shift, uint32_t* error,
                                         SkewCorners* corners);

/* Makes the dark margins at the left and right end of every row of a page of 1, 8 or 24 bits white: at 8
 * bits index 255, whatever its colour. A 1-bit page whose entry 0 is not black comes back as it was.
 *
 * Returns a new page that the caller frees, or null. Sets no error. */
RASTREL_API HGLOBAL RASTREL_CALL TrimBlackBorder(HGLOBAL dib);

/* Turns a page back by the skew that DetectSkewAngle finds.
 *
 *   darkForeground, showProgress, parent  as there
 *   trimBorder                            also trims its black border, if the text is dark
 *
 * Returns a new page that the caller frees, or null when there is no skew and when anything fails. Sets no
 * error of its own. */
RASTREL_API HGLOBAL RASTREL_CALL DeskewDIB(HGLOBAL dib, int darkForeground, int showProgress, HWND parent,
                                           int trimBorder);

/* Paints the dark punch holes at the left edge of a page of 1, 8 or 24 bits white. The page needs equal
 * resolutions in x and y.
 *
 *   holeSize              -3, -2, -1, 0 for holes of 9, 7, 5, 4 mm, or n of 1 and more for n / 2 + 2 mm
 *   showProgress, parent  as for DetectSkewAngle
 *
 * Returns a new page that the caller frees, or null. Sets no error. */
RASTREL_API HGLOBAL RASTREL_CALL PunchHoleRemover(HGLOBAL dib, int holeSize, int showProgress, HWND parent);

/* Paints dark blobs of more than 4 mm within 19 mm of the left edge, not markedly taller than wide, white
 * as punch holes: each is measured, none needs a size. Otherwise as PunchHoleRemover. */
RASTREL_API HGLOBAL RASTREL_CALL AutoPunchHoleRemover(HGLOBAL dib, int showProgress, HWND parent);

/* Cuts out the scanned sheet that a 1-bit page shows. A column or row belongs to the sheet when enough of
 * its pixels have the sheet's bit.
 *
 *   fraction        how much is enough, 0 to 1
 *   x               the column from which on the left edge is looked for; receives the right edge, also
 *                   when no rows are found then
 *   margin          pixels added around the sheet; less than a quarter of the page
 *   darkForeground  the sheet's bit is 0 when set, else 1
 *   noDeskew        unless set, the page is straightened first, and one that is straight already fails
 *
 * Returns a new page that the caller frees, or null and
 *   ErrParameter       bad argument
 *   ErrLockMemory      the block cannot be locked
 *   ErrBitmapParams    header size
 *   ErrHeaderBitCount  planes or depth not 1
 *   ErrCompressed      not BI_RGB
 *   ErrNoMemory        no memory, or already straight
 *   ErrNoScannedPage   no sheet found
 *   ErrDIBSize         a block cut short */
RASTREL_API HGLOBAL RASTREL_CALL CropToEdges(HGLOBAL dib, double fraction, uint32_t* x, int margin,
                                             int darkForeground, int noDeskew);

/* Copies a rectangle of a page of 1, 2, 4, 8, 16, 24 or 32 bits.
 *
 *   left, right  first and last column, both inside the result
 *   top, bottom  first and last row, counted from the top
 *
 * Returns a new page that the caller frees, with one more lock on it (unlock it), or null and
 *   ErrParameter     null handle, a rectangle that is not inside the page, other depths
 *   ErrLockMemory    the block cannot be locked
 *   ErrBitmapParams  header size
 *   ErrDIBSize       a block cut short
 *   ErrNoMemory      no memory for the result */
RASTREL_API HGLOBAL RASTREL_CALL CropDIB(HGLOBAL dib, int left, int top, int right, int bottom);

/* Cuts a page of 1, 4, 8 or 24 bits across. The biSizeImage of both pieces is that of the first.
 *
 *   rows    of the upper piece
 *   first   receives a new page of the rows below
 *   second  receives a new page of the upper `rows` rows
 *
 * Returns 1, or 0 and handles that mean nothing. Sets no error. */
RASTREL_API int RASTREL_CALL CutDIB(HGLOBAL dib, int rows, HGLOBAL* first, HGLOBAL* second);

/* Removes specks from a black-and-white page, or from an 8-bit page of 256 greys. The rows are taken to
 * start at 40 + 4 * biClrUsed, also when that is 0.
 *
 *   level       20 to 100. At 1 bit a pixel with more than level x 8 / 100 set neighbours, of its 8, is
 *               set, and one with fewer cleared; at 8 bits a pixel becomes the k-th darkest of its
 *               neighbours, with k = (120 - level) x 9 / 100. Where entry 0 is black, level and 120 -
 *               level change places
 *   fullFilter  every pixel is filtered; else only those that look like specks
 *
 * Returns a new page that the caller frees, or null. Sets no error. */
RASTREL_API HGLOBAL RASTREL_CALL CleanImage(HGLOBAL dib, int level, int fullFilter);

/* ---- scaling ---- */

/* Makes a page of 1, 4, 8 or 24 bits of another size, with its own depth and colour table. A 1-bit page is
 * made of its nearest pixels. With a colour table colours become its nearest, and black at the beginning
 * of a row index 0.
 *
 *   cubic                cubic convolution, with the page taken to have a black row below its bottom row;
 *                        else bilinear
 *   newWidth, newHeight  pixels; but at 1 bit they count modulo 65,536
 *
 * Returns a new page that the caller frees, the thread's error as it was; or null and, but for 1-bit
 * pages, which set none,
 *   ErrParameter       null handle, a size of 0
 *   ErrNoMemory        no memory, the block cannot be locked
 *   ErrCompressed      not BI_RGB (4 and 8 bits)
 *   ErrHeaderBitCount  other depths
 *   ErrDIBSize         a block cut short */
RASTREL_API HGLOBAL RASTREL_CALL ScaleDIB(HGLOBAL dib, int cubic, int newWidth, int newHeight);

/* Enlarges a rectangle of a page of 4 or 8 bits whose colour table is a grey ramp. Most greys come out one
 * index lower.
 *
 *   left, top, width, height  in pixels; `top` counts from the bottom row
 *   xFactor, yFactor          whole factors, 1 and more
 *   mode                      0 bilinear, 1 cubic convolution
 *
 * Returns a new page that the caller frees, or null for what is not such a page, a rectangle outside it, a
 * factor below 1 or a result of more than 32,767 pixels in a direction. Sets no error. */
RASTREL_API HGLOBAL RASTREL_CALL ScaleGrayDIB(HGLOBAL dib, int16_t left, int16_t top, int16_t width,
                                              int16_t height, int16_t xFactor, int16_t yFactor, int16_t mode);

/* ---- combining ---- */

/* Lay a source onto a destination.
 *
 *   x, y         where the source's top left pixel comes to lie; what lies outside the destination is
 *                clipped, and nothing left is a success
 *   destination  changed in place; where it is null it becomes a copy of the source
 *   mask         null, or as large as the source: only where it is black the source counts. It is reduced
 *                to black and white, white from red + green + blue of 383 on
 *   andFlag      combines red, green and blue by AND, so that dark wins; else the source replaces what is
 *                there
 *
 * CombineBMP takes bitmaps, and draws the mask into the source as well. CombineDIB takes pages of any two
 * depths: the destination keeps its size, depth and colour table (but on a screen with a palette, whose
 * colours it takes over), colours become its nearest, and source and mask stay as they were.
 *
 * Return non-zero, or 0 and
 *   ErrParameter     null source
 *   ErrCopyBits      the copy failed
 *   ErrDIBSize       a mask of another size
 *   ErrCreateBitmap  CombineDIB: a page that is cut short, compressed, or of another depth than 1, 4, 8,
 *                    16, 24 and 32 */
RASTREL_API int RASTREL_CALL CombineBMP(int x, int y, HBITMAP* destination, HBITMAP source, HBITMAP mask,
                                        int andFlag);
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
 * ratio on show, if there is a record of it, as the current one, words[12] to [15], step it into the
 * working one, words[1] to [4], and write that back. A mode is 0x10 (waits for the mouse) or 0x20 (at
 * once) plus 1 (no step), 2 or 3 (in or out to the next value of the thread's step tables), 4 or 5 (in or
 * out by about 5 percent); other modes leave the ratio as it is. Steps go by x, and y is made equal.
 * Windows, points and rectangles are not used and may be null; without a zoom record nothing is done. */
RASTREL_API void RASTREL_CALL BZoomStart(HWND window, const POINT* point, const RECT* rect, int mode,
                                         ZoomRecord* zoom, int reserved);
RASTREL_API void RASTREL_CALL BZoomEnd(HWND window, ZoomRecord* zoom, DisplayRecord* display);
RASTREL_API void RASTREL_CALL BZoomScreenEnd(HWND window, ZoomRecord* zoom, ScreenRecord* screen);

/* A whole zoom command at once; nothing at all when `mode` has bit 0x10, which waits for the mouse.
 * Without a record of what is on show the caller's current ratio, words[12] to [15], is stepped. */
RASTREL_API void RASTREL_CALL BZoomStep(HWND window, const RECT* rect, int mode, ZoomRecord* zoom,
                                        DisplayRecord* display);
RASTREL_API void RASTREL_CALL BZoomScreenStep(HWND window, const RECT* rect, int mode, ZoomRecord* zoom,
                                              ScreenRecord* screen);

#ifdef __cplusplus
}
#endif

#endif
