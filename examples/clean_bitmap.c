#include <rastrel.h>
#include <stdio.h>

int main(void) {
  HGLOBAL page = LoadDIBFromFile("scan.bmp"), straight = NULL, clean = NULL;
  SkewResult skew;
  int isDone = page != NULL && MeasureSkew(page, NULL, &skew);
  if (isDone && skew.confidence > 0.5) {
    straight = StraightenDIB(page, -skew.angle, 1, 0xFFFFFF); /* smooth, white corners */
    isDone = straight != NULL;
  }
  if (isDone) {
    clean = CleanImage(straight != NULL ? straight : page, 50, 0);
    isDone = clean != NULL && SaveDIB("page.bmp", clean);
  }
  if (!isDone) {
    char text[60];
    fprintf(stderr, "%s\n", RastrelErrorString(text, RastrelError()));
  }
  GlobalFree(clean); /* freeing null does nothing */
  GlobalFree(straight);
  GlobalFree(page);
  return isDone ? 0 : 1;
}
