// Indexes added to and removed from an open file, and a file's keys captured
// as a key map and re-applied from one. Indexes made here live in the engine
// only: the dictionary does not change, so they are not permanent keys.
#include <algorithm>
#include <cstring>

#include "dbfile/db_file.h"
#include "recman/recman.h"

namespace {

constexpr uint16_t kDupsModifiable = RM_KEY_DUPLICATES | RM_KEY_MODIFIABLE;
constexpr int kMaxSegments = 10;
// The key number parameter of index operations: the number itself, marked
// as given (create) or as one whose neighbours keep theirs (drop).
constexpr int kNumberGiven = 128;

}  // namespace

int CDbFile::CreateNdx(unsigned short fldId, int descending, int keyNo) {
    m_FldList.FindByFldId(fldId);
    if (keyNo < 0) keyNo = GetUniqueKeyNo();
    DbCreateKeySpec spec;
    std::memset(&spec, 0, sizeof(spec));
    // A field that does not exist gives a segment the engine refuses.
    spec.Position = uint16_t(m_FldList.GetFldOffset() + 1);
    spec.Length = m_FldList.GetFldLen();
    spec.Type = uint8_t(m_FldList.GetFldType());
    spec.KeyNo = uint8_t(keyNo);
    CvtDbKeyToBtrKey(&spec, GetFileType());
    spec.Flags |= kDupsModifiable;
    if (descending) spec.Flags |= RM_KEY_DESCENDING;
    if (spec.Type == BtrString || spec.Type == BtrZString) spec.Flags |= RM_KEY_CASE_INSENSITIVE;
    std::memset(m_KeyBuf, 0, 4);
    uint16_t len = sizeof(spec);
    int status = Call(RM_CREATE_INDEX, &spec, &len, int8_t(keyNo + kNumberGiven));
    if (status == 0) status = GetStatistics();
    TranslateError(status);
    return keyNo;
}

int CDbFile::CreateNdx(CArraySKeyField& fields, int keyNo, bool fromDictionary) {
    int n = fields.GetSize();
    if (n < 1) return -1;
    n = std::min(n, kMaxSegments);
    DbCreateKeySpec specs[kMaxSegments];
    std::memset(specs, 0, sizeof(specs));
    std::memset(m_KeyBuf, 0, 4);
    if (keyNo == -1) keyNo = GetUniqueKeyNo();
    m_nKeyNo = keyNo + kNumberGiven;
    for (int i = 0; i < n; ++i) {
        DbCreateKeySpec& s = specs[i];
        unsigned short fldId = fields[i].FldId;
        m_FldList.FindByFldId(fldId);
        s.Position = uint16_t(m_FldList.GetFldOffset() + 1);
        s.Length = m_FldList.GetFldLen();
        s.Type = uint8_t(m_FldList.GetFldType());
        s.KeyNo = uint8_t(keyNo + kNumberGiven);
        if (fromDictionary) {
            // The segment of this key that covers the field, as the
            // dictionary describes it.
            for (int ok = m_KeyList.FindByFldId(fldId); ok; ok = m_KeyList.NextByFldId(fldId)) {
                if (m_KeyList.GetKeyNo() == keyNo) {
                    s.Flags = m_KeyList.GetFlags();
                    break;
                }
            }
        } else {
            s.Flags = kDupsModifiable;
            if (fields[i].Descending) s.Flags |= RM_KEY_DESCENDING;
            dbFieldType t = m_FldList.GetFldType();
            if (t == dbString || t == dbPhone) s.Flags |= RM_KEY_CASE_INSENSITIVE;
        }
        if (i + 1 < n) s.Flags |= RM_KEY_SEGMENTED;
        CvtDbKeyToBtrKey(&s, GetFileType());
    }
    uint16_t len = uint16_t(sizeof(DbCreateKeySpec) * size_t(n));
    int status = Call(RM_CREATE_INDEX, specs, &len, int8_t(keyNo + kNumberGiven));
    if (status == 0) status = GetStatistics();
    TranslateError(status);
    m_nKeyNo = keyNo;
    return keyNo;
}

int CDbFile::DropNdx(int keyNo) {
    int was = m_nKeyNo;
    m_nKeyNo = keyNo + kNumberGiven;
    int status = Call(RM_DROP_INDEX, m_pRcdBuf, &m_nDataLen, int8_t(m_nKeyNo));
    if (status == 0) status = GetStatistics();
    TranslateError(status);
    m_nKeyNo = was;
    return status == 0;
}

void CDbFile::GetKeyMap(CKeyMap& map, int fromDictionary) {
    map.RemoveAll();
    CArraySKeyField work;
    // A key is complete at its segment that no other follows.
    auto segment = [&](unsigned short fldId, uint16_t flags, int keyNo, int permanent) {
        SKeyField f;
        f.FldId = fldId;
        f.Descending = (flags & RM_KEY_DESCENDING) != 0;
        work.Add(f);
        if (flags & RM_KEY_SEGMENTED) return;
        work.Permanent = permanent;
        map[keyNo] = work;
        work.RemoveAll();
    };
    if (!fromDictionary) {
        if (!m_pStat) return;
        DbStatKeyList& keys = m_pStat->m_KeyList;
        for (int ok = keys.First(); ok; ok = keys.Next()) {
            const DbStatKeySpec* s = keys.GetKeySpec();
            // The field that starts where the segment starts.
            unsigned short fldId =
                m_FldList.FindByOffset(uint16_t(s->Position - 1)) ? m_FldList.GetFldId() : 0xFFFF;
            segment(fldId, s->Flags, s->KeyNo, KeyNoIsPermanent(s->KeyNo));
        }
    } else {
        for (int ok = m_KeyList.First(); ok; ok = m_KeyList.Next())
            segment(m_KeyList.GetFldId(), m_KeyList.GetFlags(), m_KeyList.GetKeyNo(), 1);
    }
}

void CDbFile::AddKeysFromMap(CKeyMap& map, bool fromDictionary) {
    CKeyMap current(kKeyMapBlockSize);
    current.InitHashTable(kKeyMapHashSize);
    GetKeyMap(current, 0);
    CArraySKeyField fields, present;
    int keyNo;
    for (POSITION pos = map.GetStartPosition(); pos;) {
        map.GetNextAssoc(pos, keyNo, fields);
        if (!current.Lookup(keyNo, present)) CreateNdx(fields, keyNo, fromDictionary);
    }
}
