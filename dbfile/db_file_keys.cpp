// Key buffers of a record file.
#include <algorithm>
#include <cstring>

#include "dbfile/db_file.h"

void CDbFile::SetKey(const void* data, int len, int keyNo) {
    std::memset(m_KeyBuf, 0, sizeof(m_KeyBuf));
    if (data && len > 0)
        std::memcpy(m_KeyBuf, data, size_t(std::min<int>(len, int(sizeof(m_KeyBuf)))));
    m_nKeyNo = keyNo;
}
