// Key buffers of a record file: from bytes, from one value per segment or
// from typed text; key searches; questions about the file's keys, asked of
// the dictionary's key list (the keys the file is defined with) or of the
// engine's statistics (the keys it really has).
#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <string>

#include "dbfile/db_file.h"
#include "engine/dbfile_app.h"
#include "platform/numeric_text.h"
#include "recman/recman.h"
#include "support/date_time.h"
#include "values/currency.h"

namespace {

constexpr uint16_t kSegmentFollows = 0x0010;
constexpr uint16_t kDuplicates = 0x0001;
constexpr uint16_t kDescending = 0x0040;

}  // namespace

void CDbFile::SetKey(const void* data, int len, int keyNo) {
    std::memset(m_KeyBuf, 0, sizeof(m_KeyBuf));
    if (data && len > 0)
        std::memcpy(m_KeyBuf, data, size_t(std::min<int>(len, int(sizeof(m_KeyBuf)))));
    m_nKeyNo = keyNo;
}

void CDbFile::SetKeyData(const void* first, ...) {
    std::memset(m_KeyBuf, 0, sizeof(m_KeyBuf));
    if (!m_KeyList.FindByKeyNo(m_nKeyNo)) return;
    va_list ap;
    va_start(ap, first);
    const void* value = first;
    size_t at = 0;
    while (value && at < sizeof(m_KeyBuf)) {
        size_t room = std::min<size_t>(m_KeyList.GetLength(), sizeof(m_KeyBuf) - at);
        switch (m_KeyList.GetType()) {
            case dbZString:
                room = std::min(room, std::strlen(static_cast<const char*>(value)));
                std::memcpy(m_KeyBuf + at, value, room);
                break;
            case dbDate: {
                uint32_t v = static_cast<const Date*>(value)->Value();
                std::memcpy(m_KeyBuf + at, &v, std::min<size_t>(room, sizeof(v)));
                break;
            }
            default:
                std::memcpy(m_KeyBuf + at, value, room);
        }
        at += m_KeyList.GetLength();
        if (!m_KeyList.Next() || m_KeyList.GetKeyNo() != m_nKeyNo) break;
        value = va_arg(ap, const void*);
    }
    va_end(ap);
}

int CDbFile::SetKeyFromString(const char* text, int len, int /*fldId*/) {
    // Made current by the caller (SearchKey does it), as the field id given
    // here is not consulted.
    const CddFldDat* fld = m_FldList.GetFldSpec();
    if (fld) {
        char work[256] = {};
        if (text && len > 0) std::memcpy(work, text, size_t(std::min(len, 255)));
        uint8_t key[255] = {};
        size_t built = 0;
        switch (fld->Type) {
            case dbString:
            case dbZString:
            case dbPhone:
            case dbFixedText:
                built = std::min<size_t>(fld->Length, size_t(std::max(len, 0)));
                built = std::min(built, sizeof(key));
                std::memcpy(key, work, built);
                break;
            case dbInteger:
            case dbAutoInc:
            case dbUnsigned:
            case dbUnsignedText:
                if (fld->Length == 2) {
                    int16_t v = ZString(work).ToShort();
                    std::memcpy(key, &v, built = 2);
                } else if (fld->Length == 4) {
                    int32_t v = int32_t(ZString(work).ToLong());
                    std::memcpy(key, &v, built = 4);
                }
                break;
            case dbFloat:
            case dbDecimal:
                if (fld->Length == 4) {
                    float v = float(TextToDouble(work));
                    std::memcpy(key, &v, built = 4);
                } else if (fld->Length == 8) {
                    double v = TextToDouble(work);
                    std::memcpy(key, &v, built = 8);
                }
                break;
            case dbDate: {
                // The text laid over "01/01/01": what it leaves out comes
                // from there, and a longer text (a four-digit year) stands.
                std::string date(work, size_t(std::clamp(len, 0, 255)));
                if (date.size() < 8) date += std::string("01/01/01").substr(date.size());
                Date d;
                d = date.c_str();
                uint32_t v = d.Value();
                std::memcpy(key, &v, built = 4);
                break;
            }
            case dbMoney: {
                // The amount typed, packed as the field holds it.
                Currency amount;
                amount.SetNumDP(fld->NumDP);
                amount = static_cast<const char*>(work);
                built = std::min<size_t>(fld->Length, 10);
                amount.CopyBCD(key, int(built), fld->NumDP);
                break;
            }
            case dbBoolean: {
                char first[2] = {work[0], 0};
                key[0] = uint8_t(ZString(first).ToLong());
                built = 1;
                break;
            }
            default:  // times and the rest build nothing
                break;
        }
        if (built) SetKey(key, int(built), m_nKeyNo);
    }
    return m_KeyBuf[0] != 0;
}

int CDbFile::SearchKey(HWND, int fldId, const char* text, int len, dbRelOp op, bool withRecord) {
    if (m_pStat) m_pStat->m_KeyList.FindByKeyNo(m_nKeyNo);
    m_FldList.FindByFldId(uint16_t(fldId));
    if (!SetKeyFromString(text, len, int(m_FldList.GetFldId()))) return -1;
    uint16_t code = GetOpOfRelation(op);
    if (!withRecord) code = uint16_t(code + RM_KEY_ONLY);
    m_nDataLen = m_nRcdBufLen;
    m_nLastError = Call(code, m_pRcdBuf, &m_nDataLen, int8_t(m_nKeyNo));
    return m_nLastError;
}

int CDbFile::GetKeyBufLen() {
    if (!m_pStat || !m_pStat->m_KeyList.FindByKeyNo(m_nKeyNo)) return 0;
    DbStatKeyList& keys = m_pStat->m_KeyList;
    int len = 0;
    do {
        len += keys.GetFldLen();
    } while ((keys.GetFlags() & kSegmentFollows) && keys.Next());
    return len;
}

char* CDbFile::GetSortableKeyBuf(char* out) {
    int len = GetKeyBufLen();
    std::memcpy(out, m_KeyBuf, size_t(len));
    int at = 0;
    for (int ok = m_KeyList.FindByKeyNo(m_nKeyNo); ok && m_KeyList.GetKeyNo() == m_nKeyNo;
         ok = m_KeyList.Next()) {
        int segLen = m_KeyList.GetLength();
        dbFieldType t = m_KeyList.GetType();
        bool number = t == dbInteger || t == dbUnsigned || t == dbDate || t == dbAutoInc;
        if (number && at + segLen <= len) std::reverse(out + at, out + at + segLen);
        at += segLen;
    }
    return out;
}

int CDbFile::GetPrimaryKeyFldNo() {
    bool keyStart = true;
    for (int ok = m_KeyList.First(); ok; ok = m_KeyList.Next()) {
        uint16_t flags = m_KeyList.GetFlags();
        if (keyStart && !(flags & (kDuplicates | kSegmentFollows))) return m_KeyList.GetFldId();
        keyStart = !(flags & kSegmentFollows);
    }
    return -1;
}

int CDbFile::GetPrimaryKeyNo() {
    int fld = GetPrimaryKeyFldNo();
    return fld < 0 ? -1 : GetKeyNoByFldId(uint16_t(fld), 1);
}

int CDbFile::GetKeyNoByFldId(unsigned short fldId, int singleOnly) {
    int multi = -1;
    bool keyStart = true;
    for (int ok = m_KeyList.First(); ok; ok = m_KeyList.Next()) {
        uint16_t flags = m_KeyList.GetFlags();
        if (keyStart && m_KeyList.GetFldId() == fldId) {
            if (!(flags & kSegmentFollows)) return m_KeyList.GetKeyNo();
            if (!singleOnly && multi < 0) multi = m_KeyList.GetKeyNo();
        }
        keyStart = !(flags & kSegmentFollows);
    }
    return multi;
}

int CDbFile::SetKeyUsingFldId(unsigned short fldId) {
    if (!m_pStat || !m_FldList.FindByFldId(fldId)) return 0;
    if (!m_pStat->m_KeyList.FindIndex(m_FldList.GetFldOffset(), 0)) return 0;
    m_nKeyNo = m_pStat->m_KeyList.GetKeyNo();
    return 1;
}

int CDbFile::KeyExists(unsigned short fldId, int anySegment) {
    if (!m_pStat || !m_FldList.FindByFldId(fldId)) return 0;
    return m_pStat->m_KeyList.FindIndex(m_FldList.GetFldOffset(), anySegment);
}

int CDbFile::KeyNoExists(int keyNo) {
    return m_pStat && m_pStat->m_KeyList.FindByKeyNo(keyNo);
}

int CDbFile::KeyNoIsPermanent(int keyNo) {
    return m_KeyList.FindByKeyNo(keyNo);
}

bool CDbFile::KeyNoIsDescending(int keyNo) {
    return KeyNoExists(keyNo) && (m_pStat->m_KeyList.GetFlags() & kDescending);
}

int CDbFile::GetUniqueKeyNo() {
    int n = 0;
    while (KeyNoExists(n))
        ++n;
    return n;
}
