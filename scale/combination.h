// What one image laid onto another is combined from.
#ifndef RASTREL_SCALE_COMBINATION_H
#define RASTREL_SCALE_COMBINATION_H

#include "frame/dib.h"
#include "pixels/colours.h"

namespace rastrel {

template <class Byte>
struct Image {
  RowView<Byte> rows;
  unsigned bits;
  ColourTable table;  // empty above 8 bits
};
using Source = Image<const uint8_t>;
using Destination = Image<uint8_t>;

// The part of one axis that is drawn.
struct Span {
  int64_t source;       // first pixel in the source
  int64_t destination;  // and where it goes
  int64_t count;        // 0 when nothing is left
};

struct Combination {
  const Source& source;
  const Source* mask;  // or null; as large as the source
  const Destination& destination;
  const ColourTable& target;  // what the destination's indices will mean
  Span across, down;
  bool isAnd;
};

// The nearer of black and white: what a mask keeps the source at.
constexpr bool IsWhite(Rgb colour) { return RedOf(colour) + GreenOf(colour) + BlueOf(colour) >= 383; }

}  // namespace rastrel

#endif
