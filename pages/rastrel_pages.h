/* Rastrel's pages: straight, clean pages of scanned ones, for C, C++ and whatever can call C.
 *
 *   HGLOBAL page = PageFromPixels(pixels, width, height, stride, PixelsGrey8, 300, 300);
 *   HGLOBAL clean = CleanPage(page, NULL, NULL, NULL);
 *   PixelsFromPage(clean, result, stride, PixelsGrey8);
 *
 * Conventions that hold for every function here:
 *
 * - A `page` is a DIB block as rastrel.h has it, of 1, 4, 8 or 24 bits, uncompressed, upright (biHeight above
 *   0). Functions leave the pages that they are given as they were, but for the two that set a resolution,
 *   and TakeAndCleanPage. A page that a function returns belongs to the caller, who frees it with GlobalFree.
 *   Pages that are made here have a full colour table, and as that a ramp from black to white wherever the
 *   page is grey.
 * - Other things are opaque handles, each with a function of its own that frees it. Freeing null does
 *   nothing.
 * - Failure is 0 or null. The reason is the calling thread's: PagesError has a code, PagesErrorText says it
 *   in words. Success leaves them alone, so read them only after a failure. Every function may fail with
 *   ErrParameter (a null pointer, a dead handle, a number out of its range) and ErrNoMemory; those below name
 *   what else they fail with. Where a function fails it has written nothing to where its results go.
 * - Texts are UTF-8, so are file names.
 * - A struct begins with its own size in bytes, as the caller was compiled; its functions neither read nor
 *   write beyond that, so that it can grow without breaking anybody.
 * - Threads: any number at once, in every function. One page or record may be used by several threads that do
 *   not change it, an open file by several that read, a file under way by one at a time.
 * - For the process are kept: the names of unfinished files, those of the folders that were searched for
 *   files of processes that have ended, and the libraries that are loaded when they are first needed. One of
 *   these, libvips, is then held to one thread, no cache and a few loaders, also for a program that uses it
 *   itself. A thread that cleans pages keeps up to 24 MB for its next page until it ends.
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
 *   dpiX, dpiY     dots per inch across and down, 0 to 1,000,000; 0 where that is not known
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
/* Changes a page's resolution, and nothing else.
 *
 *   dpiX, dpiY  dots per inch across and down, 0 to 1,000,000; 0: the page does not say
 *
 * Returns 1 or 0. */
RASTREL_PAGES_API int RASTREL_CALL SetPageResolution(HGLOBAL page, double dpiX, double dpiY);
/* Gives a page a resolution where it has none, or one outside 20 to 20,000 dots per inch, in one direction or
 * both: that of the other direction, else `dpi`, else 300.
 *
 *   dpi        dots per inch, 0 to 1,000,000; 0 where the caller does not know either
 *   isAssumed  receives whether it had to be 300; may be null
 *
 * Returns 1 or 0. */
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
  double toDpi; /* 50 to 2400: ReduceAuto smooths to that, up to four times the page's; 0: its own */
} CleanOptions;

/* Fills in what CleanPage does when it is not told otherwise.
 *
 *   size  sizeof(CleanOptions) as the caller was compiled; so many bytes are written
 *
 * Returns 1 or 0. */
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

/* Tells the single values of a record. Returns 1 or 0. */
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

/* Measures the skew of a page: MeasureSkew of rastrel.h.
 *
 *   range       degrees to either side that are looked at, above 0 to 45; 0: 15
 *   text        PageText
 *   degrees     receives by how much lines rise to the right; may be null
 *   confidence  receives how sure that is, 0 to 1; may be null
 *
 * Both are 0 where the page shows no lines. Returns 1, or 0 and also a code of rastrel.h. */
RASTREL_PAGES_API int RASTREL_CALL MeasurePageSkew(HGLOBAL page, double range, int text, double* degrees,
                                                   double* confidence);
/* Tells whether a page is blank: whether less than a share of it is ink.
 *
 *   text     PageText
 *   percent  that share, 0 to 100
 *   isBlank  receives 1 or 0
 *
 * Returns 1 or 0. */
RASTREL_PAGES_API int RASTREL_CALL IsPageBlank(HGLOBAL page, int text, double percent, int32_t* isBlank);

/* ---- operations ----
 *
 * Those of the command `rastrel apply`. Each gives a new page, or null. Beside ErrParameter and ErrNoMemory
 * they fail with ErrPageRefused (the operation is not for this page: its depth, size, resolution or colours),
 * ErrTooLarge, or a code of rastrel.h. Where nothing is said of depths all four are taken. */

/* What stands where an operation uncovers something: the page's lightest or darkest colour. */
enum PageGround { GroundWhite = 0, GroundBlack = 1 };
enum PageDirection { DirectionHorizontal = 0, DirectionVertical = 1 };

/* Exchanges left and right, or top and bottom.
 *
 *   direction  PageDirection */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL FlipPage(HGLOBAL page, int direction);

/* Turns by quarters, keeping every pixel.
 *
 *   quarters  counter-clockwise, any number; -1 is one clockwise */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL TurnPage(HGLOBAL page, int quarters);

/* Turns by any angle, taking nearest pixels. The result holds the whole page, and its sides are even.
 *
 *   degrees  counter-clockwise, -360 to 360
 *   ground   PageGround
 *
 * Sides of more than 65,535 pixels are refused. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL RotatePage(HGLOBAL page, double degrees, int ground);

/* Turns by any angle about the page's middle.
 *
 *   degrees    counter-clockwise, -360 to 360
 *   isSmooth   whether edges are smooth, as StraightenDIB tells
 *   keepsSize  whether the result is as large as the page, or as the whole turned page
 *   ground     PageGround */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL StraightenPage(HGLOBAL page, double degrees, int isSmooth,
                                                      int keepsSize, int ground);

/* Shears: moves rows sideways, or columns up and down, each in proportion to how far it lies from the first.
 *
 *   direction  DirectionHorizontal moves rows, DirectionVertical columns
 *   shift      pixels by which the top row goes right, or the rightmost column up; -10,000 to 10,000
 *   ground     PageGround */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL SkewPage(HGLOBAL page, int direction, int shift, int ground);

/* Turns back by the whole degrees that lines are found to rise; a page without skew is copied. 1, 8 and 24
 * bits.
 *
 *   isTextLight  whether text is light on dark */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL DeskewPage(HGLOBAL page, int isTextLight);

/* Cuts out a rectangle.
 *
 *   left, top      its corner, in pixels from the page's top left
 *   width, height  0: up to the page's edge
 *
 * A rectangle that does not lie on the page is refused. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL CropPage(HGLOBAL page, int left, int top, int width, int height);

/* Cuts the scanned sheet out of its surround.
 *
 *   sharePercent  how much of a column or row has to be sheet, for it to belong there: 1 to 100
 *   margin        pixels left around it, -1000 to 1000; less than a quarter of the page
 *   isSheetDark   whether the sheet is dark on a light surround
 *
 * ErrNoScannedPage where there is no sheet. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL CropPageSheet(HGLOBAL page, double sharePercent, int margin,
                                                     int isSheetDark);

/* Cuts a page in two.
 *
 *   rows          of the upper piece, 1 to one less than the page has
 *   upper, lower  receive the pieces
 *
 * Returns 1 or 0. */
RASTREL_PAGES_API int RASTREL_CALL CutPage(HGLOBAL page, int rows, HGLOBAL* upper, HGLOBAL* lower);

/* Cuts a page into tiles. They are laid from the bottom left corner, so that those of the top row and of the
 * rightmost column may be smaller.
 *
 *   width     of a tile: a multiple of 32 pixels at 1 bit, of 8 at 4 bits, else of 4
 *   height    of a tile; 0: as the width
 *   tiles     receives them, row by row from the top left; null only counts them
 *   capacity  for how many there is room; fewer than there are is an error
 *
 * Returns how many tiles there are, or 0. */
RASTREL_PAGES_API int32_t RASTREL_CALL SplitPage(HGLOBAL page, int width, int height, HGLOBAL* tiles,
                                                 int32_t capacity);

/* Joins pages of one depth and the same colours: the reverse of SplitPage.
 *
 *   pages    `count` of them, row by row from the top left
 *   columns  how many stand in a row
 *
 * The pages of a row have one height, those of a column one width, which is, but in the last column, such as
 * SplitPage takes; others are refused. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL MergePages(const HGLOBAL* pages, int32_t count, int32_t columns);

/* Whitens the dark ends of all rows, as TrimBlackBorder tells. 1, 8 and 24 bits. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL TrimPage(HGLOBAL page);

/* Whitens what is as dark and as large as a punch hole at the left edge. 1, 8 and 24 bits, of one resolution
 * across and down.
 *
 *   size  HolesAny, or -3 to 40 as PunchHoleRemover takes it */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL FillPageHoles(HGLOBAL page, int size);

/* Removes specks, as CleanImage tells, but of dark ones on any black-and-white page. 1 bit, and grey pages of
 * 8 bits.
 *
 *   level         20 to 100; more takes more
 *   filtersFully  whether every pixel is filtered, or only those with fewer than 4 dark neighbours and, on
 *                 grey pages, those that are nearly black or white */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL DespecklePage(HGLOBAL page, int level, int filtersFully);

enum PageDither { DitherFloydSteinberg = 0, DitherJarvisJudiceNinke = 1 };
enum PageHalftone { HalftoneThreshold = 0, HalftoneDiffusion = 1, HalftoneOrdered = 2 };
enum PageGreyFormula { GreyWeighted = 0, GreyAverage = 1 };
enum PageInterpolation { InterpolateBilinear = 0, InterpolateCubic = 1 };

/* Reduces the depth by error diffusion.
 *
 *   method  PageDither
 *   bits    1, 4 or 8, fewer than the page has */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL DitherPage(HGLOBAL page, int method, int bits);

/* Reduces the depth by spreading the tone of small blocks.
 *
 *   bits  1 or 4, fewer than the page has */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL DitherPageSmoothly(HGLOBAL page, int bits);
RASTREL_PAGES_API HGLOBAL RASTREL_CALL DitherPageSharply(HGLOBAL page, int bits);

/* Reduces to black and white. 4, 8 and 24 bits.
 *
 *   method      PageHalftone
 *   brightness  added to every grey first, -255 to 255 */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL HalftonePage(HGLOBAL page, int method, int brightness);

enum PageBinarize { BinarizeFast = 0, BinarizeBest = 1 };

/* Reduces to black and white by what is paper and what is ink at each place, so that text stays sharp under
 * any light. 4, 8 and 24 bits.
 *
 *   quality          BinarizeFast: by a threshold that follows the paper; BinarizeBest: by a minimum cut,
 *                    which takes longer
 *   isDoubled        whether the result is smoothed to twice the resolution
 *   dithersPictures  whether photographs become black and white by error diffusion */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL BinarizePage(HGLOBAL page, int quality, int isDoubled,
                                                    int dithersPictures);

/* Turns to 8-bit grey.
 *
 *   formula    GreyWeighted: (8 red + 15 green + 3 blue) / 26, near the weights of Rec. 601; GreyAverage: the
 *              mean of the three
 *   smoothing  of black-and-white pages: 0 none, 1 over 3 x 3 pixels, 2 over 5 x 5 */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL GreyPage(HGLOBAL page, int formula, int smoothing);

/* Makes the negative. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL InvertPage(HGLOBAL page);

/* Turns to 24 bits. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL ColourPage(HGLOBAL page);

/* A page as these functions make them: run-length rows of 4 or 8 bits expanded, the colour table full, greys
 * as a ramp from black to white. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL ExpandPage(HGLOBAL page);

/* Scales. One of the three ways is given; the other arguments are 0.
 *
 *   width, height  pixels, 0 to 65,535; one of the two 0: in proportion
 *   percent        0 to 6400
 *   dpi            dots per inch, 0 to 20,000, for pages that tell theirs
 *   interpolation  PageInterpolation, for pages of more than 1 bit; pixels are sampled, not averaged
 *
 * Results of more than 65,535 pixels to a side are refused. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL ScalePage(HGLOBAL page, int width, int height, double percent,
                                                 double dpi, int interpolation);

/* Turns to grey and enlarges by whole factors, to 32,767 pixels a side at most.
 *
 *   across, down   1 to 1000; `down` 0: as across
 *   interpolation  PageInterpolation */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL ScaleGreyPage(HGLOBAL page, int across, int down, int interpolation);

enum PageCombination { CombineDarkest = 0, CombineOver = 1 };

/* Lays one page on another.
 *
 *   page   the one below
 *   other  the one laid on it; what goes beyond is cut off
 *   mask   as large as `other`: where it is dark `other` counts as black; may be null
 *   x, y   where the top left pixel of `other` goes, -65,535 to 65,535
 *   how    CombineDarkest: the darker of two pixels; CombineOver: that of `other` */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL CombinePages(HGLOBAL page, HGLOBAL other, HGLOBAL mask, int x, int y,
                                                    int how);

/* ---- files ----
 *
 * In a library built without file formats these fail with ErrUnsupported, and there are no formats. */

/* What a file says of a page beside its pixels, as named runs of bytes: "icc", "xmp", "exif" ... Carry it
 * from ReadPage to AppendPage; what a format cannot hold is left out. */
typedef struct PageMetadata PageMetadata;

/* Makes metadata without items. Returns null when there is no memory. */
RASTREL_PAGES_API PageMetadata* RASTREL_CALL NewPageMetadata(void);
RASTREL_PAGES_API void RASTREL_CALL FreePageMetadata(PageMetadata* metadata);

/* Sets an item.
 *
 *   name         the item's, not empty
 *   bytes, size  what it becomes, which is copied; null bytes remove the item
 *
 * Returns 1 or 0. */
RASTREL_PAGES_API int RASTREL_CALL SetPageMetadataItem(PageMetadata* metadata, const char* name,
                                                       const void* bytes, size_t size);
/* Returns an item's bytes, which belong to `metadata` and stay until the item is changed, and in `*size` how
 * many there are; null where there is no such item. */
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
 * a stream's context.
 *
 * Return a file that the caller frees with ClosePages, or null and also ErrOpenFile, ErrFileIO,
 * ErrFileFormat, ErrDamagedFile or ErrUnsupported. */
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
/* Tells what page `index` (from 0) will be when it is read, by its header alone. Returns 1, or 0 and an error
 * as of OpenPages. */
RASTREL_PAGES_API int RASTREL_CALL DescribePageInFile(const PageFile* file, int32_t index, PageInfo* info);
/* Reads a page, upright whatever its orientation in the file. Resolutions that the file lacks are 0.
 *
 *   index     from 0
 *   metadata  receives what the file says beside, which the caller frees with FreePageMetadata; may be null
 *
 * Errors as of OpenPages, and ErrTooLarge. */
RASTREL_PAGES_API HGLOBAL RASTREL_CALL ReadPage(const PageFile* file, int32_t index, PageMetadata** metadata);

/* A file that pages are written to. */
typedef struct PageWriter PageWriter;

/* Begin a file.
 *
 *   path     it appears under that name when it is finished, and replaces what is there then
 *   format   a name as PageFormat has it; null: by the ending of `path`
 *   options  "name=value,name=value" as PageFormatOption has them; null or "" for none
 *
 * Return a writer, which FinishPages, FinishPagesInMemory or AbandonPages frees, or null and also ErrOption,
 * ErrUnsupported, ErrOpenFile or ErrExists (what stands there is no regular file). */
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
/* Adds a page; formats of one page take one. `metadata` may be null. Returns 1, or 0 and also ErrPageRefused,
 * ErrTooLarge, ErrUnsupported, ErrFileIO or, where something is there already, ErrExists. After a failure the
 * file can only be given up. */
RASTREL_PAGES_API int RASTREL_CALL AppendPage(PageWriter* writer, HGLOBAL page, const PageMetadata* metadata);
/* Completes the file and frees the writer, also when it fails (no page at all is a failure). Returns 1, or 0
 * and an error as of AppendPage. */
RASTREL_PAGES_API int RASTREL_CALL FinishPages(PageWriter* writer);
/* The same for a file in memory, whose bytes the caller frees with FreePageBytes. Returns null on failure. */
RASTREL_PAGES_API void* RASTREL_CALL FinishPagesInMemory(PageWriter* writer, size_t* size);
RASTREL_PAGES_API void RASTREL_CALL FreePageBytes(void* bytes);
/* Gives the file up and frees the writer. What was written is removed; what stood under the name stays. */
RASTREL_PAGES_API void RASTREL_CALL AbandonPages(PageWriter* writer);
/* Removes all files by name that are under way, in all threads. A handler of signals may call it; nothing can
 * be written to those files afterwards. */
RASTREL_PAGES_API void RASTREL_CALL RemoveUnfinishedPages(void);

/* A page compressed for a file of many, so that many threads compress and one writes. */
typedef struct EncodedPage EncodedPage;

/* Compresses a page.
 *
 *   metadata         may be null
 *   format, options  as CreatePages takes them, those of the file that the page goes to; a format of many
 *                    pages
 *
 * Returns a page that the caller frees with FreeEncodedPage, or null and also ErrPageRefused, ErrTooLarge,
 * ErrUnsupported or ErrOption. */
RASTREL_PAGES_API EncodedPage* RASTREL_CALL EncodePage(HGLOBAL page, const PageMetadata* metadata,
                                                       const char* format, const char* options);
/* As AppendPage. The page stays the caller's, and may be added to several files. */
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

/* As ReadPage; the caller frees the page with FreeRawPage. ErrUnsupported where the format has none. */
RASTREL_PAGES_API RawPage* RASTREL_CALL ReadRawPage(const PageFile* file, int32_t index,
                                                    PageMetadata** metadata);
RASTREL_PAGES_API void RASTREL_CALL FreeRawPage(RawPage* page);
/* Tells a page's size, samples and resolution. Returns 1 or 0. */
RASTREL_PAGES_API int RASTREL_CALL DescribeRawPage(const RawPage* page, RawPageInfo* info);
/* As FlipPage, TurnPage, CropPage and SplitPage; tiles may have any width. The caller frees what they give
 * with FreeRawPage. */
RASTREL_PAGES_API RawPage* RASTREL_CALL FlipRawPage(const RawPage* page, int direction);
RASTREL_PAGES_API RawPage* RASTREL_CALL TurnRawPage(const RawPage* page, int quarters);
RASTREL_PAGES_API RawPage* RASTREL_CALL CropRawPage(const RawPage* page, int left, int top, int width,
                                                    int height);
RASTREL_PAGES_API int32_t RASTREL_CALL SplitRawPage(const RawPage* page, int width, int height,
                                                    RawPage** tiles, int32_t capacity);
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
/* Tell a format, and an option of one, counted from 0. The texts stay for ever. Return 1 or 0. */
RASTREL_PAGES_API int RASTREL_CALL GetPageFormat(int32_t index, PageFormat* format);
RASTREL_PAGES_API int RASTREL_CALL GetPageFormatOption(int32_t format, int32_t index,
                                                       PageFormatOption* option);
/* The format with that name or ending, in any case of letters; -1 for none. */
RASTREL_PAGES_API int32_t RASTREL_CALL FindPageFormat(const char* extension);
/* All formats with their options, as a JSON array that stays for ever. */
RASTREL_PAGES_API const char* RASTREL_CALL PageFormatsJson(void);

#ifdef __cplusplus
}
#endif

#endif
