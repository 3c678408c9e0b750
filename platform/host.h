/* Rastrel's host layer: what the library needs of the platform it was written for, in memory, for every
 * build but Windows. Plain C11, installed as <rastrel_host.h> and included by <rastrel.h>.
 *
 * The types and the Global... operations have the platform's names, argument orders and results, so that a
 * program that uses the library reads the same everywhere. All of them may be called from any thread.
 * RastrelHost... sets what a host without the platform's screen can offer of its own. */
#ifndef RASTREL_HOST_H
#define RASTREL_HOST_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define RASTREL_HOST_API __attribute__((visibility("default")))

typedef void* HGLOBAL;
typedef void* HWND;
typedef void* HGDIOBJ; /* a bitmap or a palette, where either may stand */
typedef void* HBITMAP;
typedef void* HPALETTE;
typedef uint32_t COLORREF; /* red in the low byte, then green, then blue */

/* The records of a packed bitmap, laid out as they lie in memory and in files.
 *
 * Other imaging libraries declare some of these under the same names and with the same layout, and agree by
 * _WINDOWS_ on who has done so. Their records are taken where their header stands first; where this one does,
 * it declares all that they expect of whoever came before. A program whose other header goes by no such mark
 * includes that one first and defines RASTREL_NO_HOST_RECORDS: no record is declared here then. */
#ifndef _WINDOWS_
#define _WINDOWS_
#ifndef FALSE
#define FALSE 0
#define TRUE 1
#endif
typedef int32_t BOOL;
typedef uint8_t BYTE;
typedef uint16_t WORD;
typedef uint32_t DWORD;
typedef int32_t LONG;
typedef int64_t INT64;
typedef uint64_t UINT64;

#ifndef RASTREL_NO_HOST_RECORDS
typedef struct tagBITMAPINFOHEADER {
  uint32_t biSize;
  int32_t biWidth;
  int32_t biHeight;
  uint16_t biPlanes;
  uint16_t biBitCount;
  uint32_t biCompression;
  uint32_t biSizeImage;
  int32_t biXPelsPerMeter;
  int32_t biYPelsPerMeter;
  uint32_t biClrUsed;
  uint32_t biClrImportant;
} BITMAPINFOHEADER;

typedef struct tagRGBQUAD {
  uint8_t rgbBlue;
  uint8_t rgbGreen;
  uint8_t rgbRed;
  uint8_t rgbReserved;
} RGBQUAD;

typedef struct tagRGBTRIPLE {
  uint8_t rgbtBlue;
  uint8_t rgbtGreen;
  uint8_t rgbtRed;
} RGBTRIPLE;

typedef struct tagBITMAPINFO {
  BITMAPINFOHEADER bmiHeader;
  RGBQUAD bmiColors[1];
} BITMAPINFO;
#endif
#endif

#ifndef RASTREL_NO_HOST_RECORDS
typedef struct tagBITMAPCOREHEADER {
  uint32_t bcSize;
  uint16_t bcWidth;
  uint16_t bcHeight;
  uint16_t bcPlanes;
  uint16_t bcBitCount;
} BITMAPCOREHEADER;

/* A device bitmap: rows from the top down, bmWidthBytes each, padded to 2 bytes. */
typedef struct tagBITMAP {
  int32_t bmType; /* 0 */
  int32_t bmWidth;
  int32_t bmHeight;
  int32_t bmWidthBytes;
  uint16_t bmPlanes;
  uint16_t bmBitsPixel;
  void* bmBits;
} BITMAP;

typedef struct tagPALETTEENTRY {
  uint8_t peRed;
  uint8_t peGreen;
  uint8_t peBlue;
  uint8_t peFlags;
} PALETTEENTRY;

typedef struct tagLOGPALETTE {
  uint16_t palVersion; /* 0x300 */
  uint16_t palNumEntries;
  PALETTEENTRY palPalEntry[1]; /* palNumEntries of them */
} LOGPALETTE;

typedef struct tagPOINT {
  int32_t x;
  int32_t y;
} POINT;

typedef struct tagRECT {
  int32_t left;
  int32_t top;
  int32_t right;
  int32_t bottom;
} RECT;
#endif

#define BI_RGB 0u
#define BI_RLE8 1u
#define BI_RLE4 2u

/* ---- memory blocks ----
 *
 * A block is reached through a handle. Handles that are null, made up, freed, or freed and used again for
 * another block are told apart from live ones. */

#define GMEM_MOVEABLE 0x0002u
#define GMEM_ZEROINIT 0x0040u
#define GMEM_LOCKCOUNT 0x00FFu      /* the lock count's part of what GlobalFlags returns */
#define GMEM_INVALID_HANDLE 0x8000u /* what GlobalFlags returns for a dead handle */

/* Returns a new block of `bytes`, rounded up to a multiple of 8, or null. GMEM_ZEROINIT clears it, the
 * rounding included; without it the content is whatever the memory held. Every block is movable. */
RASTREL_HOST_API HGLOBAL GlobalAlloc(unsigned flags, size_t bytes);

/* Returns the block's address and adds one to its lock count (which stays at 255 once there); null for a
 * dead handle or a block of size 0. */
RASTREL_HOST_API void* GlobalLock(HGLOBAL block);

/* Takes one off the lock count. Returns 1 while the block is still locked, 0 when it no longer is, when it
 * was not locked, and for a dead handle. */
RASTREL_HOST_API int GlobalUnlock(HGLOBAL block);

/* Changes a block's size and returns its handle, or null with the block as it was. GMEM_ZEROINIT clears the
 * added bytes. A locked block may move as well: addresses taken before are void. */
RASTREL_HOST_API HGLOBAL GlobalReAlloc(HGLOBAL block, size_t bytes, unsigned flags);

/* Returns the rounded size, 0 for a dead handle. */
RASTREL_HOST_API size_t GlobalSize(HGLOBAL block);

/* Returns the lock count, or GMEM_INVALID_HANDLE. */
RASTREL_HOST_API unsigned GlobalFlags(HGLOBAL block);

/* Frees a block, locked or not, and returns null; a dead handle is returned and nothing changes. */
RASTREL_HOST_API HGLOBAL GlobalFree(HGLOBAL block);

/* Nothing is ever compacted here. Returns `bytes`. */
RASTREL_HOST_API size_t GlobalCompact(size_t bytes);

/* ---- device bitmaps and palettes ----
 *
 * In memory, of 1, 4, 8, 16, 24 and 32 bits for each pixel. Pixels of 1 and 4 bits lie leftmost in the high
 * bits; 1 is white at 1 bit; 16 bits are 5 red, 5 green, 5 blue with red in the high bits; 24 and 32 bits are
 * blue, green, red and, at 32, a byte that conversions write as 0 and never read. Pixels of 4 and 8 bits are
 * indices of whatever colour table the bitmap is used with. Several planes (planes times bits at most 32)
 * hold the bits of a pixel, plane 0 the lowest; such a pixel is read as one of the next depth listed. Bits of
 * a bitmap of less than 65,536 bytes have the planes of a row one after another; from there on each plane is
 * whole. */

/* Returns a new bitmap that starts with `bits` (zeros without), or null: a negative size, a depth not listed,
 * more than 2^31 - 1 bytes, no memory. A width or height of 0 gives a bitmap of one black pixel of 1 bit, as
 * the platform does. */
RASTREL_HOST_API HBITMAP CreateBitmap(int width, int height, unsigned planes, unsigned bitsPerPixel,
                                      const void* bits);

/* The same from a record; its row length is not looked at. bmBits may be null. */
RASTREL_HOST_API HBITMAP CreateBitmapIndirect(const BITMAP* bitmap);

/* Writes what describes a bitmap (a BITMAP with null bits) or a palette (its entry count, 16 bits) and
 * returns the bytes written: 0 for other handles and for less than a whole BITMAP's room. A null buffer is
 * told the bytes that it needs. */
RASTREL_HOST_API int GetObjectA(HGDIOBJ object, int bytes, void* buffer);

/* Copy a bitmap's bits, `bytes` of them at most, from the first on. Return the bytes copied; with a null
 * buffer GetBitmapBits returns the bytes that there are. */
RASTREL_HOST_API int32_t GetBitmapBits(HBITMAP bitmap, int32_t bytes, void* buffer);
RASTREL_HOST_API int32_t SetBitmapBits(HBITMAP bitmap, uint32_t bytes, const void* buffer);

/* Returns a new palette of the entries given (1 to 65,535), or null; a palVersion other than 0x300 is
 * refused. */
RASTREL_HOST_API HPALETTE CreatePalette(const LOGPALETTE* palette);

/* Copies entries from `first` on, as many as there are, and returns their number. With a null buffer it
 * returns the number of all entries. */
RASTREL_HOST_API unsigned GetPaletteEntries(HPALETTE palette, unsigned first, unsigned count,
                                            PALETTEENTRY* entries);

/* Deletes a bitmap or a palette and returns 1; 0 for other handles and for a bitmap that a device context
 * holds. */
RASTREL_HOST_API int DeleteObject(HGDIOBJ object);

/* ---- what the host shows ----
 *
 * Set these before the library is used, or while no operation runs. Each is copied; null takes it away. */

/* The screen that device bitmaps are made for: 1, 4, 8, 16, 24 or 32 bits for each pixel and, at 8 and less,
 * 0 to 2^bits palette entries; with none it has the standard colours and is no palette device: black and
 * white, the 16 colours, or 3 bits of red, 3 of green and 2 of blue. At first 32 bits. Returns 1, or 0 and
 * leaves the screen as it was. */
RASTREL_HOST_API int RastrelHostSetScreen(int bitsPerPixel, const PALETTEENTRY* palette, int entries);

/* Shows a progress window. Any function may be null. Windows are named by handles that the layer makes;
 * all calls for one window come on the thread that runs the operation. */
typedef struct RastrelProgressPresenter {
  void* context; /* passed back as it is */

  /* A window is about to open. Returns 0 to refuse it, and the operation fails. */
  int (*open)(void* context, HWND window, const char* caption, HWND parent);

  /* The bar stands at `position` of 0 .. `end`. */
  void (*progress)(void* context, HWND window, int position, int end);

  /* Asked between steps: non-zero when the user pressed Cancel. */
  int (*cancelled)(void* context, HWND window);

  void (*close)(void* context, HWND window);

  /* The program's own windows: an operation disables its parent window while it runs. A parent that is
   * not known to be enabled is left alone. */
  int (*isEnabled)(void* context, HWND parent);
  void (*enable)(void* context, HWND parent, int enabled);
} RastrelProgressPresenter;

/* Closes a progress window, on the thread that opened it. Operations close their own, but for some failures
 * after the window was opened (a depth that they do not take, no memory): those leave it open, with the
 * presenter that opened it and the parent disabled, for the program to close. Returns 1, or 0 when there is
 * no such window. */
RASTREL_HOST_API int DestroyWindow(HWND window);

/* The default presenter is invisible and always opens. */
RASTREL_HOST_API void RastrelHostSetProgressPresenter(const RastrelProgressPresenter* presenter);

/* Called for a message box; the default shows nothing. `style` is as the platform has it: 0x30 is the
 * exclamation icon with one OK button. Returns the button pressed (1: OK). */
typedef int (*RastrelMessageBoxHook)(void* context, HWND owner, const char* text, const char* title,
                                     unsigned style);
RASTREL_HOST_API void RastrelHostSetMessageBox(RastrelMessageBoxHook hook, void* context);

/* Called when the calling thread's cursor changes: 32514 is the wait cursor, 0 the one before any was set.
 * The default does nothing. */
typedef void (*RastrelCursorHook)(void* context, int cursor);
RASTREL_HOST_API void RastrelHostSetCursor(RastrelCursorHook hook, void* context);

#ifdef __cplusplus
}
#endif

#endif
