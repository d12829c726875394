// The engine's statistics of an open file: its file spec block and the
// list of its key segments as the engine reports them.
#pragma once

#include "dictionary/records.h"
#include "support/cursor_list.h"

class DbStatKeyElem : public ListElem {
  public:
    DbStatKeyElem();
    DbStatKeyElem(const DbStatKeyElem& o) = default;
    DbStatKeyElem& operator=(const DbStatKeyElem& o) = default;
    unsigned char GetNullValue() const { return m_Key.NullValue; }

    DbStatKeySpec m_Key;

  protected:
    ListElem* Clone() const override { return new DbStatKeyElem(*this); }
};

class DbStatKeyList : public CursorList<DbStatKeyElem> {
  public:
    int FindByKeyNo(int keyNo);
    // The first segment starting at `offset` (+ 1 is its position); with
    // anySegment 0 only keys' first segments count.
    int FindIndex(unsigned short offset, int anySegment);
    void AddKey(DbStatKeyElem* e);

    unsigned short GetFldOffset() const { return uint16_t(cur_->m_Key.Position - 1); }
    unsigned short GetFldLen() const { return cur_->m_Key.Length; }
    unsigned short GetFlags() const { return cur_->m_Key.Flags; }
    int GetKeyNo() const { return cur_->m_Key.KeyNo; }
    unsigned short GetPosition() const { return cur_->m_Key.Position; }
    DbStatKeySpec* GetKeySpec() const { return cur_ ? &cur_->m_Key : nullptr; }
};

class DbStatStruct {
  public:
    DbStatStruct();
    DbStatStruct(const DbStatStruct& o) = default;
    DbStatStruct& operator=(const DbStatStruct& o) = default;

    short GetRcdLen() const { return short(m_Spec.RecLen); }
    short GetPageSize() const { return short(m_Spec.PageSize); }
    unsigned char GetNdxCount() const { return uint8_t(m_Spec.NdxCount & 0xFF); }
    unsigned char GetVersion() const { return uint8_t(m_Spec.NdxCount >> 8); }
    long GetRcdCount() const { return long(m_Spec.RecCount); }
    unsigned short GetFlags() const { return m_Spec.FileFlags; }
    unsigned char GetUnusedPtrs() const { return m_Spec.DupPtrs; }
    short GetUnusedPages() const { return short(m_Spec.Allocation); }

    int IsVarLen() const { return m_Spec.FileFlags & 0x0001; }
    int TruncsBlanks() const { return m_Spec.FileFlags & 0x0002; }
    int HasPreAllocPages() const { return m_Spec.FileFlags & 0x0004; }
    int IsCompressed() const { return m_Spec.FileFlags & 0x0008; }
    int IsKeyOnly() const { return m_Spec.FileFlags & 0x0010; }
    int HasNdxBal() const { return m_Spec.FileFlags & 0x0020; }
    int HasVats() const { return m_Spec.FileFlags & 0x0800; }

    DbStatFileSpec m_Spec;
    DbStatKeyList m_KeyList;
};
