// The key segments of a data file: CddKeyElem holds one segment, CddKeyList
// the list (a key is a run of segments sharing a key number) with a current
// segment that its accessors work on.
#pragma once

#include "dictionary/records.h"
#include "support/cursor_list.h"

class CddKeyElem : public ListElem {
  public:
    CddKeyElem();  // all zero
    CddKeyElem(const CddKeyElem& o) = default;
    CddKeyElem& operator=(const CddKeyElem& o) = default;
    // Covers the field: its id, position = Offset + 1, length = Length.
    void SetSegment(const CddFldDat* fld);

    CddKeyDat m_Key;

  protected:
    ListElem* Clone() const override { return new CddKeyElem(*this); }
};

class CddKeyList : public CursorList<CddKeyElem> {
  public:
    int FindByKeyNo(int keyNo);
    int FindByFldId(unsigned short fldId);
    int NextByFldId(unsigned short fldId);  // from the current segment on

    int AddKey(int keyNo);
    int AddKey(CddKeyElem* e);
    int InsKey(int keyNo);  // a new last segment of key keyNo, in key-number order
    int DelKey();
    int DelKey(short keyNo);  // every segment of the key
    int MakeNewKeyNo() const;

    DbCreateKeySpec* GetKeySpec() const { return cur_ ? &cur_->m_Key.KeySpec : nullptr; }
    unsigned short GetFldId() const { return cur_ ? cur_->m_Key.FldId : 0xFFFF; }
    const char* GetKeyName() const { return cur_ ? cur_->m_Key.KeyName : nullptr; }
    unsigned short GetPosition() const { return cur_ ? cur_->m_Key.KeySpec.Position : 0; }
    unsigned short GetLength() const { return cur_ ? cur_->m_Key.KeySpec.Length : 0; }
    unsigned short GetFlags() const { return cur_ ? cur_->m_Key.KeySpec.Flags : 0; }
    unsigned char GetNullVal() const { return cur_ ? cur_->m_Key.KeySpec.NullValue : 0; }
    int GetKeyNo() const { return cur_ ? cur_->m_Key.KeySpec.KeyNo : -1; }
    unsigned char GetAcsNo() const { return cur_ ? cur_->m_Key.KeySpec.AcsNo : 0; }
    dbFieldType GetType() const {
        return cur_ ? dbFieldType(cur_->m_Key.KeySpec.Type) : dbFieldType(-1);
    }

    void SetFldId(unsigned short v);
    void SetKeyName(const char* s);  // cut to 20 characters
    void SetPosition(unsigned short v);
    void SetLength(unsigned short v);
    void SetFlags(unsigned short v);
    void SetNullVal(unsigned char v);
    void SetKeyNo(int v);
    void SetAcsNo(unsigned char v);
    void SetType(dbFieldType v);
    void SetSegment(const CddFldDat* fld);
};
