// A page as its text over the rest, in the manner of mixed raster content: text at full resolution with one
// bit a pixel and a colour for all of it, the paper and the pictures at a lower one.
#ifndef RASTREL_PAGES_LAYERS_H
#define RASTREL_PAGES_LAYERS_H

#include <cstdint>
#include <optional>
#include <vector>

#include "pages/page.h"

namespace rastrel::pages {

struct TextLayer {
  Dib ink;            // 1 bit, black where the colour goes
  uint8_t colour[3];  // red, green, blue
};
struct PageLayers {
  Dib background;  // the whole page without its text, 8 bits of grey or 24
  std::vector<TextLayer> texts;
};

// Nothing where a page is better kept in one piece: of 1 bit, of less than 200 dots per inch, with light text
// or none; and where the layers laid over one another would lack ink of the page.
std::optional<PageLayers> PartIntoLayers(const Dib& page);

}  // namespace rastrel::pages

#endif
