// Reading a settings file into a document. Not installed.
#pragma once

#include <libxml/tree.h>
#include <string>

namespace Storage {

// The file's document, which the caller frees; null if there is no such file or it is unfit to be one. Then the
// reasons, ten at most, are on the standard error stream with their line numbers. Any thread; the process's use of
// libxml2 has begun.
xmlDoc* parseFile(const std::string& file);

}  // namespace Storage
