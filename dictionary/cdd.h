// CCdd: the data dictionary file, one variable-length record per data file.
// Its record hooks turn a record into a description (file record, fields,
// keys, relations, two flags) and back; while the override is on they read
// into another object's description instead of its own.
#pragma once

#include "dbfile/db_file.h"

// The dictionary file's name; the application sets it before the first
// record file is built.
extern char g_CddFileName[261];

class CCdd : public CDbFile {
  public:
    CCdd(HWND hwnd, const char* name);
    // Copies carry the record-file part and the redirection as they stand.
    CCdd(const CCdd& o) = default;
    CCdd& operator=(const CCdd& o) = default;
    ~CCdd() override;

    using CDbFile::Open;
    // Opens the dictionary, creating it (replacing any file) when the mode has
    // the create bit and `create` is set, or when it is missing and `create` is 0.
    int Open(HWND hwnd, dbOpenType mode, int create);

    void OnReadRecord() override;
    void OnWriteRecord() override;
    virtual void Clear();
    void SetToDefault() { Clear(); }

    // Redirects reading and create-buffer building to another description;
    // a null first argument turns the redirection off.
    void OverrideDemographics(CddFileDat* file, CddFldList* fields, CddKeyList* keys,
                              CddRelList* rels, int* oneRcdFile, int* outdated);
    // The engine create buffer of the described file, built in the record
    // buffer; its length in *len.
    char* GetCreateSpec(unsigned short* len);

    // Editing the description.
    void AddField(unsigned short id, unsigned short offset, int length, dbFieldType type, int numDP,
                  const char* name, const char* desc, const char* prompt);
    void AddKey(unsigned char keyNo, const char* keyName, const char* fieldName, int flags);
    int AddFld(CddFldElem* e);
    int InsFld(int index, CddFldElem* e);
    int DelFld(unsigned short id);
    void AdjustFieldOffsets();
    void AdjustFieldIds();
    void AdjustKeysUsingFldOffset();
    void AdjustKeysUsingFldId();
    int GetSortKeyNo();
    int GetKeyNoUsingFldId(unsigned short fldId);

    // Field metadata of the dictionary object's own description.
    unsigned short GetFldCount() { return GetFieldCount(); }
    unsigned short GetFldLen(unsigned short id) { return GetFieldLength(id); }
    unsigned short GetFldOffset(unsigned short id) { return GetFieldOffset(id); }
    const char* GetFldPrompt(unsigned short id) { return GetFieldPrompt(id); }
    const char* GetFldDesc(unsigned short id) { return GetFieldDesc(id); }
    const char* GetFldName(unsigned short id) { return GetFieldName(id); }
    dbFieldType GetFldType(unsigned short id) { return GetFieldType(id); }
    dbDispCode GetFldDispCode(unsigned short id) { return GetFieldDispCode(id); }
    short GetFldIdOfPrompt(const char* prompt) { return GetFieldIdOfPrompt(prompt); }
    short GetFldIdOfName(const char* name) { return GetFieldIdOfName(name); }

    // Entries for the SQL catalogue's own files FILE.DDF, FIELD.DDF and
    // INDEX.DDF, so that record files can be built on them (CFileDdf,
    // CFieldDdf, CIndexDdf). Each replaces the description with its entry and
    // inserts it; answers the insert status.
    int CreateFileDdfRec(HWND hwnd);
    int CreateFieldDdfRec(HWND hwnd);
    int CreateIndexDdfRec(HWND hwnd);

  protected:
    int CreateCddFile(HWND hwnd);
    int CalcRcdSize();

  private:
    void BeginDdfEntry(const char* fileName, const char* symName, const char* desc);
    int InsertDdfEntry(HWND hwnd);

    bool m_bOverride = false;
    CddFileDat* m_pOvFile = nullptr;
    CddFldList* m_pOvFields = nullptr;
    CddKeyList* m_pOvKeys = nullptr;
    CddRelList* m_pOvRels = nullptr;
    int* m_pOvOneRcdFile = nullptr;
    int* m_pOvOutdated = nullptr;
};
