// Code tables: the (code, description) pairs of a field that holds a short
// code and shows words. Tables are kept as text, one line "code=description"
// each, in the shared code file (VexaCode.dat in the system data directory,
// one record per table id), or given by the caller. A table turns a stored
// code into its description and a typed description back into the stored
// code; an alternate map, shared by the process, lets one table id stand in
// for another.
#pragma once

#include "dictionary/records.h"
#include "platform/cstring.h"
#include "support/link_list.h"
#include "support/zstring.h"

class CDbFile;

class CCodeEntry : public ListElem {
  public:
    CCodeEntry(const char* code, const char* description);
    CCodeEntry(const CCodeEntry& o);
    CCodeEntry& operator=(const CCodeEntry& o);
    ~CCodeEntry() override;
    bool operator<(const ListElem& o) const override;
    bool operator==(const ListElem& o) const override;  // equal code texts

    operator const char*() const { return m_Code; }  // NOLINT: the code as text
    operator short() const { return m_Code.ToShort(); }
    operator unsigned short() const { return m_Code.ToUShort(); }
    operator long() const { return m_Code.ToLong(); }
    operator unsigned long() const { return m_Code.ToULong(); }
    const char* Desc() const { return m_Desc; }

  protected:
    ListElem* Clone() const override { return new CCodeEntry(*this); }

  private:
    ZString m_Code;
    ZString m_Desc;
};

class CCodeTable : public LinkList {
  public:
    CCodeTable();
    CCodeTable(const CCodeTable& o);
    CCodeTable& operator=(const CCodeTable& o);
    ~CCodeTable() override;

    void InitTable(dbFieldType type, int length);
    dbFieldType FldType() const { return m_Type; }
    int FldLen() const { return m_Length; }
    void Add(const char* code, const char* description);

    CCodeEntry* First();
    CCodeEntry* Next();
    CCodeEntry* Last();
    CCodeEntry* Prev();

    // From text, from the code file by table id, or from the code file by
    // the code-table id of a field of `file`. A table that cannot be read
    // is empty (a code file that cannot be opened has shown why); a code
    // file missing from the dictionary throws as a record file's
    // constructor does.
    void LoadTable(dbFieldType type, int length, const char* text);
    void LoadTable(dbFieldType type, int length, int tableId);
    void LoadTable(CDbFile* file, int fieldId);
    // The table as text: "code=description" lines joined by CR LF.
    const char* RollUpCodes(CString& out);
    int LongestDesc();

    // By stored code, by exact description, by the beginning of a
    // description ignoring case; the entry found becomes current.
    int Find(const void* storedCode);
    int Find(const char* description);
    int FindPartial(const char* text);
    // A stored code's description; an unknown code gives as many asterisks
    // as the longest description is wide. The char form needs a buffer of
    // LongestDesc() + 1 bytes.
    const char* TranslateToDesc(const void* storedCode, char* out);
    const char* TranslateToDesc(const void* storedCode, CString& out);
    // The stored code (the field's length of bytes) of a description, or
    // zero bytes when none matches.
    void TranslateToCode(const char* description, void* out);
    void TranslatePartialToCode(const char* text, void* out);

    // Loads of table `id` read table `alternate` instead; an alternate of 0
    // for an id already mapped removes the mapping.
    static void SetAlternate(unsigned long id, unsigned long alternate);

  protected:
    void ParseTableElements(ZString text);
    void RetrieveTableElements(int tableId);

  private:
    CCodeEntry* Current() const { return static_cast<CCodeEntry*>(m_Pos.at); }
    LLPosition m_Pos;
    dbFieldType m_Type = dbString;
    int m_Length = 0;
};
