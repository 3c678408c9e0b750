// Times our operations and their peers' and prints a table: rastrel_peers [--json FILE] [--seconds S]
// [WORD...] Only rows whose names hold one of the words are run. Seconds are CPU time for each contestant of
// a row.
#include <cstdio>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/core/version.hpp>
#include <string>
#include <vector>

#include "bench/peers/contest.h"

namespace {

using namespace rastrel::peers;
using nlohmann::json;

bool IsWanted(const std::string& work, const std::vector<std::string>& words) {
  for (const std::string& word : words) {
    if (work.find(word) != std::string::npos) return true;
  }
  return words.empty();
}

void PrintRow(const json& row) {
  const double ratio = row["ratio"], goal = row["goal"];
  std::printf("%-44s %8.3f %8.2f %8.2f %s  %s\n", row["work"].get<std::string>().c_str(),
              row["ours"]["least"].get<double>(), ratio, goal, ratio >= goal ? "  " : "<<",
              row["best"].get<std::string>().c_str());
  for (const json& peer : row["peers"]) {
    std::printf("%44s %8.3f          %s%s\n", "", peer["least"].get<double>(),
                peer["name"].get<std::string>().c_str(), peer["other"].get<bool>() ? " (other work)" : "");
  }
  std::fflush(stdout);
}

int Run(int argc, char** argv) {
  std::string jsonPath;
  double seconds = 0.4;
  std::vector<std::string> words;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--json" && i + 1 < argc) {
      jsonPath = argv[++i];
    } else if (argument == "--seconds" && i + 1 < argc) {
      seconds = std::stod(argv[++i]);
    } else {
      words.push_back(argument);
    }
  }
  cv::setNumThreads(1);
  setMsgSeverity(L_SEVERITY_NONE);

  std::printf("%-44s %8s %8s %8s\n", "A4 at 300 dpi; CPU milliseconds", "ours", "ratio", "to reach");
  json rows = json::array();
  for (const auto& makeRows : {GeometryRows, ToneRows, CleanupRows, ScalingRows, FileRows}) {
    for (const Row& row : makeRows()) {
      if (!IsWanted(row.work, words)) continue;
      rows.push_back(Time(row, seconds));
      PrintRow(rows.back());
    }
  }
  if (!jsonPath.empty()) {
    const json versions = {
        {"Leptonica", std::to_string(LIBLEPT_MAJOR_VERSION) + "." + std::to_string(LIBLEPT_MINOR_VERSION)},
        {"OpenCV", CV_VERSION}};
    std::ofstream(jsonPath) << json({{"versions", versions}, {"rows", rows}}).dump(1) << '\n';
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}
