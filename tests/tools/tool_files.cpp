#include "tool_files.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>

#include "dbtest.h"

namespace tooltest {

namespace {

constexpr int SEG = 0x0010, DUPS = 0x0001, MODIF = 0x0002, NOCASE = 0x0400;

void Begin(CCdd& cdd, const char* name, dbFileType type) {
    cdd.Clear();
    std::strcpy(cdd.m_FileDat.FileName, name);
    std::strcpy(cdd.m_FileDat.SymName, "CTest");
    cdd.m_FileDat.FileType = type;
    cdd.m_FileDat.FileSpec.PageSize = 4096;
}

void Insert(CCdd& cdd) {
    cdd.AdjustFieldOffsets();
    if (int st = cdd.Insert(nullptr))
        throw std::runtime_error("dictionary insert " + std::to_string(st));
}

void WriteDictionary(const std::string& path) {
    CCdd cdd(nullptr, path.c_str());
    if (cdd.Open(nullptr, dbOpenType(dbOpenNormal | dbOpenCreate), 1))
        throw std::runtime_error("cannot create the dictionary");
    Begin(cdd, "Every.dat", dbFileSystem);
    cdd.AddField(0, 0, 4, dbAutoInc, 0, "Id", "", "");
    cdd.AddField(1, 0, 12, dbString, 0, "Name", "", "");
    cdd.AddField(2, 0, 10, dbZString, 0, "Code", "", "");
    cdd.AddField(3, 0, 2, dbInteger, 0, "Small", "", "");
    cdd.AddField(4, 0, 4, dbInteger, 0, "Big", "", "");
    cdd.AddField(5, 0, 4, dbUnsigned, 0, "Count", "", "");
    cdd.AddField(6, 0, 8, dbFloat, 0, "Ratio", "", "");
    cdd.AddField(7, 0, 4, dbFloat, 4, "Weight", "", "");
    cdd.AddField(8, 0, 8, dbDecimal, 0, "Dec", "", "");
    cdd.AddField(9, 0, 4, dbDate, 0, "Day", "", "");
    cdd.AddField(10, 0, 4, dbTime, 0, "At", "", "");
    cdd.AddField(11, 0, 8, dbMoney, 2, "Amount", "", "");
    cdd.AddField(12, 0, 1, dbBoolean, 0, "Flag", "", "");
    cdd.m_FldList.SetFldDispCode(dbDispYesNo);
    cdd.AddField(13, 0, 16, dbPhone, 0, "Phone", "", "");
    cdd.AddField(14, 0, 6, dbFixedText, 0, "Fixed", "", "");
    cdd.AddField(15, 0, 4, dbUnsignedText, 0, "UText", "", "");
    cdd.AdjustFieldOffsets();
    cdd.AddKey(0, "ById", "Id", 0);
    cdd.AddKey(1, "ByCode", "Code", DUPS | MODIF);
    Insert(cdd);

    Begin(cdd, "Sale.dat", dbFileData);
    cdd.AddField(0, 0, 4, dbInteger, 0, "Id", "", "");
    cdd.AddField(1, 0, 10, dbString, 0, "City", "", "");
    cdd.AddField(2, 0, 12, dbZString, 0, "Customer", "", "");
    cdd.AddField(3, 0, 4, dbDate, 0, "Day", "", "");
    cdd.AddField(4, 0, 2, dbInteger, 0, "Qty", "", "");
    cdd.AddField(5, 0, 8, dbFloat, 0, "Price", "", "");
    cdd.AddField(6, 0, 1, dbBoolean, 0, "Paid", "", "");
    cdd.AdjustFieldOffsets();
    cdd.AddKey(0, "ById", "Id", 0);
    cdd.AddKey(1, "ByCity", "City", DUPS | MODIF);
    cdd.AddKey(2, "ByCustomer", "Customer", DUPS | MODIF | NOCASE);
    cdd.AddKey(3, "ByDay", "Day", DUPS | MODIF);
    cdd.AddKey(4, "ByQtyPrice", "Qty", SEG | DUPS | MODIF);
    cdd.AddKey(4, "ByQtyPrice", "Price", DUPS | MODIF);
    Insert(cdd);
}

template <class T>
void Put(char* rec, CDbFile& f, const char* field, const T& v) {
    std::memcpy(rec + f.GetFieldOffset(field), &v, sizeof(T));
}

void PutText(char* rec, CDbFile& f, const char* field, const std::string& s, char pad) {
    char* p = rec + f.GetFieldOffset(field);
    size_t len = f.GetFieldLength(field);
    std::memset(p, pad, len);
    std::memcpy(p, s.data(), std::min(s.size(), len));
}

// A record file of the dictionary, created afresh in `folder`.
void Create(CDbFile& f) {
    f.SetErrOverride(1);
    if (int st = f.Open(nullptr, dbOpenType(dbOpenNormal | dbOpenCreate)))
        throw std::runtime_error(std::string("cannot create ") + f.FileName() + ": " +
                                 std::to_string(st));
    f.SetBrowser(1);
}

void Add(CDbFile& f, const std::vector<char>& rec) {
    f.SetDataLen(uint16_t(rec.size()));
    std::memcpy(f.RcdBuf(), rec.data(), rec.size());
    if (int st = f.Insert(nullptr)) throw std::runtime_error("insert " + std::to_string(st));
}

std::string Slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

}  // namespace

Folder::Folder() : dictionary(dir.File("test.ddf")), profile(dir.File("profile.ini")) {
    std::ofstream(profile) << "[intl]\nsDecimal=.\nsThousand=,\niDigits=2\niLzero=1\n"
                              "iNegNumber=1\nsCurrency=$\niCurrency=0\niNegCurr=1\n"
                              "iCurrDigits=2\n";
    WriteDictionary(dictionary);
}

void Folder::Use() const {
    dbtest::ResetLibrary();
    dbtest::UseDictionary(dictionary);
    CDbFile::SetSysDataPath(dir.path().c_str());
    CDbFile::SetDataPath(dir.path().c_str());
    setenv("DBFILE_PROFILE", profile.c_str(), 1);
    ReloadProfile();
    FillEvery(dir.path(), EveryRows());
}

std::vector<EveryRow> EveryRows() {
    std::vector<EveryRow> rows;
    rows.push_back({1, "Smith, \"Jo\"", "b-2", -32768, -2147483647 - 1, 4294967295u, -0.1, 1.5f,
                    2.25, Date(2024, 2, 29), Time(23, 59, 58, 7), -1234567.89, true, "5551234",
                    "ab", 65535});
    rows.push_back({2, " lead", "a-1", 32767, 2147483647, 0, 1e300, -3.25f, -0.5, Date(1950, 1, 1),
                    Time(0, 0, 1), 0.01, false, "", "xyz   ", 1});
    rows.push_back({3, "caf\xe9", "", 0, 0, 17, 0, 0, 0, Date(), Time(), 0, false, "1", "", 0});
    return rows;
}

void FillEvery(const std::string& folder, const std::vector<EveryRow>& rows) {
    CDbFile f("Every.dat", folder.c_str());
    Create(f);
    unsigned len = f.GetRcdLength();
    for (const EveryRow& r : rows) {
        std::vector<char> rec(len, 0);
        char* p = rec.data();
        Put(p, f, "Id", r.id);
        PutText(p, f, "Name", r.name, 0);
        PutText(p, f, "Code", r.code, 0);
        Put(p, f, "Small", r.small);
        Put(p, f, "Big", r.big);
        Put(p, f, "Count", r.count);
        Put(p, f, "Ratio", r.ratio);
        Put(p, f, "Weight", r.weight);
        Put(p, f, "Dec", r.dec);
        Put(p, f, "Day", r.day.Value());
        Put(p, f, "At", r.at.Value());
        Currency(r.amount).CopyBCD(reinterpret_cast<unsigned char*>(p + f.GetFieldOffset("Amount")),
                                   8, 2);
        Put(p, f, "Flag", uint8_t(r.flag));
        PutText(p, f, "Phone", r.phone, 0);
        PutText(p, f, "Fixed", r.fixed, 0);
        Put(p, f, "UText", r.utext);
        Add(f, rec);
    }
}

std::vector<SaleRow> SaleRows(int n, unsigned seed) {
    std::mt19937 rng(seed);
    const char* cities[] = {"Berlin", "Lyon", "Oslo", "Paris", "Rome", "Z\xfcrich", "Ab"};
    const char* customers[] = {"acme", "Bolt", "cobalt", "Dyna", "ACME"};
    std::vector<SaleRow> rows;
    for (int i = 0; i < n; ++i) {
        SaleRow r;
        r.id = i * 3 - n;
        r.city = cities[rng() % 7];
        r.customer = customers[rng() % 5];
        r.day = rng() % 10 == 0 ? Date() : Date(2024, 1 + int(rng() % 3), 1 + int(rng() % 28));
        r.qty = int16_t(int(rng() % 200) - 100);
        r.price = double(int(rng() % 20000) - 5000) / 8;
        r.paid = rng() % 2;
        rows.push_back(r);
    }
    std::shuffle(rows.begin(), rows.end(), rng);
    return rows;
}

void FillSales(const std::string& folder, const std::vector<SaleRow>& rows) {
    CDbFile f("Sale.dat", folder.c_str());
    Create(f);
    unsigned len = f.GetRcdLength();
    BeginTransaction(nullptr);
    for (const SaleRow& r : rows) {
        std::vector<char> rec(len, 0);
        char* p = rec.data();
        Put(p, f, "Id", r.id);
        PutText(p, f, "City", r.city, ' ');
        PutText(p, f, "Customer", r.customer, 0);
        Put(p, f, "Day", r.day.Value());
        Put(p, f, "Qty", r.qty);
        Put(p, f, "Price", r.price);
        Put(p, f, "Paid", uint8_t(r.paid));
        Add(f, rec);
    }
    EndTransaction(nullptr);
}

std::vector<std::string> Records(const std::string& path, int key) {
    CDbFile f(path.c_str(), nullptr, 1);
    f.SetErrOverride(1);
    std::vector<std::string> out;
    if (f.Open(nullptr, dbOpenReadOnly)) return out;
    f.SetKey(key < 0 ? 0 : key);
    for (int st = key < 0 ? f.StepFirst(nullptr) : f.GetFirst(nullptr); st == 0;
         st = key < 0 ? f.StepNext(nullptr) : f.GetNext(nullptr))
        out.emplace_back(f.RcdBuf(), f.GetBytesRead());
    return out;
}

Result DbutilBare(const Folder& folder, const std::vector<std::string>& args) {
    std::string out = folder.dir.File("dbutil.out"), err = folder.dir.File("dbutil.err");
    pid_t pid = fork();
    if (pid == 0) {
        int o = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        int e = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(o, 1);
        dup2(e, 2);
        setenv("DBFILE_PROFILE", folder.profile.c_str(), 1);
        unsetenv("DBUTIL_DATA");
        unsetenv("DBUTIL_SYSTEM");
        unsetenv("DBUTIL_DICTIONARY");
        std::vector<char*> argv{const_cast<char*>("dbutil")};
        for (const std::string& a : args)
            argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execv(DBUTIL_PATH, argv.data());
        _exit(127);
    }
    Result r;
    r.code = rmtest::ExitCode(pid);
    r.out = Slurp(out);
    r.err = Slurp(err);
    return r;
}

Result Dbutil(const Folder& folder, const std::vector<std::string>& args) {
    std::vector<std::string> all{"--data", folder.dir.path(), "--dictionary", folder.dictionary};
    all.insert(all.end(), args.begin(), args.end());
    return DbutilBare(folder, all);
}

}  // namespace tooltest
