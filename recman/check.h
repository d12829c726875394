// Consistency check of a record file. Its structure is read page by page
// without trusting it (every page where it should be, in bounds, in order and
// used once); where that holds, every record's checksum matches, every index
// entry points at a live record and matches it, every record sits in every
// index it belongs to, the kept counts agree with what is stored, and no
// commit journal beside the file waits to be finished or discarded.
#pragma once

#include <string>
#include <vector>

namespace recman {

// Checks the file at `path`. Answers 0 and leaves `problems` empty when the
// file is consistent; a status when it cannot be read (30: not a record
// file); 0 with one line per fault found otherwise. It never crashes on a
// damaged file.
__attribute__((visibility("default"))) int CheckFile(const std::string& path,
                                                     std::vector<std::string>& problems);

}  // namespace recman
