// Records between files of different layouts, field by field by name, and
// generated test records.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "dbfile/db_file.h"
#include "support/date_time.h"
#include "support/splay_tree.h"
#include "values/currency.h"

namespace {

// One field of the source record, found by its name in any case.
class SrcField : public SplayElem {
  public:
    SrcField(const char* name, int length, int offset, int type)
        : m_Name(name), m_nLength(length), m_nOffset(offset), m_nType(type) {}
    int Compare(const SplayElem& o) const override {
        return m_Name.CompareNoCase(static_cast<const SrcField&>(o).m_Name);
    }

    ZString m_Name;
    int m_nLength;
    int m_nOffset;
    int m_nType;
};

}  // namespace

int CDbFile::CopyFrom(CDbFile* source) {
    if (!source || source == this) return 0;
    int result = 1;
    SplayTree fields;
    try {
        for (int ok = source->m_FldList.First(); ok; ok = source->m_FldList.Next())
            fields.Add(new SrcField(source->m_FldList.GetFldName(), source->m_FldList.GetFldLen(),
                                    source->m_FldList.GetFldOffset(),
                                    source->m_FldList.GetFldType()));
    } catch (const std::bad_alloc&) {
        result = 0;  // the fields collected so far still copy
    }
    if (!m_pRcdBuf) SetDataLen(m_FileDat.FileSpec.RecLen);
    if (m_pRcdBuf) std::memset(m_pRcdBuf, 0, m_nRcdBufLen);
    const char* from = source->m_pRcdBuf;
    size_t fromLen = from ? source->m_nRcdBufLen : 0;
    for (int ok = m_FldList.First(); ok; ok = m_FldList.Next()) {
        SrcField probe(m_FldList.GetFldName(), 0, 0, 0);
        auto* src = static_cast<SrcField*>(fields.Find(probe));
        if (!src) continue;
        int type = m_FldList.GetFldType();
        size_t length = m_FldList.GetFldLen();
        size_t offset = m_FldList.GetFldOffset();
        size_t srcLength = size_t(src->m_nLength), srcOffset = size_t(src->m_nOffset);
        // Only fields that both buffers really hold.
        if (offset + length > m_nRcdBufLen || srcOffset + srcLength > fromLen || length == 0)
            continue;
        char* to = m_pRcdBuf + offset;
        const char* at = from + srcOffset;
        bool sameLength = srcLength == length;
        if (src->m_nType == type && sameLength) {
            std::memcpy(to, at, length);
        } else if (src->m_nType == type && type == dbZString) {
            size_t n = std::min(length, srcLength);
            const void* nul = std::memchr(at, 0, n);
            std::memcpy(to, at, nul ? size_t(static_cast<const char*>(nul) - at) : n);
            to[length - 1] = 0;
        } else if (src->m_nType == dbAutoInc && (type == dbInteger || type == dbUnsigned) &&
                   sameLength) {
            std::memcpy(to, at, length);
        }
    }
    if (result == 1) OnReadRecord();
    return result;
}

void CDbFile::DummyData(const char* text) {
    if (!m_pRcdBuf) SetDataLen(m_FileDat.FileSpec.RecLen);
    if (m_pRcdBuf) std::memset(m_pRcdBuf, 0, m_nRcdBufLen);
    uint32_t today = Date::Today().Value();
    size_t textLen = text ? std::strlen(text) : 0;
    auto repeat = [&](char* to, size_t n) {
        for (size_t i = 0; textLen && i < n; ++i)
            to[i] = text[i % textLen];
    };
    // Numbers are cut to the field; nothing is written past it.
    auto put = [](char* to, size_t room, const void* value, size_t size) {
        std::memcpy(to, value, std::min(room, size));
    };
    for (int ok = m_FldList.First(); ok; ok = m_FldList.Next()) {
        int r = std::rand();
        size_t length = m_FldList.GetFldLen();
        size_t offset = m_FldList.GetFldOffset();
        if (length == 0 || offset + length > m_nRcdBufLen) continue;
        char* to = m_pRcdBuf + offset;
        switch (m_FldList.GetFldType()) {
            case dbString:
            case dbFixedText:
                repeat(to, length);
                break;
            case dbZString:
            case dbPhone:
                repeat(to, length - 1);
                to[length - 1] = 0;
                break;
            case dbInteger:
            case dbUnsigned:
                if (length == 2) {
                    int16_t v = int16_t(r);
                    put(to, length, &v, 2);
                } else {
                    put(to, length, &r, 4);
                }
                break;
            case dbAutoInc:  // numbered on insert
                break;
            case dbFloat:
            case dbDecimal:
                if (length == 4) {
                    float v = float(r);
                    put(to, length, &v, 4);
                } else {
                    double v = double(r);
                    put(to, length, &v, 8);
                }
                break;
            case dbDate:
                put(to, length, &today, 4);
                break;
            case dbMoney: {
                Currency amount{double(r)};
                amount.CopyBCD(reinterpret_cast<unsigned char*>(to), int(length),
                               m_FldList.GetFldNumDP());
                break;
            }
            case dbBoolean:
                to[0] = char(r % 2);
                break;
            default:  // times and the rest stay zero
                break;
        }
    }
    OnReadRecord();
}
