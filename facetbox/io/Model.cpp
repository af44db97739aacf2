#include <facetbox/io/Model.h>

#include <facetbox/io/FileError.h>

namespace facetbox {

// Out of line, so that host and library share one virtual table and one type information.
Document::~Document() = default;
ReadError::~ReadError() = default;
WriteError::~WriteError() = default;

}  // namespace facetbox
