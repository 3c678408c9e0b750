// The operations of the command's table, called by name.
#include "tools/operations.h"

#include <optional>
#include <span>
#include <string>
#include <vector>

#include <nanobind/stl/optional.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/vector.h>

#include "python/core.h"
#include "python/long_work.h"

namespace rastrel::python {
namespace {

// The texts of an operation's parameters, in its order; none where its default is wanted. Pages of a file
// parameter are given apart.
using Texts = std::vector<std::optional<std::string>>;

tool::Values ValuesOf(const tool::Operation& operation, const Texts& texts) {
  const std::span<const tool::Parameter> parameters = operation.parameters();
  if (texts.size() != parameters.size()) Raise(ErrOption, "another number of values than of parameters");
  tool::Values values;
  try {
    for (size_t i = 0; i < parameters.size(); ++i) {
      values.numbers[i] = texts[i] ? tool::ParseValue(parameters[i], *texts[i], parameters[i].name)
                                   : parameters[i].defaultValue;
    }
    if (operation.check != nullptr) operation.check(values);
  } catch (const tool::UsageError& error) {
    Raise(ErrOption, error.what());
  }
  return values;
}

const tool::Operation& Find(const std::string& name) {
  const tool::Operation* operation = tool::FindOperation(name);
  if (operation == nullptr) Raise(ErrOption, "there is no such operation");
  return *operation;
}

struct Made {
  explicit operator bool() const { return isDone; }

  bool isDone = false;
  std::vector<SharedBlock> pages;
};

// Runs what the table has for the operation.
Made Run(const tool::Operation& operation, const tool::Values& values, std::span<const SharedBlock> pages) {
  std::vector<HGLOBAL> handles;
  for (const SharedBlock& page : pages) handles.push_back(page->handle);
  std::vector<tool::Page> results;
  Made made;
  if (operation.split != nullptr) {
    made.isDone = operation.split(handles[0], values, &results);
  } else {
    results.emplace_back(operation.merge != nullptr ? operation.merge(handles, values)
                                                    : operation.run(handles[0], values));
    made.isDone = results[0] != nullptr;
  }
  for (tool::Page& page : results) made.pages.push_back(Share(page.release()));
  return made;
}

// The results for one page, or for all of those that are joined.
nb::list Apply(const std::string& name, const nb::list& pages, const Texts& texts) {
  const tool::Operation& operation = Find(name);
  std::vector<SharedBlock> blocks;
  int64_t pixels = 0;
  for (const nb::handle object : pages) {
    const auto& page = nb::cast<const Page&>(object);
    blocks.push_back(page.block());
    pixels += PixelsOf(page);
  }
  if (blocks.empty()) Raise(ErrParameter, "there is no page");
  const Made made = ResultOf(pixels, [&operation, values = ValuesOf(operation, texts),
                                      blocks](const Report&) { return Run(operation, values, blocks); });
  nb::list results;
  for (const SharedBlock& page : made.pages) results.append(nb::cast(Page(page)));
  return results;
}

// `combine`, whose other pages are files for the command and pages here.
Page Combine(const Page& page, const Page& other, const Page* mask, const Texts& texts) {
  const tool::Values values = ValuesOf(Find("combine"), texts);
  const SharedBlock masking = mask == nullptr ? nullptr : mask->block();
  return Page(ResultOf(PixelsOf(page) + PixelsOf(other), [=, below = page.block(),
                                                          above = other.block()](const Report&) {
    return Share(CombinePages(below->handle, above->handle, masking == nullptr ? nullptr : masking->handle,
                              values.Whole(1), values.Whole(2), values.Whole(3)));
  }));
}

}  // namespace

void AddOperations(nb::module_& module) {
  module.def("apply", &Apply);
  module.def("combine", &Combine, nb::arg(), nb::arg(), nb::arg().none(), nb::arg());
  module.def("operations_json", &tool::OperationsJson);
}

}  // namespace rastrel::python
