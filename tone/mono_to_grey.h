// Black-and-white pages as grey ones: the pages of 8 bits that come out, and the ways to fill them.
#ifndef RASTREL_TONE_MONO_TO_GREY_H
#define RASTREL_TONE_MONO_TO_GREY_H

#include <cstdint>

#include "frame/dib.h"
#include "frame/rastrel.h"
#include "frame/thread_state.h"

namespace rastrel {

// A new page of 8 bits: the header as given, 256 greys from black to white, and rows for the caller to write
// in full. Room for five more rows stands behind them.
class GreyPage : public NewBlock {
 public:
  explicit GreyPage(const Header& header);
  const Rows& rows() const { return rows_; }

 private:
  Rows rows_ = {};
};

constexpr uint32_t kMonoMethods = 3;  // expansion, 3 x 3 and 5 x 5 smoothing

// Fills the rows of `result` from a page of 1 bit of the same size. Pages too low for a method take a simpler
// one. Returns ErrNoMemory or ErrLockMemory when the work buffer cannot be had.
ErrorCode TurnMonoGrey(const ConstRows& page, bool setIsWhite, uint32_t method, const Rows& result);

}  // namespace rastrel

#endif
