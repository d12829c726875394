// Temporary file names.
#pragma once

#include <string>

// Creates an empty file with a unique name starting with `prefix` in `dir`
// and answers its name, or "" when none can be made there.
std::string UniqueTempFile(const std::string& dir, const char* prefix);
// The system's directory for temporary files.
std::string SystemTempDirectory();
