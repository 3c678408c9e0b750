// Steps of a chain at work.
#include <map>
#include <mutex>

#include <fmt/format.h>

#include "tools/operations.h"
#include "tools/system.h"

namespace rastrel::tool {
namespace {

Page FirstPage(const std::string& path) {
  try {
    const Input file(Checked(OpenPages(path.c_str())));
    return Page(Checked(ReadPage(file.get(), 0, nullptr)));
  } catch (const PageError& error) {
    throw PageError(fmt::format("{} {}", path, error.what()));
  }
}

}  // namespace

class NamedPages {
 public:
  // The first page of the file, which stays as long as this object.
  HGLOBAL First(const std::string& path) {
    HGLOBAL first = nullptr;
    Exclusively([&] {
      Page& page = pages_[path];
      if (!page) page = FirstPage(path);
      first = page.get();
    });
    return first;
  }

 private:
  std::map<std::string, Page> pages_;
};

std::shared_ptr<NamedPages> NewNamedPages() { return std::make_shared<NamedPages>(); }

HGLOBAL Values::File(size_t i) const { return texts[i].empty() ? nullptr : files->First(texts[i]); }

std::vector<Page> RunStep(const Step& step, std::span<const Page> pages) {
  const Operation& operation = *step.operation;
  std::vector<Page> results;
  if (operation.merge != nullptr) {
    std::vector<HGLOBAL> handles;
    for (const Page& page : pages) handles.push_back(page.get());
    results.emplace_back(Checked(operation.merge(handles, step.values)));
  }
  for (const Page& page : pages) {
    if (operation.run != nullptr) results.emplace_back(Checked(operation.run(page.get(), step.values)));
    if (operation.split != nullptr) Checked(operation.split(page.get(), step.values, &results));
  }
  return results;
}

bool AreMoves(std::span<const Step> chain) {
  return std::all_of(chain.begin(), chain.end(),
                     [](const Step& step) { return step.operation->move != nullptr; });
}

std::vector<Raw> RunMoves(std::span<const Step> chain, Raw page) {
  std::vector<Raw> pages;
  pages.push_back(std::move(page));
  for (const Step& step : chain) {
    std::vector<Raw> moved;
    for (const Raw& from : pages) {
      if (!step.operation->move(from.get(), step.values, &moved)) throw PageError(PagesErrorText());
    }
    pages = std::move(moved);
  }
  return pages;
}

}  // namespace rastrel::tool
