// Pages in new sizes: 1 bit by the nearest pixel, 4, 8 and 24 bits by interpolation, channel by channel.
#ifndef RASTREL_TESTS_REFERENCE_SCALING_H
#define RASTREL_TESTS_REFERENCE_SCALING_H

#include <algorithm>
#include <cmath>

#include "dib.h"

namespace reference {

using Line = std::vector<uint8_t>;

// Every weighted sample is rounded by itself.
inline int Weighted(int weight, int sample) { return (weight * sample + 128) / 255; }

// The weights of the samples at -1, 0, 1 and 2 from `at`. The outer two count as negative.
struct Weights {
  uint32_t at;
  int of[4];
};

inline Weights BilinearWeights(uint32_t x, uint32_t from, uint32_t to) {
  const uint32_t right = (x * from % to * 255 + to / 2) / to;
  return {x * from / to, {0, static_cast<uint8_t>(255 - right), static_cast<uint8_t>(right), 0}};
}

inline double InnerLobe(double s) { return std::pow(s, 3) - 2 * std::pow(s, 2) + 1; }
inline double OuterLobe(double s) { return std::pow(s, 3) - 5 * std::pow(s, 2) + 8 * s - 4; }

inline Weights CubicWeights(uint32_t x, uint32_t from, uint32_t to) {
  const uint32_t at = x * from / to;
  const double t = static_cast<double>(x) * static_cast<double>(from) / static_cast<double>(to) - at;
  const auto weight = [](double share) { return static_cast<int>(255 * share); };
  return {at,
          {weight(OuterLobe(std::abs(t + 1))), weight(InnerLobe(std::abs(t))),
           weight(InnerLobe(std::abs(t - 1))), weight(OuterLobe(std::abs(t - 2)))}};
}

// Weights of 0 add nothing, so this is the bilinear sum too, which never leaves 0 ... 255.
inline uint8_t WeightedSum(const Weights& weights, int before, int here, int next, int second) {
  const int sum = -Weighted(weights.of[0], before) + Weighted(weights.of[1], here) +
                  Weighted(weights.of[2], next) - Weighted(weights.of[3], second);
  return static_cast<uint8_t>(std::clamp(sum, 0, 255));
}

// One channel of a source row, with one more sample before it and three behind it.
class Plane {
 public:
  explicit Plane(int width) : samples_(static_cast<size_t>(width) + 4) {}
  uint8_t& operator[](int64_t column) { return samples_[static_cast<size_t>(column + 1)]; }
  void RepeatEdges() {
    const int64_t width = static_cast<int64_t>(samples_.size()) - 4;
    (*this)[-1] = (*this)[0];
    for (int i = 0; i < 3; ++i) (*this)[width + i] = (*this)[width - 1];
  }

 private:
  Line samples_;
};

inline std::vector<Weights> WeightTable(bool cubic, uint32_t from, uint32_t to) {
  std::vector<Weights> table;
  for (uint16_t x = 0; x < to; ++x) {
    table.push_back(cubic ? CubicWeights(x, from, to) : BilinearWeights(x, from, to));
  }
  return table;
}

inline Line ScaledAcross(Plane& plane, const std::vector<Weights>& columns) {
  Line line;
  for (const Weights& w : columns) {
    const int64_t c = w.at;
    line.push_back(WeightedSum(w, plane[c - 1], plane[c], plane[c + 1], plane[c + 2]));
  }
  return line;
}

// The source rows r - 1, r, r + 1 and r + 2 in the new width, one line a channel.
struct LineRing {
  std::vector<Line> line[4];
  uint16_t previous = 65535;  // r of the time before; no row has this number
};

// computed(row) scales a source row across. Bilinear: lines 1 and 2 alone are used.
template <class Computed>
void RefreshBilinear(LineRing& ring, uint32_t r, uint32_t height, Computed computed) {
  if (r == ring.previous) return;
  ring.line[1] = r == ring.previous + 1u ? ring.line[2] : computed(r);
  ring.previous = static_cast<uint16_t>(r);
  ring.line[2] = r + 1 >= height ? ring.line[1] : computed(r + 1);
  ring.line[0] = ring.line[3] = ring.line[1];
}

// Below the first row there is black. Lines that are still good move down.
template <class Computed>
void RefreshCubic(LineRing& ring, uint32_t r, uint32_t height, Computed computed) {
  const auto d = r == 0 ? uint16_t{4} : static_cast<uint16_t>(r - ring.previous);
  ring.previous = static_cast<uint16_t>(r);
  const auto kept = [&](int at) { return std::vector<Line>(ring.line[at]); };

  if (r == 0) {
    ring.line[0] = computed(0);
    for (Line& channel : ring.line[0]) std::fill(channel.begin(), channel.end(), uint8_t{0});
  } else {
    ring.line[0] = d >= 4 ? computed(r - 1) : kept(d);
  }
  ring.line[1] = d >= 3 ? computed(r) : kept(1 + d);
  if (r + 1 >= height) {
    ring.line[2] = kept(1);
  } else {
    ring.line[2] = d >= 2 ? computed(r + 1) : kept(2 + d);
  }
  if (r + 2 >= height) {
    ring.line[3] = kept(1);
  } else if (d >= 1) {
    ring.line[3] = computed(r + 2);
  }
}

// unpacked(row): the planes of a source row. put(y, lines): takes stored row y of the result, a line a plane.
template <class Unpacked, class Put>
void ScaleRows(bool cubic, uint32_t width, uint32_t height, uint32_t newWidth, uint32_t newHeight,
               Unpacked unpacked, Put put) {
  const std::vector<Weights> columns = WeightTable(cubic, width, newWidth);
  const std::vector<Weights> rows = WeightTable(cubic, height, newHeight);
  const auto computed = [&](uint32_t row) {
    std::vector<Line> lines;
    for (Plane& plane : unpacked(row)) {
      plane.RepeatEdges();
      lines.push_back(ScaledAcross(plane, columns));
    }
    return lines;
  };

  LineRing ring;
  for (uint16_t y = 0; y < newHeight; ++y) {
    Weights w = rows[y];
    if (cubic) {
      RefreshCubic(ring, w.at, height, computed);
    } else {
      RefreshBilinear(ring, w.at, height, computed);
      if (w.at == height - 1) w = {w.at, {0, 255, 0, 0}};
    }
    std::vector<Line> out = ring.line[1];
    for (size_t channel = 0; channel < out.size(); ++channel) {
      const auto at = [&](int i, size_t x) { return ring.line[i][channel][x]; };
      for (size_t x = 0; x < newWidth; ++x) {
        out[channel][x] = WeightedSum(w, at(0, x), at(1, x), at(2, x), at(3, x));
      }
    }
    put(y, out);
  }
}

// At 4 and 8 bits each row begins as if black, index 0, had just been looked up. lines: blue, green, red.
inline void PackRow(const View& source, const std::vector<Line>& lines, Block& result, int64_t row) {
  Colour last = {0, 0, 0};
  int index = 0;
  for (size_t x = 0; x < lines[0].size(); ++x) {
    const Colour colour = {lines[0][x], lines[1][x], lines[2][x]};
    if (source.bits == 24) {
      OrPixel(result, row, static_cast<int>(x), 24, colour.blue | colour.green << 8 | colour.red << 16);
      continue;
    }
    if (colour.blue != last.blue || colour.green != last.green || colour.red != last.red) {
      last = colour;
      index = NearestEntry(source, colour);
    }
    OrPixel(result, row, static_cast<int>(x), source.bits, index);
  }
}

// 4, 8 and 24 bits. Of all sizes, the source's too, the low 16 bits count.
inline Block Interpolated(const Block& dib, int32_t cubic, int32_t newWidth, int32_t newHeight) {
  View source(dib);
  if (!HoldsItsRows(source)) return {};
  if (source.bits != 24 && Field(dib, kCompression, 4) != 0) return {};
  const auto width = static_cast<uint16_t>(source.width), height = static_cast<uint16_t>(source.height);
  const auto w = static_cast<uint16_t>(newWidth), h = static_cast<uint16_t>(newHeight);
  if (width == 0 || height == 0 || w == 0 || h == 0) return {};
  source.stride = Stride(width, source.bits);

  const int64_t stride = Stride(w, source.bits);
  Block result = WithHeadOf(source, source.pixels + stride * h);
  SetField(result, kWidth, 4, w);
  SetField(result, kHeight, 4, h);
  SetField(result, kSizeImage, 4, stride * h);

  const auto unpacked = [&](uint32_t row) {
    std::vector<Plane> planes(3, Plane(width));
    for (int x = 0; x < width; ++x) {
      const Colour colour = source.ColourOf(x, row);
      planes[0][x] = static_cast<uint8_t>(colour.blue);
      planes[1][x] = static_cast<uint8_t>(colour.green);
      planes[2][x] = static_cast<uint8_t>(colour.red);
    }
    return planes;
  };
  ScaleRows(cubic != 0, width, height, w, h, unpacked, [&](uint16_t y, const std::vector<Line>& lines) {
    PackRow(source, lines, result, source.pixels + y * stride);
  });
  return result;
}

inline Block ScaleDIB(const Block& dib, int32_t cubic, int32_t newWidth, int32_t newHeight) {
  const View source(dib);
  if (source.bits != 4 && source.bits != 8 && source.bits != 24) return {};
  return Interpolated(dib, cubic, newWidth, newHeight);
}

}  // namespace reference

#endif
