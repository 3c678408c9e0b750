// Bitmap files on a memory disk.
#include <unistd.h>

#include <cstdio>
#include <opencv2/imgcodecs.hpp>

#include "bench/peers/contest.h"
#include "bench/support/bench_page.h"

namespace rastrel::peers {
namespace {

// The name of a file that lives as long as this does.
class MemoryFile {
 public:
  explicit MemoryFile(const std::string& name)
      : path_((access("/dev/shm", W_OK) == 0 ? "/dev/shm/" : "/tmp/") + ("rastrel-peers-" + name) + "-" +
              std::to_string(getpid()) + ".bmp") {}
  ~MemoryFile() { std::remove(path_.c_str()); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

void AddRows(int bits, std::vector<Row>* rows) {
  const auto page = std::make_shared<const Page>(bench::BenchPage(bits));
  const auto from = std::make_shared<MemoryFile>("from-" + std::to_string(bits));
  const std::string depth = ", " + std::to_string(bits) + " bit";
  SaveDIB(from->path().c_str(), page->dib.handle());
  const int mode = bits == 24 ? cv::IMREAD_COLOR : cv::IMREAD_GRAYSCALE;
  rows->push_back({"BMP read" + depth,
                   1.2,
                   Does("LoadDIBFromFile", [from] { return LoadDIBFromFile(from->path().c_str()); }),
                   {Does("Leptonica pixRead", [from] { return pixRead(from->path().c_str()); }),
                    Does("OpenCV imread", [from, mode] { return cv::imread(from->path(), mode); })},
                   0,
                   bits == 1 ? "OpenCV makes a byte of each pixel." : ""});

  const auto to = std::make_shared<MemoryFile>("to-" + std::to_string(bits));
  // Writes a new file, and shows what can be read from it.
  const auto writes = [from, to](std::string name, std::function<bool(const std::string&)> write) {
    return Contestant{
        std::move(name), [to, write] { write(to->path()); },
        [to, write] { return write(to->path()) ? cv::imread(to->path(), cv::IMREAD_COLOR) : cv::Mat(); },
        [to] { std::remove(to->path().c_str()); }, false};
  };
  rows->push_back(
      {"BMP write" + depth,
       1,
       writes("SaveDIB",
              [page](const std::string& path) { return SaveDIB(path.c_str(), page->dib.handle()) != 0; }),
       {writes("Leptonica pixWrite",
               [page](const std::string& path) {
                 return pixWrite(path.c_str(), page->pix.get(), IFF_BMP) == 0;
               }),
        writes("OpenCV imwrite", [page](const std::string& path) { return cv::imwrite(path, page->mat); })},
       0,
       bits == 1 ? "OpenCV writes a byte for each pixel." : ""});
}

}  // namespace

std::vector<Row> FileRows() {
  std::vector<Row> rows;
  for (const int bits : {1, 8, 24}) AddRows(bits, &rows);
  return rows;
}

}  // namespace rastrel::peers
