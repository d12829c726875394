// CTextFile: a flat file of fixed-length records with no separators, read
// and written one record at a time. The current record is held as text;
// fields are cut out of it by position and length.
//
// Copies share the open file: it is closed once, when the last of them
// closes or goes. Written records stay in the file's block buffer until it
// fills, until a read elsewhere needs it, or until Close; the file is held
// exclusively, so nothing else reads it in between. Close raises the
// platform's file exception when those last records cannot be written.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/cfile.h"
#include "platform/cstring.h"
#include "support/path.h"
#include "support/zstring.h"

class CTextFile {
  public:
    // Larger record sizes are refused by Open and Create.
    static constexpr unsigned long kMaxRecordSize = 16ul << 20;

    CTextFile();
    CTextFile(const CTextFile& other) = default;
    CTextFile& operator=(const CTextFile& other) = default;
    virtual ~CTextFile();

    // Opens read-write and exclusively, then reads record 1: 0 when the file
    // cannot be opened or has no record 1 (an empty file stays open).
    int Open(Path path, unsigned long recordSize);
    int Open(Path folder, const char* name, unsigned long recordSize);
    int Open(Path folder, const char* name, const char* extension, unsigned long recordSize);
    // Creates or empties the file and writes `first` as record 1; its length
    // is the record size. 0 when the file cannot be created or `first` is empty.
    int Create(Path& path, ZString& first);
    void Close();
    int IsOpen();

    // Reads record n (1-based); on failure the record is spaces and the
    // record number 0. The record-based operations answer 0 on a closed file.
    int Goto(unsigned long n);
    int Next();
    // Writes the current record back at its place.
    int Write();
    // Writes `record` just after the record last read or written and makes
    // it current. A shorter record is padded with spaces, a longer one cut.
    int Add(ZString record);
    // Inserts `record` into a file whose records from n on are in ascending
    // order, keeping that order.
    int Insert(ZString record, unsigned long n);

    void ClearRcd();
    // Overwrites `length` characters from `start` (0-based) with `text`,
    // padded with spaces. Raises the int 0 when the span leaves the record.
    void ReplMid(int start, int length, const char* text);
    int GetInt(int start, int length);
    double GetDouble(int start, int length);
    // A YYMMDD date at `start`, in its 4-byte stored form.
    unsigned long GetDate(int start);
    void GetString(int start, int length, CString& out);

    unsigned long RcdCount();
    unsigned long RcdSize() { return m_RecordSize; }
    unsigned long RcdNum() { return m_RecordNum; }
    unsigned long FileSize();
    const ZString& GetRecord() const { return m_Record; }
    CString GetFileName();
    CString GetFilePath();
    CString GetFileTitle();

  private:
    // The record padded with spaces or cut to the record size.
    ZString Fitted(ZString record) const;
    // Lets go of the file; the last holder closes it, raising on failure
    // when asked.
    void Release(bool raise);

    ZString m_Record;
    std::shared_ptr<CFile> m_File;
    uint32_t m_RecordSize = 0;
    uint32_t m_RecordNum = 0;
};
