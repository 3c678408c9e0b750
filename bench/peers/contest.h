// Rows of the comparison: one piece of work, ours and the peers' ways to do it, timed in turn.
#ifndef RASTREL_BENCH_PEERS_CONTEST_H
#define RASTREL_BENCH_PEERS_CONTEST_H

#include <functional>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "bench/peers/images.h"

namespace rastrel::peers {

struct Contestant {
  std::string name;
  std::function<void()> work;     // what is timed: a result, made and freed
  std::function<cv::Mat()> show;  // the result of the same work
  std::function<void()> prepare;  // before each piece of work, not timed; may be empty
  // Shown, but neither compared nor counted as a peer: other work, which users might do in place of ours.
  bool isOther = false;
};

// A contestant whose work is to make what `make` returns.
template <class Make>
Contestant Does(std::string name, Make make) {
  return {std::move(name), [make] { Free(make()); }, [make] { return Show(make()); }, {}, false};
}

template <class Make>
Contestant DoesOther(std::string name, Make make) {
  Contestant contestant = Does(std::move(name), make);
  contestant.isOther = true;
  return contestant;
}

struct Row {
  std::string work;
  double goal;  // the fastest peer's time over ours that is to be reached
  Contestant ours;
  std::vector<Contestant> peers;
  // How far results may be apart: 0 is not at all; else the mean difference of greys, seen at an eighth of
  // the size in the middle, or of numbers.
  double tolerance = 0;
  std::string note = {};  // where the work differs
};

// Each makes rows of one kind.
std::vector<Row> GeometryRows();
std::vector<Row> ToneRows();
std::vector<Row> CleanupRows();
std::vector<Row> ScalingRows();
std::vector<Row> FileRows();

// Times the contestants of a row in turn, round after round, and returns the record: the least and the median
// CPU time of each, in milliseconds.
nlohmann::json Time(const Row& row, double secondsEach);

}  // namespace rastrel::peers

#endif
