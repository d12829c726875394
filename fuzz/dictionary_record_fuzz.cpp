// The dictionary's record reader fed any bytes as a dictionary record: it
// must read what it can and never step outside the record. What it read,
// written and read back, must stay the same through a second round.
#include <dbfile/dbfile.h>

#include <cstring>
#include <string>

namespace {

// The description as text, for comparing two reads.
std::string Describe(CCdd& cdd) {
    std::string out;
    CddFldList& f = cdd.m_FldList;
    for (int ok = f.First(); ok; ok = f.Next()) {
        const CddFldDat& d = *f.GetFldSpec();
        out += std::to_string(d.FldId) + "," + std::to_string(d.Length) + "," + d.Name + "," +
               d.Desc + "," + d.Prompt + "|";
    }
    out += std::to_string(cdd.m_KeyList.Count()) + "/" + std::to_string(cdd.m_RelList.Count());
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 65535) return 0;
    CCdd cdd(nullptr, "fuzz.cdd");
    cdd.SetDataLen(uint16_t(size));
    if (size) std::memcpy(cdd.RcdBuf(), data, size);
    cdd.OnReadRecord();
    cdd.OnWriteRecord();
    cdd.OnReadRecord();
    std::string once = Describe(cdd);
    cdd.OnWriteRecord();
    cdd.OnReadRecord();
    if (Describe(cdd) != once) __builtin_trap();
    return 0;
}
