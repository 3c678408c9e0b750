#include "bench/peers/contest.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <opencv2/imgproc.hpp>
#include <stdexcept>

namespace rastrel::peers {
namespace {

constexpr int kLeastRounds = 5;
constexpr double kTurnMilliseconds = 8;  // a turn is one piece of work, or as many as fit in here

// The CPU time of all threads: what else runs on the machine does not count, helping threads do.
double CpuMilliseconds() {
  timespec time;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

void TakeTurn(const Contestant& contestant, std::vector<double>* times) {
  double spent = 0;
  do {
    if (contestant.prepare) contestant.prepare();
    const double start = CpuMilliseconds();
    contestant.work();
    times->push_back(CpuMilliseconds() - start);
    spent += times->back();
  } while (spent < kTurnMilliseconds);
}

cv::Mat FromAfar(const cv::Mat& image, cv::Size size) {
  const cv::Rect middle((image.cols - size.width) / 2, (image.rows - size.height) / 2, size.width,
                        size.height);
  if (size.width < 8 || size.height < 8) return image(middle);
  cv::Mat small;
  cv::resize(image(middle), small, cv::Size(), 0.125, 0.125, cv::INTER_AREA);
  return small;
}

double Difference(const cv::Mat& a, const cv::Mat& b, bool isExact) {
  if (a.empty() || b.empty() || a.type() != b.type() || (isExact && a.size() != b.size())) return HUGE_VAL;
  if (isExact) return cv::norm(a, b, cv::NORM_INF);
  const cv::Size size(std::min(a.cols, b.cols), std::min(a.rows, b.rows));
  const cv::Mat nearA = FromAfar(a, size), nearB = FromAfar(b, size);
  return cv::norm(nearA, nearB, cv::NORM_L1) / static_cast<double>(nearA.total() * nearA.channels());
}

void Compare(const Row& row) {
  const cv::Mat ours = row.ours.show();
  for (const Contestant& peer : row.peers) {
    if (peer.isOther) continue;
    const double difference = Difference(ours, peer.show(), row.tolerance == 0);
    if (difference <= row.tolerance) continue;
    throw std::runtime_error(row.work + ": " + peer.name + " does something else (difference " +
                             std::to_string(difference) + ")");
  }
}

nlohmann::json Record(const Contestant& contestant, std::vector<double> times) {
  std::sort(times.begin(), times.end());
  return {{"name", contestant.name},
          {"least", times.front()},
          {"median", times[times.size() / 2]},
          {"other", contestant.isOther}};
}

}  // namespace

nlohmann::json Time(const Row& row, double secondsEach) {
  Compare(row);
  std::vector<const Contestant*> all = {&row.ours};
  for (const Contestant& peer : row.peers) all.push_back(&peer);
  std::vector<std::vector<double>> times(all.size());
  const double most = secondsEach * 1000 * static_cast<double>(all.size());
  const double start = CpuMilliseconds();
  for (int round = 0; round < kLeastRounds || CpuMilliseconds() - start < most; ++round) {
    for (size_t i = 0; i < all.size(); ++i) TakeTurn(*all[i], &times[i]);
  }

  nlohmann::json record = {{"work", row.work}, {"goal", row.goal}, {"note", row.note}};
  record["ours"] = Record(row.ours, times[0]);
  const nlohmann::json* best = nullptr;
  for (size_t i = 1; i < all.size(); ++i) record["peers"].push_back(Record(*all[i], times[i]));
  for (const nlohmann::json& peer : record["peers"]) {
    if (!peer["other"] && (best == nullptr || peer["least"] < (*best)["least"])) best = &peer;
  }
  record["best"] = (*best)["name"];
  record["ratio"] = (*best)["least"].get<double>() / record["ours"]["least"].get<double>();
  return record;
}

}  // namespace rastrel::peers
