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

// Handles of the objects, which keep the pages meanwhile.
std::vector<HGLOBAL> HandlesOf(const nb::list& pages) {
  std::vector<HGLOBAL> handles;
  for (const nb::handle page : pages) handles.push_back(nb::cast<const Page&>(page).handle());
  return handles;
}

// The results for one page, or for all of those that are joined.
nb::list Apply(const std::string& name, const nb::list& pages, const Texts& texts) {
  const tool::Operation& operation = Find(name);
  const tool::Values values = ValuesOf(operation, texts);
  const std::vector<HGLOBAL> handles = HandlesOf(pages);
  if (handles.empty()) Raise(ErrParameter, "there is no page");
  std::vector<tool::Page> results;
  const bool isDone = WithoutGil([&] {
    if (operation.split != nullptr) return operation.split(handles[0], values, &results);
    results.emplace_back(operation.merge != nullptr ? operation.merge(handles, values)
                                                    : operation.run(handles[0], values));
    return results[0] != nullptr;
  });
  Checked(isDone);
  nb::list made;
  for (tool::Page& page : results) made.append(nb::cast(Page(page.release())));
  return made;
}

// `combine`, whose other pages are files for the command and pages here.
Page Combine(const Page& page, const Page& other, const Page* mask, const Texts& texts) {
  const tool::Values values = ValuesOf(Find("combine"), texts);
  const HGLOBAL masking = mask == nullptr ? nullptr : mask->handle();
  return Page(Checked(WithoutGil([&] {
    return CombinePages(page.handle(), other.handle(), masking, values.Whole(1), values.Whole(2),
                        values.Whole(3));
  })));
}

}  // namespace

void AddOperations(nb::module_& module) {
  module.def("apply", &Apply);
  module.def("combine", &Combine, nb::arg(), nb::arg(), nb::arg().none(), nb::arg());
  module.def("operations_json", &tool::OperationsJson);
}

}  // namespace rastrel::python
