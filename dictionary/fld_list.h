// The fields of a data file: CddFldElem holds one field, CddFldList the list
// with a current field that its accessors work on.
#pragma once

#include "dictionary/records.h"
#include "support/cursor_list.h"

class CddFldElem : public ListElem {
  public:
    CddFldElem();                           // all zero
    CddFldElem(const CddFldElem& o);        // the copy gets an identity of its own
    explicit CddFldElem(const char* flat);  // from the flattened form
    CddFldElem& operator=(const CddFldElem& o);

    // The flattened form (the dictionary's stored form of a field): its
    // size, the fixed members, then the four texts each ending in a zero.
    int Flatten(char* out) const;
    // Reads a flattened field; answers its size word.
    int Reconstitute(const char* in);
    int SizeWhenFlat() const;

    CddFldDat m_Fld;

  protected:
    ListElem* Clone() const override { return new CddFldElem(*this); }
};

class CddFldList : public CursorList<CddFldElem> {
  public:
    CddFldList() : CursorList(0) {}

    using CursorList::Find;
    int FindByFldId(unsigned short id);
    int FindByOffset(unsigned short offset);
    int FindByName(const char* name);  // exact, case-sensitive

    int AddFld(CddFldElem* e);
    int InsFld(int index, CddFldElem* e);
    int DelFld();
    int DelFld(unsigned short id);

    CddFldDat* GetFldSpec() const { return cur_ ? &cur_->m_Fld : nullptr; }
    unsigned short GetFldId() const { return cur_ ? cur_->m_Fld.FldId : 0xFFFF; }
    unsigned short GetFldLen() const { return cur_ ? cur_->m_Fld.Length : 0xFFFF; }
    unsigned short GetFldOffset() const { return cur_ ? cur_->m_Fld.Offset : 0xFFFF; }
    dbFieldType GetFldType() const {
        return cur_ ? dbFieldType(cur_->m_Fld.Type) : dbFieldType(-1);
    }
    dbDispCode GetFldDispCode() const {
        return cur_ ? dbDispCode(cur_->m_Fld.DispCode) : dbDispCode(-1);
    }
    unsigned char GetFldNumDP() const { return cur_ ? cur_->m_Fld.NumDP : 0xFF; }
    const char* GetFldName() const { return cur_ ? cur_->m_Fld.Name : nullptr; }
    const char* GetFldDesc() const { return cur_ ? cur_->m_Fld.Desc : nullptr; }
    const char* GetFldPrompt() const { return cur_ ? cur_->m_Fld.Prompt : nullptr; }
    const char* GetFldNameForDDF() const { return cur_ ? cur_->m_Fld.NameForDDF : nullptr; }
    int GetFldCodeId() const { return cur_ ? cur_->m_Fld.CodeId : 0; }
    unsigned long GetFldHighWaterId() const { return cur_ ? cur_->m_Fld.HighWaterId : 0; }
    int FldIsVarLen() const { return cur_ ? cur_->m_Fld.VarLen : 0; }

    // Setters need a current field; without one they do nothing.
    void SetFldId(unsigned short v);
    void SetFldLen(unsigned short v);
    void SetFldOffset(unsigned short v);
    void SetFldType(dbFieldType v);
    void SetFldNumDP(unsigned char v);
    void SetFldVarLen(int v);
    void SetFldDispCode(dbDispCode v);
    void SetFldCodeId(int v);
    void SetFldHighWaterId(unsigned long v);
    void SetFldName(const char* s);        // cut to 20 characters
    void SetFldDesc(const char* s);        // 64
    void SetFldPrompt(const char* s);      // 32
    void SetFldNameForDDF(const char* s);  // 20

  private:
    int m_nDelResult = 1;
};
