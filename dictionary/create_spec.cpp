#include "dictionary/create_spec.h"

#include <cstring>

std::vector<uint8_t> BuildCreateSpec(const CddFileDat& file, const CddKeyList& keys) {
    std::vector<uint8_t> out(16 + 16 * size_t(keys.Count()));
    std::memcpy(out.data(), &file.FileSpec, 16);
    LLPosition p;
    size_t at = 16;
    for (ListElem* e = keys.LinkList::First(p); e; e = keys.LinkList::Next(p), at += 16) {
        DbCreateKeySpec k = static_cast<CddKeyElem*>(e)->m_Key.KeySpec;
        CvtDbKeyToBtrKey(&k, dbFileType(file.FileType));
        std::memcpy(out.data() + at, &k, 16);
    }
    return out;
}
