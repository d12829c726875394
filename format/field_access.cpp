// The field conversions of a record file: the field is looked up in the
// file's description by id or by name, and its bytes taken from the record
// buffer. Bytes of a field that lie past the record buffer read as zeros.
#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "dbfile/db_file.h"
#include "format/code_table.h"

namespace {

constexpr int kNoPhone = -1;

}  // namespace

const CddFldDat* CDbFile::FieldForConversion(int fldId) {
    if (fldId < 0 || fldId > 0xFFFF) return nullptr;
    if (m_FldList.GetFldSpec() && m_FldList.GetFldId() == fldId) return m_FldList.GetFldSpec();
    return m_FldList.FindByFldId(uint16_t(fldId)) ? m_FldList.GetFldSpec() : nullptr;
}

std::vector<char> CDbFile::FieldBytes(const CddFldDat& f) const {
    std::vector<char> bytes(f.Length, 0);
    if (f.Length && m_pRcdBuf && f.Offset < m_nRcdBufLen)
        std::memcpy(bytes.data(), m_pRcdBuf + f.Offset,
                    std::min<size_t>(f.Length, size_t(m_nRcdBufLen - f.Offset)));
    return bytes;
}

const CddFldDat* CDbFile::FieldForText(int fldId, CString& out, std::vector<char>& bytes) {
    const CddFldDat* f = FieldForConversion(fldId);
    if (!f) {
        out = "";
        return nullptr;
    }
    bytes = FieldBytes(*f);
    bytes.push_back(0);
    return f;
}

// The value of the field before the current one, which a phone number's
// layout takes as its area; -1 when the phone is the first field.
int CDbFile::PhoneValueBeforeCurrent() {
    uint16_t id = m_FldList.GetFldId();
    int value = kNoPhone;
    if (m_FldList.Prev()) {
        const CddFldDat& prev = *m_FldList.GetFldSpec();
        std::vector<char> b = FieldBytes(prev);
        if (prev.Length == 2) {
            int16_t v;
            std::memcpy(&v, b.data(), 2);
            value = v;
        } else {
            int32_t v = 0;
            std::memcpy(&v, b.data(), std::min<size_t>(b.size(), 4));
            value = v;
        }
        m_FldList.Next();
    } else {
        m_FldList.FindByFldId(id);
    }
    return value;
}

const char* CDbFile::FormatFileDataToString(CString& out, int fldId) {
    std::vector<char> b;
    const CddFldDat* f = FieldForText(fldId, out, b);
    if (!f) return out;
    return FormatFileDataToString(out, b.data(), f->Length, dbFieldType(f->Type), f->NumDP);
}

const char* CDbFile::FormatFileDataToString(CString& out, const char* name) {
    return FormatFileDataToString(out, int(GetFieldIdOfName(name)));
}

const char* CDbFile::FormatFileDataToDisplay(CString& out, int fldId) {
    std::vector<char> b;
    const CddFldDat* f = FieldForText(fldId, out, b);
    if (!f) return out;
    CddFldDat fld = *f;
    int phone = kNoPhone;
    std::unique_ptr<CCodeTable> table;
    if (fld.Type == dbPhone) {
        phone = PhoneValueBeforeCurrent();
    } else if (fld.DispCode == dbDispCodeTable) {
        table = std::make_unique<CCodeTable>();
        try {
            table->LoadTable(this, fld.FldId);
        } catch (int) {  // the code file's record file said why; the table stays empty
        }
        FieldForConversion(fld.FldId);
    }
    return FormatFileDataToDisplay(out, b.data(), fld.Length, dbFieldType(fld.Type),
                                   dbDispCode(fld.DispCode), fld.NumDP, table.get(), phone);
}

const char* CDbFile::FormatFileDataToDisplay(CString& out, const char* name) {
    return FormatFileDataToDisplay(out, int(GetFieldIdOfName(name)));
}

void CDbFile::FormatStringToFileData(const char* text, char* dest, int fldId) {
    const CddFldDat* f = FieldForConversion(fldId);
    if (f) FormatStringToFileData(text, dest, f->Length, dbFieldType(f->Type), f->NumDP);
}

void CDbFile::FormatStringToFileData(const char* text, char* dest, const char* name) {
    FormatStringToFileData(text, dest, int(GetFieldIdOfName(name)));
}

const char* CDbFile::FormatSQLData(CString& out, SQLType style, int fldId) {
    CString plain;
    FormatFileDataToString(plain, fldId);
    const CddFldDat* f = plain.IsEmpty() ? nullptr : FieldForConversion(fldId);
    if (!f) {
        out = "";
        return out;
    }
    return FormatSQLData(style, plain, short(f->Type), out);
}

const char* CDbFile::FormatSQLData(CString& out, SQLType style, const char* name) {
    return FormatSQLData(out, style, int(GetFieldIdOfName(name)));
}

const char* CDbFile::FormatBoolean(CString& out, int fldId) {
    std::vector<char> b;
    const CddFldDat* f = FieldForText(fldId, out, b);
    if (!f) return out;
    return FormatBoolean(out, static_cast<signed char>(b[0]), dbDispCode(f->DispCode));
}

const char* CDbFile::FormatAccount(CString& out, int fldId) {
    std::vector<char> b;
    if (!FieldForText(fldId, out, b)) return out;
    return FormatAccount(out, b.data());
}

const char* CDbFile::FormatJob(CString& out, int fldId) {
    std::vector<char> b;
    if (!FieldForText(fldId, out, b)) return out;
    return FormatJob(out, b.data());
}

const char* CDbFile::FormatPhone(CString& out, int fldId) {
    std::vector<char> b;
    if (!FieldForText(fldId, out, b)) return out;
    int phone = PhoneValueBeforeCurrent();
    return FormatPhone(out, b.data(), phone);
}

const char* CDbFile::GetFieldData(const char* name) {
    static CString text;  // the process's one answer, overwritten by each call
    FormatFileDataToDisplay(text, name);
    return text;
}
