// The record tables module from the installed package, on a connection of
// the program's own: a table made from a dictionary entry answers SQL.
#include <dbfile/dbfile.h>
#include <dbfile/sqlite/record_tables.h>
#include <stdlib.h>

#include <cstdio>
#include <cstring>
#include <string>

int main() {
    char folder[] = "/tmp/sqlite-consumer-XXXXXX";
    if (!mkdtemp(folder)) return 1;
    std::snprintf(g_CddFileName, sizeof(g_CddFileName), "%s/test.ddf", folder);
    CDbFile::SetSysDataPath(folder);
    CDbFile::SetDataPath(folder);
    {
        CCdd cdd(nullptr, g_CddFileName);
        if (cdd.Open(nullptr, dbOpenType(dbOpenNormal | dbOpenCreate), 1)) return 2;
        std::strcpy(cdd.m_FileDat.FileName, "Item.dat");
        cdd.m_FileDat.FileSpec.PageSize = 4096;
        cdd.AddField(0, 0, 4, dbInteger, 0, "Id", "", "");
        cdd.AddKey(0, "ById", "Id", 0);
        if (cdd.Insert(nullptr)) return 3;
    }
    CDbFile items("Item.dat");
    if (items.Open(nullptr, dbOpenType(dbOpenNormal | dbOpenCreate))) return 4;
    items.SetBrowser(1);
    for (int32_t id : {3, 1, 2}) {
        items.SetDataLen(4);
        std::memcpy(items.RcdBuf(), &id, 4);
        if (items.Insert(nullptr)) return 5;
    }
    sqlite3* db;
    std::string error;
    if (sqlite3_open(":memory:", &db) || dbsql::AttachDictionary(db, error) != SQLITE_OK) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 6;
    }
    sqlite3_stmt* st;
    if (sqlite3_prepare_v2(db, "SELECT sum(Id) FROM Item WHERE Id >= 2", -1, &st, nullptr))
        return 7;
    int sum = sqlite3_step(st) == SQLITE_ROW ? sqlite3_column_int(st, 0) : -1;
    sqlite3_finalize(st);
    sqlite3_close(db);
    std::string rm = std::string("rm -rf ") + folder;
    if (std::system(rm.c_str())) return 8;
    if (sum != 5) {
        std::fprintf(stderr, "sum %d\n", sum);
        return 9;
    }
    std::puts("sqlite consumer: ok");
    return 0;
}
