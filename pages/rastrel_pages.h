/* Rastrel's pages: straight, clean pages of scanned ones, for C, C++ and whatever can call C.
 *
 *   HGLOBAL page = PageFromPixels(pixels, width, height, stride, PixelsGrey8, 300, 300);
 *   HGLOBAL clean = CleanPage(page, NULL, NULL, NULL);
 *   PixelsFromPage(clean, result, stride, PixelsGrey8);
 *
 * Conventions that hold for every function here:
 *
 * - A `page` is a DIB block as rastrel.h has it, of 1, 4, 8 or 24 bits, uncompressed, upright (biHeight above
 *   0). Functions leave the pages that they are given as they were. A page that a function returns belongs to
 *   the caller, who frees it with GlobalFree. Pages that are made here have a full colour table, and as that
 *   a ramp from black to white wherever the page is grey.
 * - Other things are opaque handles, each with a function of its own that frees it. Freeing null does
 *   nothing.
 * - Failure is 0 or null. The reason is the calling thread's: PagesError has a code, PagesErrorText says it
 *   in words. Success leaves them alone, so read them only after a failure. Texts are UTF-8, so are file
 *   names.
 * - A struct begins with its own size in bytes, as the caller was compiled; its functions neither read nor
 *   write beyond that, so that it can grow without breaking anybody.
 * - Threads: any number at once. Nothing is kept for the process but the names of unfinished files. One page
 *   or record may be used by several threads that do not change it, an open file by several that read, a file
 *   under way by one at a time.
 * - No argument and no file, however wrong, makes a function read or write outside a block, and no C++
 *   exception leaves one. */
#ifndef RASTREL_PAGES_H
#define RASTREL_PAGES_H

#include <rastrel.h>

#ifdef _WIN32
#ifdef RASTREL_PAGES_BUILDING
#define RASTREL_PAGES_API __declspec(dllexport)
#elif defined(RASTREL_STATIC)
#define RASTREL_PAGES_API
#else
#define RASTREL_PAGES_API __declspec(dllimport)
#endif
#else
#define RASTREL_PAGES_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- errors and version ---- */

/* Codes go on where those of rastrel.h end. Of its codes there are ErrNoMemory, ErrOpenFile, ErrFileIO,
 * ErrParameter (a null pointer, a dead handle, a number out of range) and ErrFileFormat (no file of a known
 * format) as well, and whatever an operation of the core says. */
enum PagesErrorCode {
  ErrCancelled = 33,   /* the progress callback wanted an end */
  ErrDamagedFile = 34, /* a file that ends early or contradicts itself */
  ErrTooLarge = 35,    /* more than a block or the format can hold */
  ErrUnsupported = 36, /* a known format in a form that is not read or written */
  ErrOption = 37,      /* an option that is unknown, out of range, or does not go with another */
  ErrPageRefused = 38, /* not for this page: another depth, size or resolution is wanted */
  ErrExists = 39,      /* there is something by that name that is not replaced */
  ErrInternal = 40     /* a fault of ours */
};

/* The calling thread's last error, ErrSuccess (0) at first. */
RASTREL_PAGES_API int RASTREL_CALL PagesError(void);
/* What went wrong, in words that go on after the name of a file or page: "is damaged: ...". Never null; good
 * until the thread's next failure. */
RASTREL_PAGES_API const char* RASTREL_CALL PagesErrorText(void);
/* The library's version, which agrees with RASTREL_VERSION unless another one was loaded: "0.1.0". */
RASTREL_PAGES_API const char* RASTREL_CALL PagesVersion(void);

/* ---- pixels ---- */

/* How pixels lie in the caller's memory; rows from the top. */
enum PixelFormat {
  PixelsBit0Black = 1, /* 1 bit, the leftmost pixel highest in its byte, 0 is black */
  PixelsBit1Black = 2, /* the same, 1 is black */
  PixelsGrey8 = 3,     /* a byte, 0 is black */
  PixelsRgb = 4,       /* three bytes: red, green, blue */
  PixelsBgr = 5,
  PixelsRgba = 6, /* four bytes; alpha is not multiplied in */
  PixelsBgra = 7
};

/* Makes a page of pixels.
 *
 *   pixels         the top left pixel
 *   width, height  in pixels
 *   stride         bytes from a row to the one below; negative where rows lie upside down in memory
 *   dpiX, dpiY     dots per inch across and down; 0 where that is not known
 *
 * 1-bit pixels give a page of 1 bit, greys one of 8, the others one of 24; alpha goes over white. Errors:
 * ErrParameter, ErrTooLarge, ErrNoMemory. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL PageFromPixels(const void* pixels, int32_t width, int32_t height,
                                                      ptrdiff_t stride, int format, double dpiX, double dpiY);
/* The same with alpha over `ground` (0x00BBGGRR). */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL PageFromPixelsOver(const void* pixels, int32_t width, int32_t height,
                                                          ptrdiff_t stride, int format, double dpiX,
                                                          double dpiY, COLORREF ground);
/* Writes a page's pixels to the caller's memory: as many rows and columns as the page has. Every page goes to
 * colour (alpha is 255); colours go to grey by (77 red + 150 green + 29 blue) / 256; to 1 bit go only pages
 * of 1 bit, the darker colour as black. Bits beyond the last column of a row stay as they were. Returns 1, or
 * 0 and ErrParameter or ErrPageRefused. */
RASTREL_PAGES_API int RASTREL_CALL PixelsFromPage(HGLOBAL page, void* pixels, ptrdiff_t stride, int format);

typedef struct PageInfo {
  uint32_t size;
  int32_t width, height; /* pixels */
  int32_t bits;          /* 1, 4, 8 or 24 */
  int32_t isGrey;        /* its colour table is a ramp from black to white */
  double dpiX, dpiY;     /* dots per inch; 0 where the page does not say */
} PageInfo;

/* Tells a page's size, depth and resolution. Returns 1, or 0 and ErrParameter (also for what is no page). */
RASTREL_PAGES_API int RASTREL_CALL DescribePage(HGLOBAL page, PageInfo* info);
/* Changes a page's resolution, and nothing else. 0: it does not say. */
RASTREL_PAGES_API int RASTREL_CALL SetPageResolution(HGLOBAL page, double dpiX, double dpiY);
/* Gives a page a resolution where it has none, or one outside 20 to 20,000 dots per inch, in one direction or
 * both: that of the other direction, else `dpi`, else, when that is 0, 300. `isAssumed` (may be null)
 * receives whether it had to be 300. Returns 1 or 0. */
RASTREL_PAGES_API int RASTREL_CALL CompletePageResolution(HGLOBAL page, double dpi, int32_t* isAssumed);

/* ---- cleaning ---- */

/* What text is: dark on light, light on dark, or what most of the page says. */
enum PageText { TextAuto = 0, TextDark = 1, TextLight = 2 };
/* How skew is turned back: not; by whole degrees, without smoothing; to hundredths, where it is certain. */
enum PageDeskew { DeskewOff = 0, DeskewWhole = 1, DeskewFine = 2 };
/* How pages become black and white. */
enum PageReduce {
  ReduceNone = 0,
  ReduceThreshold = 1,
  ReduceOrdered = 2,
  ReduceFloydSteinberg = 3,
  ReduceJarvisJudiceNinke = 4,
  ReduceAuto = 5 /* by paper and ink at each place, pictures dithered: as BinarizePage does */
};
/* Sizes of holes beside -3 to 40, which are those of PunchHoleRemover. */
enum PageHoleSize {
  HolesAny = -4,  /* each hole is measured */
  HolesUsual = -5 /* so, but holes of 6 mm on a page whose resolution had to be assumed */
};

/* Called before each step with its name and the share of the work that is done, 0 to 1. Another result than 0
 * ends the work with ErrCancelled. Called on the thread that cleans. */
typedef int(RASTREL_CALL* PageProgress)(void* context, const char* step, double done);

/* Given a picture of what was understood of the page: "paper", "ink" ... The picture is the library's and is
 * freed after the call. */
typedef void(RASTREL_CALL* PagePicture)(void* context, const char* name, HGLOBAL picture);

typedef struct CleanOptions {
  uint32_t size;
  int32_t text;          /* PageText */
  int32_t cropSheet;     /* cut the sheet out of a dark surround first */
  int32_t trim;          /* paint dark borders over */
  int32_t holes;         /* paint punch holes over */
  int32_t holeSize;      /* PageHoleSize, or -3 to 40 */
  int32_t specks;        /* remove specks of black-and-white and grey pages */
  int32_t speckLevel;    /* 20 to 100 */
  int32_t speckFull;     /* filter every pixel */
  int32_t deskew;        /* PageDeskew */
  double mostSkew;       /* 0 to 45 degrees; more is not taken for skew */
  double blankPercent;   /* 0 to 100; a page is blank with less ink than that */
  int32_t reduce;        /* PageReduce */
  int32_t brightness;    /* -255 to 255, added to every grey before ReduceThreshold and ReduceOrdered */
  double dpi;            /* of pages that do not say; 0: 300 is assumed */
  PageProgress progress; /* may be null */
  void* progressContext;
  int32_t classic;     /* clean by the plain operations one after the other */
  int32_t evenLight;   /* even the shadow of a gutter, a vignette */
  int32_t whitePaper;  /* make the paper white, and leave ink as it is */
  int32_t lessBleed;   /* weaken what shows through from behind */
  PagePicture explain; /* may be null */
  void* explainContext;
} CleanOptions;

/* Fills in what CleanPage does when it is not told otherwise; `size` is sizeof(CleanOptions). */
RASTREL_PAGES_API int RASTREL_CALL DefaultCleanOptions(CleanOptions* options, uint32_t size);

/* What was found and done. */
typedef struct CleanRecord CleanRecord;

/* Returns a page straightened and cleaned.
 *
 *   options  null for the defaults
 *   record   receives what was done; null if nobody asks. The caller frees it with FreeCleanRecord
 *   overlay  receives a page that shows the one that came in, in grey, with what was removed in colour:
 *            borders blue, holes orange, specks vermilion; null if nobody asks
 *
 * A step that does not suit the page is left out, and the record says why. Errors: ErrParameter, ErrOption,
 * ErrCancelled, ErrNoMemory; nothing is returned through the pointers then. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL CleanPage(HGLOBAL page, const CleanOptions* options,
                                                 CleanRecord** record, HGLOBAL* overlay);

/* The same for a page that nobody needs any more: it is taken over and freed, also on failure, which saves a
 * copy. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL TakeAndCleanPage(HGLOBAL page, const CleanOptions* options,
                                                        CleanRecord** record, HGLOBAL* overlay);

/* Looks at a page as CleanPage would, and changes nothing: skew, blank or not, which text, holes, and how
 * much ink. Returns 1, or 0 and an error as above. */
RASTREL_PAGES_API int RASTREL_CALL ExaminePage(HGLOBAL page, CleanRecord** record);

RASTREL_PAGES_API void RASTREL_CALL FreeCleanRecord(CleanRecord* record);

typedef struct CleanSummary {
  uint32_t size;
  int32_t width, height, bits; /* of the page that came out; of an examination, of the page looked at */
  double dpiX, dpiY;
  int32_t widthIn, heightIn; /* of the page that came in */
  int32_t isResolutionAssumed;
  int32_t isTextDark;
  int32_t hasSkew;       /* whether `skew` means anything */
  double skew;           /* degrees by which lines rise to the right, turned back if isTurned */
  double skewConfidence; /* 0 to 1; -1 where it was not measured finely */
  double inkPercent;     /* of an examination: ink of the whole page; else -1 */
  int32_t isBlank;       /* before any reduction */
  int32_t isTurned, isCropped, isReduced;
  int64_t trimmedLeft, trimmedRight; /* pixels painted over */
  int64_t specks, speckPixels;
  int32_t holes, times, skipped, regions; /* how many entries these lists have */
  int64_t trimmedTop, trimmedBottom;
  int32_t isChecked;            /* the page was compared with the one that came in */
  int32_t takenBack, sidesLeft; /* how many entries these lists have */
  int32_t isSkewCertain;        /* enough to turn a page by it */
} CleanSummary;

RASTREL_PAGES_API int RASTREL_CALL GetCleanSummary(const CleanRecord* record, CleanSummary* summary);

typedef struct PageHole {
  uint32_t size;
  double x, y; /* its middle, in pixels from the top left of the page that came in */
  double diameter;
  const char* side; /* "left", "right", "top" or "bottom" */
} PageHole;

/* What was taken away, or left for a reason. */
typedef struct PageRegion {
  uint32_t size;
  const char* kind;                 /* "border", "hole", "speck" ... */
  int32_t left, top, right, bottom; /* on the page that came in; right and bottom lie outside */
  int64_t pixels;
  double confidence; /* 0 to 1 */
  const char* reason;
  int32_t isTakenBack; /* the check found that it would harm the page */
} PageRegion;

/* Entries of a record's lists, counted from 0. Texts belong to the record. Return 1, or 0 and
 * ErrParameter. */
RASTREL_PAGES_API int RASTREL_CALL GetCleanHole(const CleanRecord* record, int32_t index, PageHole* hole);
RASTREL_PAGES_API int RASTREL_CALL GetCleanRegion(const CleanRecord* record, int32_t index,
                                                  PageRegion* region);
/* A step that was left out, and why. */
RASTREL_PAGES_API int RASTREL_CALL GetCleanSkipped(const CleanRecord* record, int32_t index,
                                                   const char** step, const char** reason);
/* A step that the check has taken back, or what it missed. */
RASTREL_PAGES_API int RASTREL_CALL GetCleanTakenBack(const CleanRecord* record, int32_t index,
                                                     const char** step, const char** reason);
/* A side of the sheet that was left as it is though something dark stands there. */
RASTREL_PAGES_API int RASTREL_CALL GetCleanSideLeft(const CleanRecord* record, int32_t index,
                                                    const char** side, const char** reason);
RASTREL_PAGES_API int RASTREL_CALL GetCleanTime(const CleanRecord* record, int32_t index, const char** step,
                                                double* milliseconds);
/* The whole record as a JSON object, with the names that `rastrel clean --json` uses. Belongs to the
 * record. */
RASTREL_PAGES_API const char* RASTREL_CALL CleanRecordJson(const CleanRecord* record);

/* Measures the skew of a page: MeasureSkew of rastrel.h, for `range` (0: 15) degrees to either side. Returns
 * 1 with `*degrees` and `*confidence` (both 0 where the page shows no lines), or 0. */
RASTREL_PAGES_API int RASTREL_CALL MeasurePageSkew(HGLOBAL page, double range, int text, double* degrees,
                                                   double* confidence);
/* Returns 1 with `*isBlank`, which says whether less than `percent` of the page is ink, or 0. */
RASTREL_PAGES_API int RASTREL_CALL IsPageBlank(HGLOBAL page, int text, double percent, int32_t* isBlank);

/* ---- operations ----
 *
 * Each gives a new page, or null and ErrParameter, ErrPageRefused, ErrTooLarge, ErrNoMemory or a code of
 * rastrel.h. They are those of the command `rastrel apply`, with the same ranges and defaults;
 * docs/operations.md tells more. */

/* What stands where an operation uncovers something: the page's lightest or darkest colour. */
enum PageGround { GroundWhite = 0, GroundBlack = 1 };
enum PageDirection { DirectionHorizontal = 0, DirectionVertical = 1 };

/* Exchanges left and right, or top and bottom. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL FlipPage(HGLOBAL page, int direction);
/* Turns by quarters, counter-clockwise, keeping every pixel. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL TurnPage(HGLOBAL page, int quarters);
/* Turns by any angle, counter-clockwise, taking nearest pixels. The result holds the whole page, in even
 * sizes. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL RotatePage(HGLOBAL page, double degrees, int ground);
/* Turns by any angle with smooth edges if `isSmooth`, to the size of the whole turned page, or the page's
 * own. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL StraightenPage(HGLOBAL page, double degrees, int isSmooth,
                                                      int keepsSize, int ground);
/* Shears by pixels: rows sideways, the top edge to the right; or columns, the right edge upward. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL SkewPage(HGLOBAL page, int direction, int shift, int ground);
/* Turns back by the whole degrees that lines are found to rise. 1, 8 and 24 bits. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL DeskewPage(HGLOBAL page, int isTextLight);
/* Cuts out a rectangle. A width or height of 0 goes up to the edge. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL CropPage(HGLOBAL page, int left, int top, int width, int height);
/* Cuts the scanned sheet out of its surround: columns and rows of which `sharePercent` (1 to 100) or more are
 * sheet, with `margin` pixels (-1000 to 1000) around. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL CropPageSheet(HGLOBAL page, double sharePercent, int margin,
                                                     int isSheetDark);
/* Cuts a page across, below its first `rows` rows. Returns 1 with two pages, or 0. */
RASTREL_PAGES_API int RASTREL_CALL CutPage(HGLOBAL page, int rows, HGLOBAL* upper, HGLOBAL* lower);
/* Cuts a page into tiles, row by row from the top left; a height of 0 is the width. Returns how many there
 * are, and fills in `tiles` where it has room (`capacity`) for all of them; 0 on failure. With null `tiles`
 * it only counts. */
RASTREL_PAGES_API int32_t RASTREL_CALL SplitPage(HGLOBAL page, int width, int height, HGLOBAL* tiles,
                                                 int32_t capacity);
/* Joins `count` pages of one depth and the same colours, `columns` in a row, row by row from the top left. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL MergePages(const HGLOBAL* pages, int32_t count, int32_t columns);

/* Whitens the dark ends of all rows. 1, 8 and 24 bits. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL TrimPage(HGLOBAL page);
/* Whitens what is as dark and as large as a punch hole at the left edge. `size` is HolesAny, or -3 to 40. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL FillPageHoles(HGLOBAL page, int size);
/* Removes specks of a black-and-white or 8-bit grey page; `level` is 20 to 100. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL DespecklePage(HGLOBAL page, int level, int filtersFully);

enum PageDither { DitherFloydSteinberg = 0, DitherJarvisJudiceNinke = 1 };
enum PageHalftone { HalftoneThreshold = 0, HalftoneDiffusion = 1, HalftoneOrdered = 2 };
enum PageGreyFormula { GreyWeighted = 0, GreyAverage = 1 };
enum PageInterpolation { InterpolateBilinear = 0, InterpolateCubic = 1 };

/* Reduces to 1, 4 or 8 bits, fewer than the page has, by error diffusion. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL DitherPage(HGLOBAL page, int method, int bits);
/* Reduces to 1 or 4 bits by spreading the tone of small blocks. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL DitherPageSmoothly(HGLOBAL page, int bits);
RASTREL_PAGES_API HGLOBAL RASTREL_CALL DitherPageSharply(HGLOBAL page, int bits);
/* Reduces to black and white; `brightness`, -255 to 255, is added to every grey first. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL HalftonePage(HGLOBAL page, int method, int brightness);
enum PageBinarize { BinarizeFast = 0, BinarizeBest = 1 };
/* Reduces to black and white by what is paper and what is ink at each place, so that text stays sharp under
 * any light: by a threshold that follows the paper, or by a minimum cut, which takes longer. If `isDoubled`,
 * smoothed to twice the resolution; if `dithersPictures`, with photographs by error diffusion. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL BinarizePage(HGLOBAL page, int quality, int isDoubled,
                                                    int dithersPictures);
/* Turns to 8-bit grey; `smoothing` (0, 1, 2: none, 3 x 3, 5 x 5) is for black-and-white pages. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL GreyPage(HGLOBAL page, int formula, int smoothing);
RASTREL_PAGES_API HGLOBAL RASTREL_CALL InvertPage(HGLOBAL page);
/* Turns to 24 bits. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL ColourPage(HGLOBAL page);
/* A page as these functions make them: run-length rows of 4 or 8 bits expanded, the colour table full, greys
 * as a ramp from black to white. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL ExpandPage(HGLOBAL page);

/* Scales by one of: a size in pixels (one of the two 0: in proportion), a percentage, dots per inch; the
 * others are 0. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL ScalePage(HGLOBAL page, int width, int height, double percent,
                                                 double dpi, int interpolation);
/* Turns to grey and enlarges by whole factors, 1 to 1000; `down` 0 is as across. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL ScaleGreyPage(HGLOBAL page, int across, int down, int interpolation);

enum PageCombination { CombineDarkest = 0, CombineOver = 1 };
/* Lays `other` with its top left pixel at (x, y) on a page. Where `mask` (as large as `other`; may be null)
 * is dark, `other` counts as black. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL CombinePages(HGLOBAL page, HGLOBAL other, HGLOBAL mask, int x, int y,
                                                    int how);

/* ---- files ----
 *
 * In a library built without file formats these fail with ErrUnsupported, and there are no formats. */

/* What a file says of a page beside its pixels, as named runs of bytes: "icc", "xmp", "exif" ... Carry it
 * from ReadPage to AppendPage; what a format cannot hold is left out. */
typedef struct PageMetadata PageMetadata;
RASTREL_PAGES_API PageMetadata* RASTREL_CALL NewPageMetadata(void);
RASTREL_PAGES_API void RASTREL_CALL FreePageMetadata(PageMetadata* metadata);
/* Sets an item, or removes it where `bytes` is null. Returns 1 or 0. */
RASTREL_PAGES_API int RASTREL_CALL SetPageMetadataItem(PageMetadata* metadata, const char* name,
                                                       const void* bytes, size_t size);
/* Returns an item's bytes, which belong to `metadata`, and its size, or null where there is none. */
RASTREL_PAGES_API const void* RASTREL_CALL GetPageMetadataItem(const PageMetadata* metadata, const char* name,
                                                               size_t* size);
/* The names of the items from 0 on; null where there are no more. */
RASTREL_PAGES_API const char* RASTREL_CALL PageMetadataName(const PageMetadata* metadata, int32_t index);

/* Bytes that are neither a file nor in memory. Calls may come from every thread that uses what was opened on
 * them. `read` and `write` return how many bytes there were, fewer than asked for at the end, or a negative
 * number on failure; `length` how many there are in all. A file that is written needs all three for formats
 * with more than one page, else `write` alone; one that is read needs no `write`. */
typedef struct PageStream {
  uint32_t size;
  void* context;
  int64_t(RASTREL_CALL* read)(void* context, uint64_t position, void* bytes, size_t count);
  int64_t(RASTREL_CALL* write)(void* context, uint64_t position, const void* bytes, size_t count);
  int64_t(RASTREL_CALL* length)(void* context);
} PageStream;

/* A file that pages are read from. */
typedef struct PageFile PageFile;

/* Look at what a file holds. The format is told by the bytes, not by the name. A file by name is not kept
 * open: it is opened again for each page. Memory stays the caller's and has to stay until ClosePages; so does
 * a stream's context. Errors: ErrOpenFile, ErrFileIO, ErrFileFormat, ErrDamagedFile, ErrUnsupported,
 * ErrNoMemory. */
RASTREL_PAGES_API PageFile* RASTREL_CALL OpenPages(const char* path);
RASTREL_PAGES_API PageFile* RASTREL_CALL OpenPagesInMemory(const void* bytes, size_t size);
RASTREL_PAGES_API PageFile* RASTREL_CALL OpenPagesFromStream(const PageStream* stream);
RASTREL_PAGES_API void RASTREL_CALL ClosePages(PageFile* file);

/* How many pages there are, 1 or more; thumbnails and masks are none. 0 for null. */
RASTREL_PAGES_API int32_t RASTREL_CALL CountPages(const PageFile* file);
/* Why there may be more pages than can be found: what is damaged behind the last one. Null for a whole
 * file. */
RASTREL_PAGES_API const char* RASTREL_CALL DamageOfPages(const PageFile* file);
/* The format's name, as PageFormat has it. */
RASTREL_PAGES_API const char* RASTREL_CALL FormatOfPages(const PageFile* file);
/* What reading a page may cost, so that a small file which claims a giant picture does no harm, and how. */
typedef struct PageReadOptions {
  uint32_t size;
  int32_t dpi;        /* at which pages are drawn that have no pixels of their own; 0: 300 */
  int64_t mostPixels; /* of a page; 0: 1,000,000,000 */
  int64_t mostBytes;  /* of memory for a page; 0: 4 GiB */
  double mostSeconds; /* for a page; 0: 120 */
} PageReadOptions;
/* Sets them for all pages that are read from then on; no other thread may read meanwhile. Pages beyond a
 * limit end in ErrTooLarge. Returns 1 or 0. */
RASTREL_PAGES_API int RASTREL_CALL SetPageReadOptions(PageFile* file, const PageReadOptions* options);
/* Tells what page `index` (from 0) will be when it is read, by its header alone. Returns 1 or 0. */
RASTREL_PAGES_API int RASTREL_CALL DescribePageInFile(const PageFile* file, int32_t index, PageInfo* info);
/* Reads a page, upright whatever its orientation in the file, with `metadata` (may be null), which the caller
 * frees. Resolutions that the file lacks are 0. Errors as of OpenPages, and ErrTooLarge. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL ReadPage(const PageFile* file, int32_t index, PageMetadata** metadata);

/* A file that pages are written to. */
typedef struct PageWriter PageWriter;

/* Begin a file.
 *
 *   path     it appears under that name when it is finished, and replaces what is there then
 *   format   a name as PageFormat has it; null: by the ending of `path`
 *   options  "name=value,name=value" as PageFormatOption has them; null or "" for none
 *
 * Errors: ErrOption, ErrUnsupported, ErrOpenFile, ErrExists (what stands there is no regular file),
 * ErrNoMemory. */
RASTREL_PAGES_API PageWriter* RASTREL_CALL CreatePages(const char* path, const char* format,
                                                       const char* options);
RASTREL_PAGES_API PageWriter* RASTREL_CALL CreatePagesInMemory(const char* format, const char* options);
RASTREL_PAGES_API PageWriter* RASTREL_CALL CreatePagesOnStream(const PageStream* stream, const char* format,
                                                               const char* options);
/* What becomes of what is there under the name, and what the file takes over. */
typedef struct PageFileRules {
  uint32_t size;
  int32_t keepExisting; /* a file of that name is an error, ErrExists, now or when this one is finished */
  int32_t skipSync;     /* the bytes are not waited for: faster, but not safe against a loss of power */
  int32_t keepTime;     /* of `source`, or, where that is null, of the file that is replaced */
  const char* source;   /* the file that this one is made of: no more people may see a new one; may be null */
  const char* path;     /* another name in the same folder, for a file that became something else; or null */
} PageFileRules;
/* Sets them for a file by name, until it is finished; without this all are 0. The file takes its place in one
 * step, and one that it replaces gives it its permissions, and owner and group where that is allowed. Returns
 * 1 or 0. */
RASTREL_PAGES_API int RASTREL_CALL SetPageFileRules(PageWriter* writer, const PageFileRules* rules);
/* Adds a page; formats of one page take one. `metadata` may be null. Returns 1 or 0; after a failure the file
 * can only be given up. */
RASTREL_PAGES_API int RASTREL_CALL AppendPage(PageWriter* writer, HGLOBAL page, const PageMetadata* metadata);
/* Completes the file and frees the writer, also when it fails (no page at all is a failure). Returns 1 or
 * 0. */
RASTREL_PAGES_API int RASTREL_CALL FinishPages(PageWriter* writer);
/* The same for a file in memory, whose bytes the caller frees with FreePageBytes. Returns null on failure. */
RASTREL_PAGES_API void* RASTREL_CALL FinishPagesInMemory(PageWriter* writer, size_t* size);
RASTREL_PAGES_API void RASTREL_CALL FreePageBytes(void* bytes);
/* Gives the file up and frees the writer. What was written is removed; what stood under the name stays. */
RASTREL_PAGES_API void RASTREL_CALL AbandonPages(PageWriter* writer);
/* Removes all files by name that are under way, in all threads. A handler of signals may call it; nothing can
 * be written to those files afterwards. */
RASTREL_PAGES_API void RASTREL_CALL RemoveUnfinishedPages(void);

/* A page compressed for a file of many, so that many threads compress and one writes. For formats of more
 * than one page. */
typedef struct EncodedPage EncodedPage;
RASTREL_PAGES_API EncodedPage* RASTREL_CALL EncodePage(HGLOBAL page, const PageMetadata* metadata,
                                                       const char* format, const char* options);
RASTREL_PAGES_API int RASTREL_CALL AppendEncodedPage(PageWriter* writer, const EncodedPage* page);
RASTREL_PAGES_API void RASTREL_CALL FreeEncodedPage(EncodedPage* page);

/* ---- pages as files have them ----
 *
 * A page of 16 bits, with alpha, in inks or of floating-point numbers loses something when it becomes one of
 * 1 to 24 bits. As a raw page it keeps its samples, can be moved and goes into a file again as it was. */

typedef struct RawPage RawPage;
typedef struct RawPageInfo {
  uint32_t size;
  int32_t width, height;
  int32_t bits;    /* of a sample */
  int32_t samples; /* of a pixel */
  double dpiX, dpiY;
} RawPageInfo;

/* As ReadPage. Null and ErrUnsupported where the format has none. */
RASTREL_PAGES_API RawPage* RASTREL_CALL ReadRawPage(const PageFile* file, int32_t index,
                                                    PageMetadata** metadata);
RASTREL_PAGES_API void RASTREL_CALL FreeRawPage(RawPage* page);
RASTREL_PAGES_API int RASTREL_CALL DescribeRawPage(const RawPage* page, RawPageInfo* info);
/* New pages, as FlipPage, TurnPage, CropPage and SplitPage make them. */
RASTREL_PAGES_API RawPage* RASTREL_CALL FlipRawPage(const RawPage* page, int isVertical);
RASTREL_PAGES_API RawPage* RASTREL_CALL TurnRawPage(const RawPage* page, int quarters);
RASTREL_PAGES_API RawPage* RASTREL_CALL CropRawPage(const RawPage* page, int left, int top, int width,
                                                    int height);
/* As AppendPage and EncodePage. ErrUnsupported where the format cannot hold such a page. */
RASTREL_PAGES_API int RASTREL_CALL AppendRawPage(PageWriter* writer, const RawPage* page,
                                                 const PageMetadata* metadata);
RASTREL_PAGES_API EncodedPage* RASTREL_CALL EncodeRawPage(const RawPage* page, const PageMetadata* metadata,
                                                          const char* format, const char* options);

/* ---- formats ---- */

typedef struct PageFormat {
  uint32_t size;
  const char* name;       /* "tif"; also the ending that files are given */
  const char* title;      /* "TIFF" */
  const char* extensions; /* all endings, "tif,tiff" */
  int32_t isRead, isWritten;
  int32_t hasManyPages; /* whether a file can have more than one */
  int32_t options;      /* how many options writing has */
  const char* metadata; /* the items of metadata that its files keep, "icc,xmp"; "" for none */
} PageFormat;

typedef struct PageFormatOption {
  uint32_t size;
  const char* name;     /* "quality" */
  const char* help;     /* a sentence */
  const char* choices;  /* "a,b,c", or null for a number */
  double least, most;   /* of a number */
  const char* standard; /* what is taken where none is given; "" for none */
} PageFormatOption;

RASTREL_PAGES_API int32_t RASTREL_CALL CountPageFormats(void);
/* Formats, and the options of one, counted from 0. Return 1, or 0 and ErrParameter. */
RASTREL_PAGES_API int RASTREL_CALL GetPageFormat(int32_t index, PageFormat* format);
RASTREL_PAGES_API int RASTREL_CALL GetPageFormatOption(int32_t format, int32_t index,
                                                       PageFormatOption* option);
/* The format with that name or ending, in any case of letters; -1 for none. */
RASTREL_PAGES_API int32_t RASTREL_CALL FindPageFormat(const char* extension);
/* All formats with their options, as a JSON array. */
RASTREL_PAGES_API const char* RASTREL_CALL PageFormatsJson(void);

#ifdef __cplusplus
}
#endif

#endif
