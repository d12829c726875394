// CCodeFile: the shared code file, VexaCode.dat in the system data directory,
// as a record file. One record per code table, found by the table id (key
// 0), holds what the table is for and the table as text, "code=description"
// lines joined by CR LF. CCodeTable reads tables from it; this class writes
// them, so that the file is made and kept by the record manager like any
// other. The layout comes from the file's dictionary entry (AddToDictionary).
#pragma once

#include <cstdint>

#include "dbfile/db_file.h"

class CCdd;
class CCodeTable;

class CCodeFile : public CDbFile {
  public:
    static constexpr const char* kFileName = "VexaCode.dat";
    // Longest table text the Codes field of a new code file holds, without
    // its terminator.
    static constexpr int kMaxCodesText = 3999;

    explicit CCodeFile(short clientId = 0);

    void OnReadRecord() override;
    void OnWriteRecord() override;
    void Clear();

    // Reads table `id` into the members; answers the status (9 when the
    // table is not there).
    int FindTable(int32_t id, int lock = 0);
    // Writes table `id`, replacing its record when there is one. A text the
    // Codes field cannot hold whole writes nothing and answers 97.
    int WriteTable(int32_t id, const char* desc, const char* text);
    int WriteTable(int32_t id, const char* desc, CCodeTable& table);
    int DeleteTable(int32_t id);

    // Writes the code file's entry into the open dictionary `cdd` (which
    // takes the entry as its description); answers the insert's status.
    static int AddToDictionary(CCdd& cdd);

    int32_t TableId = 0;
    CString Desc;
    CString Codes;
};
