/* The public headers as a C program sees them: a page goes from memory to a file and back. */
#include <rastrel.h>
#include <stdio.h>
#include <string.h>

#define CHECK(condition)                                         \
  if (!(condition)) {                                            \
    printf("line %d: %s does not hold\n", __LINE__, #condition); \
    return 1;                                                    \
  }

int main(void) {
  const char* fileName = "c_interface_test.bmp";
  BITMAPINFOHEADER header;
  HGLOBAL page, loaded;
  char text[60];

  memset(&header, 0, sizeof(header));
  header.biSize = sizeof(header);
  header.biWidth = 9;
  header.biHeight = 2;
  header.biPlanes = 1;
  header.biBitCount = 1;
  CHECK(sizeof(header) == 40 && sizeof(BITMAPCOREHEADER) == 12 && sizeof(ScaleStepTable) == 44);
  CHECK(PaletteSize(&header) == 8);

  page = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, 40 + 8 + 2 * 4);
  memcpy(GlobalLock(page), &header, sizeof(header));
  GlobalUnlock(page);
  CHECK(SaveDIB(fileName, page) == 1);
  loaded = LoadDIBFromFile(fileName);
  remove(fileName);
  CHECK(loaded != NULL && GlobalSize(loaded) == 56);
  CHECK(GlobalFree(loaded) == NULL && GlobalFree(page) == NULL);

  CHECK(LoadDIBFromFile(fileName) == NULL && RastrelError() == ErrOpenFile);
  CHECK(strcmp(RastrelErrorString(text, RastrelError()), "Can't open file.") == 0);
  return 0;
}
