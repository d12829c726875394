// Filter texts against a file with a field of every type: verifying and
// setting must agree, stop at a term the result names with one of the known
// codes, keep the terms before it, and build a descriptor no longer than its
// own 16-bit length says.
#include <dbfile/dbfile.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

CDbFile& File() {
    static CDbFile* f = [] {
        auto* file = new CDbFile("fuzz.dat", "/nonexistent", 1);
        struct {
            const char* name;
            dbFieldType type;
            int len, dp;
        } fields[] = {{"Id", dbInteger, 4, 0},        {"Name", dbString, 30, 0},
                      {"Qty", dbInteger, 2, 0},       {"Count", dbUnsigned, 4, 0},
                      {"Ratio", dbFloat, 8, 0},       {"Dec", dbDecimal, 8, 0},
                      {"When", dbDate, 4, 0},         {"At", dbTime, 4, 0},
                      {"Amount", dbMoney, 8, 2},      {"Flag", dbBoolean, 1, 0},
                      {"City", dbZString, 20, 0},     {"Auto", dbAutoInc, 4, 0},
                      {"Phone", dbPhone, 14, 0},      {"Fixed", dbFixedText, 6, 0},
                      {"Code", dbUnsignedText, 2, 0}, {"Big", dbString, 4000, 0},
                      {"Empty", dbString, 0, 0},      {"and", dbString, 3, 0}};
        unsigned short offset = 0, id = 0;
        for (const auto& f : fields) {
            auto* e = new CddFldElem;
            e->m_Fld.FldId = id++;
            e->m_Fld.Offset = offset;
            e->m_Fld.Length = uint16_t(f.len);
            e->m_Fld.Type = uint8_t(f.type);
            e->m_Fld.NumDP = uint8_t(f.dp);
            std::strncpy(e->m_Fld.Name, f.name, sizeof(e->m_Fld.Name) - 1);
            file->m_FldList.AddFld(e);
            offset = uint16_t(offset + f.len);
        }
        file->ResetFields(1);
        return file;
    }();
    return *f;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    CDbFile& f = File();
    CExtended& x = *f.GetExtended();
    f.ResetTerms();
    unsigned long verified = f.VerifySQLFilter(text.c_str());
    if (x.m_Terms.Count() != 0) std::abort();
    unsigned long set = f.SetSQLFilter(text.c_str());
    dbSQLErrCode code = CDbFile::GetSQLErrCode(set);
    int stop = CDbFile::GetSQLErrExpression(set);
    // Verification cannot fail to add a term, so it may only go further.
    bool agree =
        verified == set || (code == dbSQLAddTermFailed &&
                            (verified == 0 || CDbFile::GetSQLErrExpression(verified) >= stop));
    if (!agree || code > dbSQLAddTermFailed) std::abort();
    if (code != dbSQLNoError && x.m_Terms.Count() != stop) std::abort();
    uint32_t length = x.DescriptorLength();
    if (length > CExtended::kMaxDescriptor) std::abort();
    std::vector<uint8_t> d(length);
    x.BuildDescriptor(d.data());
    if ((d[0] | d[1] << 8) != int(length)) std::abort();
    return 0;
}
