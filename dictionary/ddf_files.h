// The engine's SQL catalogue, as record files: CFileDdf on FILE.DDF (one
// record per table), CFieldDdf on FIELD.DDF (one per column) and CIndexDdf on
// INDEX.DDF (one per key segment). Each keeps its record's fields as members
// under the catalogue's own names, packs them before an insert or update and
// unpacks them after a read. Their dictionary entries are the ones
// CCdd::CreateFileDdfRec and its siblings write; texts are space-padded
// without a terminator, numbers little-endian.
#pragma once

#include <cstdint>

#include "dbfile/db_file.h"

class CFileDdf : public CDbFile {
  public:
    // On FILE.DDF in `path`, or in the data directory when no path is given.
    explicit CFileDdf(const char* path = nullptr, short clientId = 0);

    void OnReadRecord() override;
    void OnWriteRecord() override;
    // Empties the record members.
    virtual void Clear();

    static constexpr unsigned short kRecordLength = 97;

    uint16_t Id;           // table id
    char SymName[20];      // table name
    char FileName[64];     // file location (hides CDbFile::FileName(); call it through the base)
    uint8_t Flags;         // 0x10 for a system table
    uint8_t Reserved[10];  // left cleared
};

class CFieldDdf : public CDbFile {
  public:
    explicit CFieldDdf(const char* path = nullptr, short clientId = 0);

    void OnReadRecord() override;
    void OnWriteRecord() override;
    virtual void Clear();

    static constexpr unsigned short kRecordLength = 32;

    uint16_t Id;      // column id, unique over the catalogue
    uint16_t FileId;  // table id
    char Name[20];
    uint8_t Type;  // engine data type
    uint16_t Offset;
    uint16_t Length;
    uint8_t NumDP;
    uint16_t Flags;  // 1: case-insensitive
};

class CIndexDdf : public CDbFile {
  public:
    explicit CIndexDdf(const char* path = nullptr, short clientId = 0);

    void OnReadRecord() override;
    void OnWriteRecord() override;
    virtual void Clear();

    static constexpr unsigned short kRecordLength = 10;

    uint16_t FileId;   // table id
    uint16_t FieldId;  // column id
    uint16_t KeyNo;
    uint16_t SegmentNo;  // within the key, from 0
    uint16_t Flags;
};
