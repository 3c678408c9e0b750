// The module rastrel._core, of which the package rastrel makes what people use.
#include "python/core.h"

#include <cstring>

namespace rastrel::python {

void Raise(int code, const char* text) {
  const nb::object error = nb::module_::import_("rastrel._errors").attr("make_error")(code, Text(text));
  PyErr_SetObject(error.type().ptr(), error.ptr());
  throw nb::python_error();
}

void RaiseLast() { Raise(PagesError(), PagesErrorText()); }

nb::object Text(const char* text) {
  if (text == nullptr) return nb::none();
  return nb::steal(PyUnicode_DecodeUTF8(text, static_cast<Py_ssize_t>(std::strlen(text)), "replace"));
}

Buffer::Buffer(nb::handle object, int flags) {
  if (PyObject_GetBuffer(object.ptr(), &view_, flags) != 0) throw nb::python_error();
}

}  // namespace rastrel::python

NB_MODULE(_core, module) {
  rastrel::python::AddPages(module);
  rastrel::python::AddFiles(module);
  rastrel::python::AddOperations(module);
  module.attr("version") = PagesVersion();
}
