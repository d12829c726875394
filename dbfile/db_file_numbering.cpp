// Auto-increment numbering of a record file's fields from the shared number
// file of its kind.
#include <cstring>

#include "dbfile/db_file.h"
#include "dbfile/high_water_file.h"

AI_Err CDbFile::AutoIncrement(int valuesInBuffer) {
    if (!m_nAutoIncMode) return AI_OK;
    CHighWaterFile& numbers = TheNumberFile(m_nAutoIncMode);
    if (!valuesInBuffer) OnWriteRecord();
    AI_Err code = AI_OK;
    for (int ok = m_FldList.First(); ok && code == AI_OK; ok = m_FldList.Next()) {
        if (m_FldList.GetFldType() != dbAutoInc) continue;
        uint32_t series = uint32_t(m_FldList.GetFldHighWaterId());
        unsigned width = m_FldList.GetFldLen() == 2 ? 2 : 4;
        size_t offset = m_FldList.GetFldOffset();
        // A field of no series, or one the buffer does not hold, is left alone.
        if (series == 0 || !m_pRcdBuf || offset + width > m_nRcdBufLen) continue;
        char* at = m_pRcdBuf + offset;
        uint32_t value = 0;
        if (width == 2) {
            uint16_t v;
            std::memcpy(&v, at, 2);
            value = v;
        } else {
            std::memcpy(&value, at, 4);
        }
        if (value != 0) {
            code = numbers.SetNumber(series, value);  // the caller chose it
            continue;
        }
        uint32_t next = 0;
        code = numbers.GetNextNumber(series, next);
        if (code != AI_OK) break;
        if (width == 2) {
            uint16_t v = uint16_t(next);
            std::memcpy(at, &v, 2);
        } else {
            std::memcpy(at, &next, 4);
        }
    }
    if (!valuesInBuffer) OnReadRecord();
    return code;
}

void CDbFile::ForceAutoIncrementConfig() {
    if (!m_nAutoIncMode) return;
    CHighWaterFile& numbers = TheNumberFile(m_nAutoIncMode);
    for (int ok = m_FldList.First(); ok; ok = m_FldList.Next()) {
        if (m_FldList.GetFldType() != dbAutoInc) continue;
        uint32_t series = uint32_t(m_FldList.GetFldHighWaterId());
        if (series > 0) numbers.SetNumber(series, 1);
    }
}
