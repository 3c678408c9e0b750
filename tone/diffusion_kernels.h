// The kernels of error diffusion, for sixteen rows at once (see wavefront.h).
//
// Each pixel's tone, with the shares of earlier errors, becomes the nearest of a few levels; the error e that
// is left goes to its neighbours in shares of e * weight / divisor, truncated towards zero, which need not
// sum to e. Where e is 0 nothing is handed on, and cells that would be replaced keep what they hold.
//
// 16 bits are enough: the shares that meet in one pixel are at most 40 / 48 of the largest error, so no error
// leaves -126 .. 252 and no sum -105 .. 465.
#ifndef RASTREL_TONE_DIFFUSION_KERNELS_H
#define RASTREL_TONE_DIFFUSION_KERNELS_H

#include <cstdint>

#include "tone/lanes.h"

namespace rastrel {

struct Quantised {
  Lanes level;
  Lanes error;
};

// White (all bits set) above 128, else black.
struct BlackOrWhite {
  static Quantised Of(Lanes value) {
    const Lanes white = value > Lanes::Of(128);
    return {white, value - (white & Lanes::Of(255))};
  }
};

// Levels 0 .. kTop of 2^kBits each. Errors are never negative here, so values are not either.
template <int kBits, int kTop>
struct Steps {
  static Quantised Of(Lanes value) {
    const Lanes level = Smaller(ShiftedRight<kBits>(value), Lanes::Of(kTop));
    return {level, value - ShiftedLeft<kBits>(level)};
  }
};

// A cell that `share` replaces where there is an error; where there is none, `share` is 0.
inline Lanes Stored(Lanes share, Lanes noError, Lanes before) { return share | (before & noError); }

// Floyd-Steinberg, in sixteenths of e:
//
//     current row             x    +7
//     next row         =3    =5    =1
//
// "+" adds to the cell, "=" replaces it. The usual kernel adds everywhere; here a next-row cell keeps only
// the last share stored, or what it held since an earlier row. With kDelay 2 the next-row shares lie one
// pixel further left. Kept: callers of DitherFS4 compare its pages with stored ones.
template <class Quantiser, int kDelayOfCells>
class FloydSteinberg {
 public:
  static constexpr int kDelay = kDelayOfCells;
  static constexpr int kKept = 1;  // the next-row cell

  Lanes Step(Lanes tone, Lanes inside, Lanes (&kept)[kKept]) {
    const auto [level, error] = Quantiser::Of((tone + kept[0] + ahead_) & inside);
    const Lanes noError = IsZero(error);
    // All multiples of e have its sign: one rounding term serves the four divisions.
    const Lanes rounding = ShiftedRight<15>(error) & Lanes::Of(15);
    const Lanes error4 = ShiftedLeft<2>(error) + rounding;
    const Lanes share1 = ShiftedRight<4>(error + rounding);
    const Lanes share3 = ShiftedRight<4>(error4 - error);
    const Lanes share5 = ShiftedRight<4>(error4 + error);
    ahead_ = ShiftedRight<4>(ShiftedLeft<3>(error) - error + rounding);

    // Each cell on its way to the left, as the pixels pass it: first_ takes 1/16, middle_ 5/16.
    Lanes cell;
    if constexpr (kDelay == 1) {
      cell = Stored(share5, noError, Stored(first_, hadNoError_, kept[0]));
      first_ = share1;
      hadNoError_ = noError;
    } else {
      cell = Stored(share5, noError, first_);
      first_ = Stored(share1, noError, kept[0]);
    }
    kept[0] = Stored(share3, noError, middle_);
    middle_ = cell;
    return level;
  }

 private:
  Lanes ahead_ = {};
  Lanes first_ = {};
  Lanes middle_ = {};
  Lanes hadNoError_ = Lanes::Of(-1);
};

// Jarvis-Judice-Ninke, in forty-eighths of e:
//
//     current row                     x    +7    +5
//     next row           +3    +5    +7    +5    +3
//     row after next     =1    =3    =5    =a    =b
//
// "+" adds to the cell, "=" replaces it. Kept: callers of DitherJJN compare its pages with stored ones.
template <class Quantiser, int kWeightA, int kWeightB>
class Jarvis {
 public:
  static constexpr int kDelay = 2;
  static constexpr int kKept = 2;

  // kept[0] is the next-row cell. kept[1] is the cell of the row after next: as rows move on by copying, it
  // is at once what the cell of the next row starts from and what stays where nothing is stored.
  Lanes Step(Lanes tone, Lanes inside, Lanes (&kept)[kKept]) {
    const auto [level, error] = Quantiser::Of((tone + kept[0] + ahead_[0]) & inside);
    const Lanes noError = IsZero(error);
    const Lanes share1 = Share<1, 48>(error);
    const Lanes share3 = Share<1, 16>(error);
    const Lanes share5 = Share<5, 48>(error);
    const Lanes share7 = Share<7, 48>(error);
    const Lanes shareA = kWeightA == 1 ? share1 : share3;
    const Lanes shareB = kWeightB == 1 ? share1 : share3;

    ahead_[0] = ahead_[1] + share7;
    ahead_[1] = share5;

    // Both rows' cells on their way from x + 2 (index 3) to x - 2 (index -1, finished).
    const Lanes old = kept[1];
    kept[0] = sum_[0] + share3;
    sum_[0] = sum_[1] + share5;
    sum_[1] = sum_[2] + share7 + old;
    sum_[2] = sum_[3] + share5;
    sum_[3] = share3;

    kept[1] = Stored(share1, noError, last_[0]);
    last_[0] = Stored(share3, noError, last_[1]);
    last_[1] = Stored(share5, noError, Stored(last_[2], untouched_[0], old));
    last_[2] = Stored(shareA, noError, last_[3]);
    last_[3] = shareB;
    untouched_[0] = untouched_[1] & noError;
    untouched_[1] = noError;
    return level;
  }

 private:
  Lanes ahead_[2] = {};
  Lanes sum_[4] = {};
  Lanes last_[4] = {};
  Lanes untouched_[2] = {Lanes::Of(-1), Lanes::Of(-1)};  // by the one and two pixels before
};

}  // namespace rastrel

#endif
