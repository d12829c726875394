// Record files as SQLite tables: the module "dbfile" maps one data file of
// the dictionary to a read-only virtual table, its fields to typed columns.
// Equality and range constraints on the first segment of one of the file's
// keys become key searches; everything else scans the file.
//
// The data paths and the dictionary's name (g_CddFileName) are set as for
// any record file before the first table is made. Tables are used on the
// thread that made them.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <string>
#include <vector>

namespace dbsql {

// Registers the module on `db`; then
//   CREATE VIRTUAL TABLE temp.name USING dbfile('Customer.dat')
// makes a table of that dictionary entry. Answers an SQLite result code.
int RegisterRecordModule(sqlite3* db);

// Registers the module and makes a table in schema temp for every entry of
// the dictionary, named after its file name without the extension
// (Customer.dat becomes Customer). Entries whose name is taken by an earlier
// one, or that have no fields, are left out and named in `skipped`. Answers
// an SQLite result code; `error` says what went wrong.
int AttachDictionary(sqlite3* db, std::string& error, std::vector<std::string>* skipped = nullptr);

// What the module has done since the process started (or the last reset):
// key searches started from a constraint, and records read from files.
struct RecordModuleCounters {
    uint64_t keySearches = 0;
    uint64_t fullScans = 0;
    uint64_t recordsRead = 0;
};
RecordModuleCounters& ModuleCounters();

}  // namespace dbsql
