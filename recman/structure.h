// The storage file examined page by page with pread, trusting none of it:
// every page number, offset, count and length is held against the file's
// size and the page's bounds before it is followed, so that a damaged file is
// described instead of handed to the storage library, which trusts every
// byte it maps.
#pragma once

#include <string>
#include <vector>

#include "recman/filedef.h"

namespace recman {

enum class StructureDepth {
    // The meta pages alone (see StructureResult::metas).
    Meta,
    // The meta pages, the page size, the last page against the file's size,
    // the main tree and the roots of the trees it names: a few pages.
    Cheap,
    // Every page of every tree and of the free list: keys in order within
    // and across pages, counts as recorded, and each page used exactly once.
    Full,
};

struct StructureResult {
    // 30 when the file is not a storage file of record files at all, 2 when
    // it cannot be read, else 0.
    Status status = 0;
    // One line per fault found; empty when the file is whole.
    std::vector<std::string> faults;
    // The head of both meta pages as this reading found them. Writers in
    // other processes may commit, and reuse pages, while a file is read: a
    // reading is of one state of the file only if the meta pages read the
    // same after it.
    std::string metas;
    // False when every reading raced a commit (see CheckSettled).
    bool settled = true;
};

// Examines the storage file open for reading at `fd`.
StructureResult CheckStructure(int fd, StructureDepth depth);

// The same, counting only a reading of one state of the file: a reading that
// found something while the meta pages changed under it is made again, up to
// `readings` times in all.
StructureResult CheckSettled(int fd, StructureDepth depth, int readings);

}  // namespace recman
