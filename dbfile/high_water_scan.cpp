// The first use of a numbering series: every data file that the dictionary
// says takes numbers from it is read for the highest number it holds, so
// that the series goes on above it.
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "dbfile/db_file.h"
#include "dbfile/high_water_file.h"
#include "dictionary/cdd.h"
#include "platform/ui_host.h"

namespace {

// The wait cursor for as long as the scan runs.
struct WaitCursor {
    WaitCursor() { GetUiHost().BeginWaitCursor(); }
    ~WaitCursor() { GetUiHost().EndWaitCursor(); }
};

}  // namespace

AI_Err CHighWaterFile::FindHighestUsed(uint32_t n) {
    WaitCursor cursor;
    m_strDataFile = "";
    CCdd dict(nullptr, g_CddFileName);
    dict.SetErrOverride(1);
    // Without the dictionary the data files cannot be found, and a series
    // started at 0 would hand out numbers already in use.
    if (dict.Open(nullptr, dbOpenNormal, 0) != 0) {
        m_strDataFile = g_CddFileName;
        return AI_CheckOpenFailed;
    }
    uint32_t highest = 0;
    for (int st = dict.StepFirst(nullptr); st == 0; st = dict.StepNext(nullptr)) {
        if (dict.GetFileType() == dbFileSystem) continue;
        // The fields of the series; their ids first, as reading a file moves
        // the field list's current element.
        std::vector<unsigned short> fields;
        for (int ok = dict.m_FldList.First(); ok; ok = dict.m_FldList.Next())
            if (dict.m_FldList.GetFldHighWaterId() == n)
                fields.push_back(dict.m_FldList.GetFldId());
        for (unsigned short id : fields) {
            uint32_t found = 0;
            AI_Err code = GetHighestInFile(dict, id, found);
            if (code != AI_OK) return code;
            highest = std::max(highest, found);
        }
    }
    return WriteRecord(highest) ? AI_OK : AI_WriteFailed;
}

AI_Err CHighWaterFile::GetHighestInFile(CCdd& entry, unsigned short fieldId, uint32_t& out) {
    out = 0;
    const char* name = entry.m_FileDat.FileName;
    // Without a key on the field alone its highest value cannot be found.
    int keyNo = entry.GetKeyNoByFldId(fieldId, 1);
    if (keyNo < 0) {
        m_strDataFile = name;
        return AI_NoIndex;
    }
    dbFileType type = entry.GetFileType();
    const char* folder = type == dbFileSystem ? nullptr : CDbFile::GetDefaultPath(type);
    if (!folder) return AI_OK;
    Path path(folder);
    if (!path.IsEmpty()) path.SetBackslash(1);
    path << name;
    struct stat sb;
    if (::stat(path, &sb) != 0) return AI_OK;  // a file not made yet holds no numbers
    if (!entry.m_FldList.FindByFldId(fieldId)) return AI_OK;
    unsigned short offset = entry.m_FldList.GetFldOffset();
    unsigned short length = entry.m_FldList.GetFldLen();
    try {
        CDbFile file(name, folder);
        if (file.Open(nullptr, dbOpenReadOnly) != 0) {
            m_strDataFile = name;
            return AI_CheckOpenFailed;
        }
        file.SetKey(keyNo);
        if (file.GetLast(nullptr) == 0) {
            unsigned width = length == 2 ? 2 : 4;
            if (size_t(offset) + width <= file.GetBytesRead()) {
                if (width == 2) {
                    int16_t v;
                    std::memcpy(&v, file.RcdBuf() + offset, 2);
                    out = uint32_t(int32_t(v));
                } else {
                    std::memcpy(&out, file.RcdBuf() + offset, 4);
                }
            }
        }
        file.Close(nullptr);
    } catch (...) {  // the file's object could not be built
        m_strDataFile = name;
        return AI_CheckOpenFailed;
    }
    return AI_OK;
}
