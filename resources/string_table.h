// The library's own string table.
#pragma once

namespace dbfile {

// The text of string `id`, or null when the table has none.
const char* LoadLibString(unsigned id);

}  // namespace dbfile
