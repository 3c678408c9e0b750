// A page turned by the skew that is found in it.
#include "frame/rastrel.h"

HGLOBAL RASTREL_CALL DeskewDIB(HGLOBAL dib, int darkForeground, int showProgress, HWND parent,
                               int trimBorder) {
  if (dib == nullptr) return nullptr;
  const int angle = DetectSkewAngle(dib, darkForeground, showProgress, parent);
  if (angle == 0) return nullptr;
  HGLOBAL turned = RotateDIB(dib, static_cast<double>(-angle));
  if (turned == nullptr || trimBorder == 0 || darkForeground == 0) return turned;
  HGLOBAL trimmed = TrimBlackBorder(turned);
  GlobalFree(turned);
  return trimmed;
}
