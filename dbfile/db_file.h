// CDbFile: one engine data file. It holds the file's position block, key
// buffer, a record buffer that grows on demand, the file's description from
// the data dictionary, its statistics and last status, and the switches that
// change how record operations behave. Applications derive a class per data
// file, keep the record's fields as members and override the record hooks.
#pragma once

#include <cstdint>
#include <vector>

#include "dbfile/db_stat.h"
#include "dbfile/db_types.h"
#include "dbfile/key_map.h"
#include "dictionary/fld_list.h"
#include "dictionary/key_list.h"
#include "dictionary/records.h"
#include "dictionary/rel_list.h"
#include "platform/cstring.h"
#include "platform/hwnd.h"
#include "support/path.h"

class CCdd;
class CCodeTable;
class CExtended;
class ExtTrmElem;
class CFileDdf;
class CFieldDdf;
class CIndexDdf;

class CDbFile {
  public:
    // Builds the object for the file `name` (in `path` when given). With
    // noDictionary the description stays empty; otherwise it comes from the
    // shared data dictionary. Throws an int when that fails (see the guide).
    CDbFile(const char* name, const char* path = nullptr, int noDictionary = 0, short clientId = 0);
    CDbFile(const CDbFile& o);
    CDbFile& operator=(const CDbFile& o);
    virtual ~CDbFile();

    // Record hooks and overridable operations, in slot order.
    virtual void InitFieldArrays() {}
    virtual int Open(HWND hwnd, dbOpenType mode = dbOpenNormal, char* owner = nullptr);
    virtual int Close(HWND hwnd = nullptr);
    virtual int OpenTemp(HWND hwnd);
    virtual int OpenTemp(dbOpenType mode);
    virtual int CloseTemp(HWND hwnd);
    virtual int CloseTemp();
    virtual void OnReadRecord() {}
    virtual void OnWriteRecord();
    virtual void SaveDataForCompare();
    virtual int GetEqual(HWND hwnd, int lock = 0, int keySet = 0);
    virtual int GetUsing(dbRelOp op, int lock, int keySet);
    virtual int GetUsing(HWND hwnd, dbRelOp op, int lock, int keySet);
    virtual int GetFirst(HWND hwnd, int lock = 0);
    virtual int GetLast(HWND hwnd, int lock = 0);
    virtual int GetNext(HWND hwnd, int lock = 0);
    virtual int GetPrev(HWND hwnd, int lock = 0);
    virtual int StepFirst(HWND hwnd, int lock = 0);
    virtual int StepLast(HWND hwnd, int lock = 0);
    virtual int StepNext(HWND hwnd, int lock = 0);
    virtual int StepPrev(HWND hwnd, int lock = 0);
    virtual void SetKeyFields() {}
    virtual int Lock(HWND hwnd);
    virtual int Unlock(long address);
    virtual int Unlock(HWND hwnd, long address);
    virtual int Unlock(HWND hwnd);
    virtual int UnlockAll(HWND hwnd);
    virtual int Insert(HWND hwnd);
    virtual int Update(HWND hwnd);
    virtual int Delete(HWND hwnd);

    // Open state.
    int IsOpen() const { return m_bOpen; }
    dbOpenType GetOpenMode() const { return m_nOpenMode; }
    int IsExclusive() const { return m_nOpenMode & dbOpenExclusive; }

    // Settings and accessors.
    const char* FileName() const { return m_strFileName; }
    dbFileType GetFileType() const { return dbFileType(m_FileDat.FileType); }
    int GetKeyNo() const { return m_nKeyNo; }
    unsigned char* GetKeyBuf() { return m_KeyBuf; }
    char* RcdBuf() { return m_pRcdBuf; }
    unsigned short GetBytesRead() const { return m_nDataLen; }
    unsigned short GetRcdBufLen() const { return m_nRcdBufLen; }
    unsigned short GetRcdLength() const;
    unsigned long GetRcdCount() const;
    int GetLastError() const { return m_nLastError; }
    void ClearError() { m_nLastError = 0; }
    void SetErrOverride(int on) { m_bErrOverride = on; }
    int SetBrowser(int on);
    int LockChecking() const { return m_bLockChecking; }
    void SetLockChecking(int on) { m_bLockChecking = on; }
    short ClientId() const { return m_nClientId; }
    void SetClientId(short id);  // only while the file is closed

    // Record buffer.
    int SetDataLen(unsigned short n);
    void CopyRcdData(CDbFile* other);

    // Owner names.
    int SetOwner(const char* owner, int access);
    int SetOwner(HWND hwnd, const char* owner, int access);
    int SetEncryption(const char* owner, int access) { return SetOwner(owner, access); }
    int SetEncryption(HWND hwnd, const char* owner, int access) {
        return SetOwner(hwnd, owner, access);
    }
    int ClearOwner(HWND hwnd);
    int ClearEncryption(HWND hwnd) { return ClearOwner(hwnd); }

    // Positions.
    int GetPosition(long& address);
    int GetPosition(HWND, long& address) { return GetPosition(address); }
    int SetPosition(long address, int lock, int read);
    int SetPosition(HWND hwnd, long address, int lock, int read);
    int IsDataChanged();

    // Keys.
    void SetKey(const void* data, int len, int keyNo);
    void SetKey(int keyNo) { m_nKeyNo = keyNo; }
    // The current key from one value per segment, the list ending at a null
    // pointer; a date segment takes a pointer to a Date.
    void SetKeyData(const void* first, ...);
    // The key of the current field from typed text; 1 when the key buffer's
    // first byte is not 0. The caller makes the field current (the field id
    // is not consulted).
    int SetKeyFromString(const char* text, int len, int fldId);
    // Builds the key of field fldId from text and searches with the relation;
    // -1 when no key could be built, else the engine status.
    int SearchKey(HWND hwnd, int fldId, const char* text, int len, dbRelOp op, bool withRecord);
    int GetKeyBufLen();
    // The key buffer with integer and date segments most significant byte
    // first, so such keys sort as bytes.
    char* GetSortableKeyBuf(char* out);
    int GetPrimaryKeyFldNo();
    int GetPrimaryKeyNo();
    int GetKeyNoByFldId(unsigned short fldId, int singleOnly);
    int SetKeyUsingFldId(unsigned short fldId);
    int KeyExists(unsigned short fldId, int anySegment);
    int KeyNoExists(int keyNo);
    int KeyNoIsPermanent(int keyNo);
    bool KeyNoIsDescending(int keyNo);
    int GetUniqueKeyNo();

    // Indexes of the open file, in the engine only (the dictionary stays as it
    // is). The creating forms answer the key number used, the status being
    // the last error; DropNdx answers 1 on success, 0 on failure.
    int CreateNdx(unsigned short fldId, int descending, int keyNo);
    int CreateNdx(CArraySKeyField& fields, int keyNo, bool fromDictionary);
    int DropNdx(int keyNo);
    // The file's keys, from the engine's statistics or from the dictionary.
    void GetKeyMap(CKeyMap& map, int fromDictionary);
    // Creates every key of `map` that the file lacks under its number.
    void AddKeysFromMap(CKeyMap& map, bool fromDictionary);

    // Auto-increment numbering: numbers for the auto-increment fields of the
    // record buffer from the shared number file (see CHighWaterFile). With
    // `valuesInBuffer` 0 the record hooks run around it.
    AI_Err AutoIncrement(int valuesInBuffer);
    // Raises the mark of each of the file's series to at least 1.
    void ForceAutoIncrementConfig();
    int GetAutoIncMode() const { return m_nAutoIncMode; }

    // Maintenance: rebuilds a data file in place (every pointer may be
    // null); false with the reason in errorText on failure.
    static bool PackAndReindex(const char* fileName, const char* folder, unsigned long* recordCount,
                               unsigned long* newSize, CString* errorText, HWND parent);
    // The source's record, field by field by name, into this record buffer:
    // 1 on success, 0 when memory ran out.
    int CopyFrom(CDbFile* source);
    int CopyTo(CDbFile* destination) { return destination->CopyFrom(this); }
    // Generated test values for every field of the record buffer.
    void DummyData(const char* text);

    // File creation and statistics.
    int Create(HWND hwnd, void* spec, unsigned short len, void* fileName, int replace);
    int Create(HWND hwnd, void* spec, unsigned short len, int replace);
    int Create(HWND hwnd, char* text);
    int GetStatistics(HWND hwnd = nullptr);
    int GetFileStatistics(HWND hwnd = nullptr);

    // Extended retrieval: many records in one engine call, each cut to the
    // selected fields (the whole record by default) and passing the filter
    // terms. Field ids the file does not have, and terms or fields that would
    // make the descriptor longer than its 16-bit length, are refused (0).
    int SelectField(unsigned short fieldId, unsigned short length = 0);
    int DeselectField(unsigned short fieldId);
    void ResetFields(int wholeRecord);
    int AddTerm(unsigned short fieldId, dbRelOp op, const void* value, dbLogicOp logic,
                int caseSensitive);
    int AddTerm(unsigned short fieldId, dbRelOp op, unsigned short otherFieldId, dbLogicOp logic,
                int caseSensitive);
    void ResetTerms();
    int SetFilterOptions(unsigned short maxRecords, int useCurrent, unsigned short rejectCount);
    // Lists from the current record, or after positioning; the number of
    // records in the list, 0 on failure (the status is the last error).
    unsigned short GetNextList(HWND hwnd, int lock = 0);
    unsigned short GetPrevList(HWND hwnd, int lock = 0);
    unsigned short GetFirstList(HWND hwnd, int lock = 0);
    unsigned short GetLastList(HWND hwnd, int lock = 0);
    unsigned short GetUsingList(dbRelOp op, HWND hwnd, int lock = 0);
    // Record `index` (from 1) of the last list: its extracted data, with its
    // length and record position.
    void* GetRecFromList(unsigned short index, long* position, unsigned short* length);
    // Filter text: terms such as Qty>=5 and Name="Acme" or City=Town. The
    // result is 0, or the index of the failing term times 65536 plus a
    // dbSQLErrCode. Verify only parses; Set replaces the terms.
    unsigned long VerifySQLFilter(const char* text);
    unsigned long SetSQLFilter(const char* text);
    CExtended* GetExtended() { return m_pFilter; }

    // Field metadata, by field id or by name.
    unsigned short GetFieldCount();
    unsigned short GetFieldLength(unsigned short id);
    unsigned short GetFieldNumDP(unsigned short id);
    unsigned short GetFieldOffset(unsigned short id);
    const char* GetFieldPrompt(unsigned short id);
    const char* GetFieldDesc(unsigned short id);
    const char* GetFieldName(unsigned short id);
    const char* GetFieldNameForDDF(unsigned short id);
    dbFieldType GetFieldType(unsigned short id);
    dbDispCode GetFieldDispCode(unsigned short id);
    long GetFieldCodeId(unsigned short id);
    const char* GetFieldNameForCrystal(unsigned short id, CString& out);
    unsigned short GetFieldLength(const char* name);
    unsigned short GetFieldNumDP(const char* name);
    unsigned short GetFieldOffset(const char* name);
    const char* GetFieldPrompt(const char* name);
    const char* GetFieldDesc(const char* name);
    const char* GetFieldName(const char* name);
    dbFieldType GetFieldType(const char* name);
    dbDispCode GetFieldDispCode(const char* name);
    short GetFieldIdOfName(const char* name);
    short GetFieldIdOfPrompt(const char* prompt);
    short GetFieldIdOfKey(short keyNo);

    // Appends this file's table, its columns and its key segments to the SQL
    // catalogue that the three open writers hold, numbering them after what
    // is there. With `system` the file is one of the catalogue's own system
    // tables, whose index flags and long-text sizes are fixed.
    void WriteToDdf(CFileDdf& fileDdf, CFieldDdf& fieldDdf, CIndexDdf& indexDdf,
                    bool system = false);

    // Data paths, file location and alternates.
    void SetFileName(const char* name, const char* path);
    static void SetSysDataPath(const char* dir);
    static void SetDataPath(const char* dir);
    static void SetHistPath(const char* dir);
    static void SetGLDataPath(const char* dir);
    static void SetGLHistPath(const char* dir);
    static const char* GetSysDataPath();
    static const char* GetDataPath();
    static const char* GetHistPath();
    static const char* GetGLDataPath();
    static const char* GetGLHistPath();
    static const char* GetDefaultPath(dbFileType type);
    static const char* QualifySysDataPath(Path& p);
    static void SetAlternateFile(const char* given, const char* alternate);
    static CString FindAlternateFile(const char* given);
    static int IsServerPath(const char* path);
    static int GetDataTempPath(char* buffer, int size);
    static CStringArray m_GivenName;
    static CStringArray m_AlternateName;

    // The engine outside any file.
    static int ResetBTI(short clientId);
    static int BtrvVersion(const char* path, CStringArray& lines, int allowOld);

    // Transactions of a client number (0 for the window forms).
    static int BeginTransaction(short clientId);
    static int BeginExclusiveTransaction(short clientId);
    static int EndTransaction(short clientId);
    static int AbortTransaction(short clientId);
    static int BeginTransaction(HWND hwnd);
    static int EndTransaction(HWND hwnd);
    static int AbortTransaction(HWND hwnd);
    static int TransactionInProgress() { return m_bInTransaction; }
    static int m_bInTransaction;

    // Field values between their stored bytes and text: plain text, the
    // user's display text, the stored form of typed text, and literals for
    // query and report formulas. The static forms take the bytes and the
    // field's description; the others look the field up by id or by name
    // (an unknown field gives the empty text and writes nothing).
    static const char* FormatFileDataToString(CString& out, const char* data, int length,
                                              dbFieldType type, int numDP);
    static const char* FormatFileDataToDisplay(CString& out, const char* data, int length,
                                               dbFieldType type, dbDispCode display, int numDP,
                                               CCodeTable* table, int phoneValue);
    static void FormatStringToFileData(const char* text, char* dest, int length, dbFieldType type,
                                       int numDP);
    static const char* FormatSQLData(SQLType style, const char* text, short fieldType,
                                     CString& out);
    static const char* FormatBoolean(CString& out, int value, dbDispCode display);
    const char* FormatFileDataToString(CString& out, int fldId);
    const char* FormatFileDataToString(CString& out, const char* name);
    const char* FormatFileDataToDisplay(CString& out, int fldId);
    const char* FormatFileDataToDisplay(CString& out, const char* name);
    void FormatStringToFileData(const char* text, char* dest, int fldId);
    void FormatStringToFileData(const char* text, char* dest, const char* name);
    const char* FormatSQLData(CString& out, SQLType style, int fldId);
    const char* FormatSQLData(CString& out, SQLType style, const char* name);
    const char* FormatBoolean(CString& out, int fldId);
    const char* FormatAccount(CString& out, int fldId);
    const char* FormatJob(CString& out, int fldId);
    const char* FormatPhone(CString& out, int fldId);
    // The display text of a field, in one string of the process that the
    // next call overwrites.
    const char* GetFieldData(const char* name);

    // Account, job and phone numbers as the application's common library
    // lays them out; the empty text when it or its entry is missing.
    static const char* FormatAccount(CString& out, const char* data);
    static const char* FormatJob(CString& out, const char* data);
    static const char* FormatPhone(CString& out, const char* data, int phoneValue);

    // Errors.
    void DefErrProc(HWND hwnd, int status);
    static dbSQLErrCode GetSQLErrCode(unsigned long result) {
        return dbSQLErrCode(result & 0xFFFF);
    }
    static int GetSQLErrExpression(unsigned long result) { return int(result >> 16); }

    // Lock-wait retry of the engine call frame, for every file.
    static bool PersistentLocking();
    static bool PersistentLocking(bool on);  // answers the previous value

    // The shared dictionary and the last status of a dictionary lookup.
    static CCdd* m_TheCdd;
    static int m_CddError;

    // The description from the dictionary.
    CddFileDat m_FileDat;
    CddFldList m_FldList;
    CddKeyList m_KeyList;
    CddRelList m_RelList;
    int m_bOneRcdFile = 0;
    int m_bOutdated = 0;
    DbStatStruct m_FileStat;

  protected:
    // Every status ends here: folded (4, 9 and 64 become 9), kept as the
    // last error and shown unless the error override is set.
    int TranslateError(int status);
    void CddEntryError(const char* name);
    int GetLogical(int op, int lock, int keySet);
    // The engine's get operation for a key relation; equal for any other.
    static uint16_t GetOpOfRelation(dbRelOp op);
    int SetRcdBufLen(unsigned short n);
    int ResizeRcdBuf(unsigned short n);
    static unsigned short CalcMaxRcdLen() { return 64512; }
    // The engine call frame with this file's position block, key buffer,
    // client number and name.
    int Call(uint16_t op, void* data, uint16_t* len, int8_t keyNum);
    int ReadStatistics(DbStatStruct& into);
    void SetPath(const char* path, const char* name);
    static void SetAbsolutePath(char* buffer, const char* path, int length);
    bool IsVarLength() const;
    int InitCddFile(HWND hwnd);

    uint8_t m_PosBlock[128];
    int m_nKeyNo = 0;
    uint8_t m_KeyBuf[255];
    char* m_pRcdBuf = nullptr;
    unsigned short m_nRcdBufLen = 0;
    unsigned short m_nDataLen = 0;
    CString m_strPath;
    CString m_strFileName;
    int m_bOpen = 0;
    dbOpenType m_nOpenMode = dbOpenNormal;
    int m_nLastError = 0;
    CExtended* m_pFilter = nullptr;
    DbStatStruct* m_pStat = nullptr;
    int m_bBrowser = 0;
    int m_bErrOverride = 0;
    int m_bLockChecking = 0;
    unsigned short m_nCompareLen = 0;
    char* m_pCompareBuf = nullptr;
    int m_nAutoIncMode = 0;
    short m_nClientId = 0;

  private:
    // One extended operation (Get Next or Previous Extended) with the
    // descriptor of the current options.
    unsigned short RunList(int op, int lock);
    unsigned long ParseSQLFilter(const char* text, bool add);
    // The term of the field list's current field.
    ExtTrmElem* NewTerm(dbRelOp op, dbLogicOp logic, int caseSensitive, bool withField);
    // The field of a conversion, made current; null when there is none.
    const CddFldDat* FieldForConversion(int fldId);
    std::vector<char> FieldBytes(const CddFldDat& f) const;
    // The field fldId made current, its bytes and a zero after them in
    // `bytes`; null, with the empty text in `out`, when there is none.
    const CddFldDat* FieldForText(int fldId, CString& out, std::vector<char>& bytes);
    int PhoneValueBeforeCurrent();

    size_t m_nRcdAlloc = 0;  // bytes allocated for the record buffer
    void CopyMembers(const CDbFile& o);
    // Construction through the dictionary: opening it, and reading this
    // file's entry (and its alternate's fields) into the description.
    void OpenDictionary();
    void LoadDescription(bool useDefaultPath);
    static int TransactionCall(uint16_t op, short clientId, int newFlag);
};

// The data paths, each at most 64 characters.
extern char g_SysDataPath[65];
extern char g_DataPath[65];
extern char g_HistPath[65];
extern char g_GLDataPath[65];
extern char g_GLHistPath[65];

// A query or report literal of a field's plain text.
const char* FormatSQLData(SQLType style, const char* text, short fieldType, CString& out);

// Global transaction functions of client number 0: 1 on success, 0 on failure.
int BeginTransaction(HWND hwnd);
int EndTransaction(HWND hwnd);
int AbortTransaction(HWND hwnd);
