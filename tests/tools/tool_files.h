// Files for the tool tests: a dictionary with an entry holding a field of
// every type, a sales file with keys of several kinds, their records, and
// dbutil run as a separate process.
#pragma once

#include <dbfile/dbfile.h>

#include <string>
#include <vector>

#include "rm_util.h"

namespace tooltest {

// Every.dat (a system file, so that its auto-increment key numbers itself):
//   Id autoinc 4 (key 0), Name string 12, Code zstring 10 (key 1, dups),
//   Small integer 2, Big integer 4, Count unsigned 4, Ratio float 8,
//   Weight float 4 (4 places), Dec decimal 8, Day date, At time,
//   Amount money 8 (2 places), Flag boolean (shown Yes/No), Phone phone 16,
//   Fixed fixed text 6, UText unsigned text 4.
// Sale.dat: Id integer 4 (key 0), City string 10 (key 1, dups), Customer
//   zstring 12 (key 2, dups, any case), Day date (key 3, dups), Qty integer 2
//   (key 4 with Day: two segments, dups), Price float 8, Paid boolean.
struct Folder {
    rmtest::TempDir dir;
    std::string dictionary;  // dir/test.ddf
    std::string profile;     // dir/profile.ini: decimal point, comma groups, "$"
    Folder();
    // Points the library at the folder (dictionary, paths, profile) and
    // fills Every.dat with EveryRows().
    void Use() const;
};

struct EveryRow {
    uint32_t id;
    std::string name, code;
    int16_t small;
    int32_t big;
    uint32_t count;
    double ratio;
    float weight;
    double dec;
    Date day;
    Time at;
    double amount;
    bool flag;
    std::string phone, fixed;
    uint32_t utext;
};
std::vector<EveryRow> EveryRows();
// Writes the rows into a new Every.dat in `folder`.
void FillEvery(const std::string& folder, const std::vector<EveryRow>& rows);

struct SaleRow {
    int32_t id;
    std::string city, customer;
    Date day;
    int16_t qty;
    double price;
    bool paid;
};
// `n` rows drawn from `seed`: few cities and customers, many equal days.
std::vector<SaleRow> SaleRows(int n, unsigned seed);
void FillSales(const std::string& folder, const std::vector<SaleRow>& rows);

// Every record of a file in the order of `key` (-1: physical), as bytes.
std::vector<std::string> Records(const std::string& path, int key);

struct Result {
    int code = -1;  // exit status; 128 + the signal when one ended it
    std::string out, err;
};
// Runs the built dbutil with `args` in `folder`'s data folder and
// dictionary (given first as global options), the profile set.
Result Dbutil(const Folder& folder, const std::vector<std::string>& args);
// The same without the global options.
Result DbutilBare(const Folder& folder, const std::vector<std::string>& args);

}  // namespace tooltest
