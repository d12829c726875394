// The records that describe a data file: the file record, a field, a key
// segment, and the engine's 16-byte file and key spec blocks. They are
// byte-packed: the file record and key segment are stored as they stand.
#pragma once

#include <cstddef>
#include <cstdint>

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "stored forms are little-endian");

// Field types of the dictionary.
enum dbFieldType : int {
    dbString = 0,
    dbInteger = 1,
    dbUnsigned = 2,
    dbFloat = 3,
    dbDecimal = 4,
    dbDate = 5,
    dbTime = 6,
    dbMoney = 7,
    dbBoolean = 8,
    dbZString = 9,
    dbAutoInc = 10,
    dbPhone = 11,
    dbFixedText = 12,
    dbUnsignedText = 13
};

// Displays beyond the field type (6 to 11 behave as none).
enum dbDispCode : int {
    dbDispNone = 0,
    dbDispAccount = 1,
    dbDispTrueFalse = 2,
    dbDispYesNo = 3,
    dbDispOnOff = 4,
    dbDispActiveInactive = 5,
    dbDispPlain = 12,
    dbDispCodeTable = 13,
    dbDispNoSeparators = 14,
    dbDispYesNoAlt = 15,
    dbDispJob = 16
};

// The engine's extended key types.
enum BtrFieldType : int {
    BtrString = 0,
    BtrInteger = 1,
    BtrFloat = 2,
    BtrDate = 3,
    BtrTime = 4,
    BtrDecimal = 5,
    BtrMoney = 6,
    BtrLogical = 7,
    BtrZString = 11,
    BtrUnsignedBinary = 14,
    BtrAutoInc = 15
};

// The file type: it picks the default directory and the numbering series.
enum dbFileType : int {
    dbFileData = 0,
    dbFileSystem = 1,
    dbFileHistory = 2,
    dbFileGLData = 3,
    dbFileGLHistory = 4
};

#pragma pack(push, 1)

// The file spec block of the engine's Create (and, as returned, of Stat).
struct DbCreateFileSpec {
    uint16_t RecLen;  // fixed record length
    uint16_t PageSize;
    uint16_t NdxCount;  // keys (Stat: count in the low byte, file version in the high)
    uint32_t RecCount;  // not used for Create (Stat: number of records)
    uint16_t FileFlags;
    uint8_t DupPtrs;  // duplicate pointers to reserve (Stat: unused ones)
    uint8_t NotUsed;
    uint16_t Allocation;  // pages to pre-allocate (Stat: unused pages)
};
using DbStatFileSpec = DbCreateFileSpec;

// A key segment of Create (and, as returned, of Stat).
struct DbCreateKeySpec {
    uint16_t Position;  // in the record, from 1
    uint16_t Length;
    uint16_t Flags;
    uint32_t UniqueCount;  // not used for Create (Stat: unique key values)
    uint8_t Type;          // dbFieldType in the dictionary, BtrFieldType for the engine
    uint8_t NullValue;
    uint16_t NotUsed;
    uint8_t KeyNo;
    uint8_t AcsNo;
};
using DbStatKeySpec = DbCreateKeySpec;

struct CddFileDat {
    uint16_t FileId;
    char SymName[21];
    char FileName[65];
    char FileDesc[65];
    uint16_t FldCount;
    int32_t FileType;
    DbCreateFileSpec FileSpec;
};

struct CddFldDat {
    uint16_t FldId;
    uint16_t Offset;
    uint16_t Length;
    uint8_t Type;
    int32_t VarLen;
    uint8_t NumDP;
    char Name[21];
    char Desc[65];
    char Prompt[33];
    uint8_t DispCode;
    int32_t CodeId;
    uint32_t HighWaterId;
    char NameForDDF[21];
};

struct CddKeyDat {
    uint16_t FldId;
    char KeyName[21];
    DbCreateKeySpec KeySpec;
};

#pragma pack(pop)

static_assert(sizeof(DbCreateFileSpec) == 16);
static_assert(sizeof(DbCreateKeySpec) == 16);
static_assert(sizeof(CddFileDat) == 175);
static_assert(sizeof(CddKeyDat) == 39);

// Key flags of the engine the library uses.
enum : uint16_t {
    kKeyDuplicates = 0x0001,
    kKeyModifiable = 0x0002,
    kKeyBinary = 0x0004,
    kKeySegmented = 0x0010,
    kKeyDescending = 0x0040,
    kKeyExtendedType = 0x0100,
    kKeyCaseInsensitive = 0x0400
};

BtrFieldType CvtDbTypeToBtrType(dbFieldType type, dbFileType fileType);
dbFieldType CvtBtrTypeToDbType(BtrFieldType type, unsigned short unused = 0);
// Converts one dictionary key segment into the engine's form, in place.
void CvtDbKeyToBtrKey(DbCreateKeySpec* spec, dbFileType fileType);

// Copies `text` into a fixed text member of `size` bytes (`size` - 1
// characters and a terminator at the most).
void CopyFixedText(char* member, size_t size, const char* text);
