/* Cleans a file of pages: clean_tiff IN OUT.tif */
#include <rastrel_pages.h>

#include <stdio.h>

static int Fail(const char* name) {
  fprintf(stderr, "%s %s\n", name, PagesErrorText());
  return 1;
}

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: clean_tiff IN OUT.tif\n");
    return 2;
  }
  PageFile* in = OpenPages(argv[1]);
  if (in == NULL) return Fail(argv[1]);
  PageWriter* out = CreatePages(argv[2], "tif", NULL);
  if (out == NULL) {
    ClosePages(in);
    return Fail(argv[2]);
  }
  for (int32_t i = 0; i < CountPages(in); ++i) {
    PageMetadata* metadata = NULL;
    CleanRecord* record = NULL;
    HGLOBAL page = ReadPage(in, i, &metadata);
    HGLOBAL clean = page != NULL ? CleanPage(page, NULL, &record, NULL) : NULL;
    const int isWritten = clean != NULL && AppendPage(out, clean, metadata);
    if (isWritten) printf("{\"page\": %d, \"record\": %s}\n", (int)i + 1, CleanRecordJson(record));
    if (page != NULL) GlobalFree(page);
    if (clean != NULL) GlobalFree(clean);
    FreeCleanRecord(record);
    FreePageMetadata(metadata);
    if (!isWritten) {
      AbandonPages(out); /* what stood under the name stays */
      ClosePages(in);
      return Fail(argv[1]);
    }
  }
  ClosePages(in);
  return FinishPages(out) ? 0 : Fail(argv[2]);
}
