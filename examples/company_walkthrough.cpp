// A small company's books on dbfile: the data dictionary describes a customer
// file and an invoice file; the files are created from their descriptions,
// filled, searched, walked and measured, invoices are grouped in
// transactions, one kept and one thrown away, and the dictionary is written
// out as the SQL catalogue that report writers read. Balances and amounts
// are kept as packed money fields and shown in the user's currency style;
// an invoice's status is a one-letter code shown through its code table;
// two clerks edit one customer at once through the record lock manager.
//
//   company_walkthrough [folder]            (a fresh folder; made when missing)
//   company_walkthrough --report folder     (the money of an earlier run again)
#include <dbfile/dbfile.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>

namespace {

// Key flags as the dictionary keeps them.
constexpr int kDuplicates = 0x0001, kModifiable = 0x0002, kSegmentFollows = 0x0010,
              kNoCase = 0x0400;
// The code table of invoice statuses in the shared code file.
constexpr int kStatusTable = 1;

// Dates as the engine orders them: day, month, then the year (16 bits).
uint32_t MakeDate(int year, int month, int day) {
    uint8_t b[4] = {uint8_t(day), uint8_t(month), uint8_t(year & 0xFF), uint8_t(year >> 8)};
    uint32_t v;
    std::memcpy(&v, b, 4);
    return v;
}

std::string DateText(uint32_t v) {
    uint8_t b[4];
    std::memcpy(b, &v, 4);
    char out[16];
    std::snprintf(out, sizeof(out), "%04d-%02d-%02d", b[2] | b[3] << 8, b[1], b[0]);
    return out;
}

// Copies between a record buffer and members through the field offsets the
// dictionary gives.
class FieldMapped : public CDbFile {
  public:
    using CDbFile::CDbFile;

  protected:
    template <class T>
    void Get(const char* field, T& into) {
        std::memcpy(&into, RcdBuf() + GetFieldOffset(field), sizeof(T));
    }
    template <class T>
    void Put(const char* field, const T& from) {
        std::memcpy(RcdBuf() + GetFieldOffset(field), &from, sizeof(T));
    }
    void GetText(const char* field, std::string& into) {
        const char* p = RcdBuf() + GetFieldOffset(field);
        into.assign(p, strnlen(p, GetFieldLength(field)));
        while (!into.empty() && into.back() == ' ')
            into.pop_back();
    }
    // Money fields hold packed decimals at the places the dictionary gives.
    void GetMoney(const char* field, Currency& into) {
        into.SetToBCD(reinterpret_cast<unsigned char*>(RcdBuf() + GetFieldOffset(field)),
                      GetFieldLength(field), GetFieldNumDP(field));
    }
    void PutMoney(const char* field, Currency& from) {
        from.CopyBCD(reinterpret_cast<unsigned char*>(RcdBuf() + GetFieldOffset(field)),
                     GetFieldLength(field), GetFieldNumDP(field));
    }
    void PutText(const char* field, const std::string& from, bool padded) {
        char* p = RcdBuf() + GetFieldOffset(field);
        size_t len = GetFieldLength(field);
        std::memset(p, padded ? ' ' : 0, len);
        std::memcpy(p, from.data(), std::min(from.size(), padded ? len : len - 1));
    }
    // Every write starts from a clean record of the dictionary's length.
    void StartRecord() {
        SetDataLen(GetRcdLength());
        std::memset(RcdBuf(), 0, GetRcdLength());
    }
};

class Customer : public FieldMapped {
  public:
    // Each clerk's workstation has its own engine client number.
    explicit Customer(short client = 0) : FieldMapped("Customer.dat", nullptr, 0, client) {}
    int32_t id = 0;
    std::string name, city;
    Currency balance;

    void OnReadRecord() override {
        Get("CustId", id);
        GetText("Name", name);
        GetText("City", city);
        GetMoney("Balance", balance);
    }
    void OnWriteRecord() override {
        StartRecord();
        Put("CustId", id);
        PutText("Name", name, false);
        PutText("City", city, false);  // as the library writes typed text
        PutMoney("Balance", balance);
    }
};

class Invoice : public FieldMapped {
  public:
    Invoice() : FieldMapped("Invoice.dat") {}
    uint32_t number = 0;
    int32_t customer = 0;
    uint32_t date = 0;
    Currency amount;
    char status = 'O';  // a code of the invoice status table

    void OnReadRecord() override {
        Get("InvNo", number);
        Get("CustId", customer);
        Get("InvDate", date);
        GetMoney("Amount", amount);
        Get("Status", status);
    }
    void OnWriteRecord() override {
        StartRecord();
        Put("InvNo", number);
        Put("CustId", customer);
        Put("InvDate", date);
        PutMoney("Amount", amount);
        Put("Status", status);
    }
};

// Writes one dictionary entry from the dictionary object's description; its
// catalogue columns take the fields' names.
int WriteEntry(CCdd& cdd) {
    for (int ok = cdd.m_FldList.First(); ok; ok = cdd.m_FldList.Next())
        cdd.m_FldList.SetFldNameForDDF(cdd.m_FldList.GetFldName());
    int status = cdd.Insert(nullptr);
    if (status)
        std::printf("  could not write the entry for %s (status %d)\n", cdd.m_FileDat.FileName,
                    status);
    return status;
}

void BeginEntry(CCdd& cdd, const char* name, const char* symbol, const char* desc) {
    cdd.Clear();
    std::strcpy(cdd.m_FileDat.FileName, name);
    std::strcpy(cdd.m_FileDat.SymName, symbol);
    std::strcpy(cdd.m_FileDat.FileDesc, desc);
    cdd.m_FileDat.FileType = dbFileData;
    cdd.m_FileDat.FileSpec.PageSize = 4096;
}

int DescribeCompany() {
    CCdd cdd(nullptr, g_CddFileName);
    if (int st = cdd.Open(nullptr, dbOpenType(dbOpenNormal | dbOpenCreate), 1)) return st;

    BeginEntry(cdd, "Customer.dat", "CCustomer", "Customers");
    cdd.AddField(0, 0, 4, dbInteger, 0, "CustId", "Customer number", "Customer:");
    cdd.AddField(1, 4, 31, dbZString, 0, "Name", "Customer name", "Name:");
    cdd.AddField(2, 35, 20, dbString, 0, "City", "City", "City:");
    cdd.AddField(3, 55, 8, dbMoney, 2, "Balance", "Balance owing", "Balance:");
    cdd.AddKey(0, "ById", "CustId", 0);
    cdd.AddKey(1, "ByName", "Name", kDuplicates | kModifiable | kNoCase);
    cdd.AddKey(2, "ByCity", "City", kSegmentFollows | kDuplicates | kModifiable);
    cdd.AddKey(2, "ByCity", "Name", kDuplicates | kModifiable | kNoCase);
    if (int st = WriteEntry(cdd)) return st;
    std::printf("  Customer.dat: %d fields, %d keys, %u-byte records\n", cdd.GetFldCount(),
                cdd.m_FileDat.FileSpec.NdxCount, unsigned(cdd.m_FileDat.FileSpec.RecLen));

    BeginEntry(cdd, "Invoice.dat", "CInvoice", "Invoices");
    cdd.AddField(0, 0, 4, dbUnsigned, 0, "InvNo", "Invoice number", "Invoice:");
    cdd.AddField(1, 4, 4, dbInteger, 0, "CustId", "Customer number", "Customer:");
    cdd.AddField(2, 8, 4, dbDate, 0, "InvDate", "Invoice date", "Date:");
    cdd.AddField(3, 12, 8, dbMoney, 2, "Amount", "Amount", "Amount:");
    cdd.AddField(4, 20, 1, dbString, 0, "Status", "Invoice status", "Status:");
    cdd.m_FldList.SetFldDispCode(dbDispCodeTable);  // shown through code table 1
    cdd.m_FldList.SetFldCodeId(kStatusTable);
    cdd.AddKey(0, "ByNumber", "InvNo", 0);
    cdd.AddKey(1, "ByCustomer", "CustId", kSegmentFollows | kDuplicates);
    cdd.AddKey(1, "ByCustomer", "InvDate", kDuplicates);
    if (int st = WriteEntry(cdd)) return st;
    std::printf("  Invoice.dat: %d fields, %d keys, %u-byte records\n", cdd.GetFldCount(),
                cdd.m_FileDat.FileSpec.NdxCount, unsigned(cdd.m_FileDat.FileSpec.RecLen));

    if (int st = CCodeFile::AddToDictionary(cdd)) return st;
    std::printf("  VexaCode.dat: the code tables, one record each\n");

    // The SQL catalogue's own files, so that record files can be built on them.
    if (int st = cdd.CreateFileDdfRec(nullptr)) return st;
    if (int st = cdd.CreateFieldDdfRec(nullptr)) return st;
    if (int st = cdd.CreateIndexDdfRec(nullptr)) return st;
    std::printf("  FILE.DDF, FIELD.DDF, INDEX.DDF: the SQL catalogue's files\n");
    return 0;
}

std::string Trimmed(const char* text, size_t size) {
    std::string s(text, size);
    return s.substr(0, s.find_last_not_of(' ') + 1);
}

// Writes the catalogue of both files beside the data and lists its tables.
int WriteCatalogue(Customer& customers, Invoice& invoices) {
    const char* folder = CDbFile::GetDataPath();
    CFileDdf tables(folder);
    CFieldDdf columns(folder);
    CIndexDdf indexes(folder);
    for (CDbFile* w : std::initializer_list<CDbFile*>{&tables, &columns, &indexes})
        if (int st = w->Open(nullptr, dbOpenType(dbOpenNormal | dbOpenCreate))) return st;
    customers.WriteToDdf(tables, columns, indexes);
    invoices.WriteToDdf(tables, columns, indexes);
    std::map<int, int> columnCount, segmentCount;
    for (int st = columns.StepFirst(nullptr); st == 0; st = columns.StepNext(nullptr))
        ++columnCount[columns.FileId];
    for (int st = indexes.StepFirst(nullptr); st == 0; st = indexes.StepNext(nullptr))
        ++segmentCount[indexes.FileId];
    std::printf("  FILE.DDF, FIELD.DDF and INDEX.DDF in %s hold:\n", folder);
    tables.SetKey(1);  // by table name
    for (int st = tables.GetFirst(nullptr); st == 0; st = tables.GetNext(nullptr))
        std::printf("    table %-9s at %-13s %d columns, %d index segments\n",
                    Trimmed(tables.SymName, sizeof(tables.SymName)).c_str(),
                    Trimmed(tables.FileName, sizeof(tables.FileName)).c_str(),
                    columnCount[tables.Id], segmentCount[tables.Id]);
    CString ref;
    std::printf("  a report names a customer's name %s\n",
                customers.GetFieldNameForCrystal(1, ref));
    return 0;
}

void ShowCustomer(Customer& c) {
    std::printf("    %3d  %-22s %-12s %14s\n", c.id, c.name.c_str(), c.city.c_str(),
                static_cast<char*>(c.balance));
}

void ShowInvoice(Invoice& i) {
    CString status;  // the status code's words, from the code table
    std::printf("    %s  invoice %u for customer %d  %14s  %s\n", DateText(i.date).c_str(),
                i.number, i.customer, static_cast<char*>(i.amount),
                i.FormatFileDataToDisplay(status, "Status"));
}

// Invoice statuses as a code table in the shared code file (VexaCode.dat in
// the system data directory), which is created from its description.
int WriteStatusTable() {
    CCodeFile codes;
    if (int st = codes.Open(nullptr, dbOpenType(dbOpenNormal | dbOpenCreate))) return st;
    CCodeTable statuses;
    statuses.LoadTable(dbString, 1, "O=Open\r\nP=Paid\r\nV=Void");
    if (int st = codes.WriteTable(kStatusTable, "Invoice status", statuses)) return st;
    std::printf("  table %d, invoice status:", kStatusTable);
    for (CCodeEntry* e = statuses.First(); e; e = statuses.Next())
        std::printf(" %s=%s", static_cast<const char*>(*e), e->Desc());
    std::printf("\n");
    return codes.Close(nullptr);
}

// Two clerks on their own client numbers edit customer 102 at once. The lock
// manager remembers the record as clerk 1 sees it; clerk 2's change makes
// clerk 1's lock fail, so clerk 1 sees the record again before editing.
int EditWithLocks() {
    Customer clerk1(1), clerk2(2);
    for (Customer* c : {&clerk1, &clerk2})
        if (int st = c->Open(nullptr)) return st;
    int32_t id = 102;
    auto show = [&](Customer& c) {
        c.SetKey(&id, 4, 0);
        return c.GetEqual(nullptr, 0, 1);
    };
    CRcdLockMgr edit;
    edit.SetLockChecking(1);
    if (int st = show(clerk1)) return st;
    edit.LoadRcd(nullptr, &clerk1, 0);
    std::printf("  clerk 1 opens %s of %s\n", clerk1.name.c_str(), clerk1.city.c_str());
    if (int st = show(clerk2)) return st;
    clerk2.city = "Bath";
    if (int st = clerk2.Update(nullptr)) return st;
    std::printf("  clerk 2 moves it to Bath and saves\n");
    int locked = edit.LoadRcd(nullptr, &clerk1, 1);
    std::printf("  clerk 1 starts to edit: %s\n",
                locked ? "locked" : "refused, someone changed it; shown again");
    if (!locked) {
        show(clerk1);
        edit.LoadRcd(nullptr, &clerk1, 0);
        locked = edit.LoadRcd(nullptr, &clerk1, 1);
        std::printf("  clerk 1 starts again on %s of %s: %s\n", clerk1.name.c_str(),
                    clerk1.city.c_str(), locked ? "locked" : "refused");
    }
    // Meanwhile clerk 2 is held off (asked once, without the lock wait).
    bool wait = CDbFile::PersistentLocking(false);
    clerk2.SetErrOverride(1);
    clerk2.SetKey(&id, 4, 0);
    std::printf("  clerk 2 tries to lock it too: status %d\n", clerk2.GetEqual(nullptr, 1, 1));
    CDbFile::PersistentLocking(wait);
    clerk1.balance += Currency(25.0);
    if (!edit.SaveRcd(nullptr, &clerk1, 0)) return clerk1.GetLastError();
    std::printf("  clerk 1 adds a charge of %s and saves:\n", static_cast<char*>(Currency(25.0)));
    if (int st = show(clerk2)) return st;
    ShowCustomer(clerk2);
    return 0;
}

void UseFolder(const std::string& folder) {
    CDbFile::SetSysDataPath(folder.c_str());
    CDbFile::SetDataPath("company");
    std::snprintf(g_CddFileName, sizeof(g_CddFileName), "%s/vexa.ddf", folder.c_str());
}

void ShowProfile() {
    std::string path = ProfilePath();
    std::printf("Money is shown in the regional style of %s%s.\n", path.c_str(),
                access(path.c_str(), R_OK) == 0 ? "" : " (not there: the defaults)");
}

int Run(const std::string& folder) {
    std::printf("Company books in %s\n", folder.c_str());
    ShowProfile();
    std::printf("\n");
    UseFolder(folder);
    std::printf("Data paths: system %s, company %s\n", CDbFile::GetSysDataPath(),
                CDbFile::GetDataPath());

    std::printf("\nWriting the data dictionary %s:\n", g_CddFileName);
    if (int st = DescribeCompany()) return st;

    std::printf("\nCreating the files from their descriptions on first open:\n");
    Customer customers;
    Invoice invoices;
    if (int st = customers.Open(nullptr, dbOpenType(dbOpenNormal | dbOpenCreate))) return st;
    if (int st = invoices.Open(nullptr, dbOpenType(dbOpenNormal | dbOpenCreate))) return st;
    std::printf("  %s\n  %s\n", customers.FileName(), invoices.FileName());

    std::printf("\nThe invoice status codes, in the shared code file:\n");
    if (int st = WriteStatusTable()) return st;

    std::printf("\nAdding customers:\n");
    struct {
        int id;
        const char* name;
        const char* city;
        double balance;
    } people[] = {{101, "Harbour Fisheries", "Portsmouth", 1250.00},
                  {102, "anchor supplies", "Bristol", 310.50},
                  {103, "Bristol Bakery", "Bristol", -120.40},  // in credit
                  {104, "Coastal Joinery", "Portsmouth", 4890.25},
                  {105, "Dunmore Books", "Oxford", 75.10}};
    for (auto& p : people) {
        customers.id = p.id;
        customers.name = p.name;
        customers.city = p.city;
        customers.balance = p.balance;
        if (int st = customers.Insert(nullptr)) return st;
        ShowCustomer(customers);
    }

    std::printf("\nFinding customer 103 by number:\n");
    int32_t wanted = 103;
    customers.SetKey(&wanted, 4, 0);
    if (customers.GetEqual(nullptr, 0, 1) == 0) ShowCustomer(customers);

    std::printf("\nThe first name from \"c\" on, as typed (case ignored), field by field:\n");
    customers.SetKey(1);
    short nameField = customers.GetFieldIdOfName("Name");
    if (customers.SearchKey(nullptr, nameField, "c", 1, dbRelGreaterEqual, true) == 0) {
        CString text;
        for (unsigned short id = 0; id < customers.GetFieldCount(); ++id)
            std::printf("    %-9s %s\n", customers.GetFieldPrompt(id),
                        customers.FormatFileDataToDisplay(text, int(id)));
    }

    std::printf("\nAll customers by name (case ignored):\n");
    customers.SetKey(1);
    for (int st = customers.GetFirst(nullptr); st == 0; st = customers.GetNext(nullptr))
        ShowCustomer(customers);

    std::printf("\nBy city, then name:\n");
    customers.SetKey(2);
    for (int st = customers.GetFirst(nullptr); st == 0; st = customers.GetNext(nullptr))
        ShowCustomer(customers);

    // One engine call brings every record that passes the filter, cut to the
    // fields asked for; the filter is typed as text, its amount the user's way.
    const char* filter = "City=portsmouth and Balance>1000.00";
    std::printf("\nCustomers where %s, number, name and balance only, in one call:\n", filter);
    customers.SetKey(0);
    customers.ResetFields(0);
    for (const char* field : {"CustId", "Name", "Balance"})
        customers.SelectField(uint16_t(customers.GetFieldIdOfName(field)));
    if (unsigned long bad = customers.SetSQLFilter(filter)) {
        std::printf("    the filter stops at term %d (error %d)\n",
                    CDbFile::GetSQLErrExpression(bad), int(CDbFile::GetSQLErrCode(bad)));
        return 1;
    }
    customers.SetFilterOptions(20, 0, 65535);
    unsigned short found = customers.GetFirstList(nullptr);
    for (unsigned short i = 1; i <= found; ++i) {
        long position;
        unsigned short length;
        const char* p = static_cast<const char*>(customers.GetRecFromList(i, &position, &length));
        // The selected fields one after another: CustId (4 bytes), Name (31), Balance (8).
        int32_t id;
        std::memcpy(&id, p, 4);
        CString balance;
        CDbFile::FormatFileDataToDisplay(balance, p + 35, 8, dbMoney, dbDispNone, 2, nullptr, 0);
        std::printf("    %3d  %-22.31s %14s  (record at %ld, %u bytes)\n", id, p + 4,
                    static_cast<const char*>(balance), position, unsigned(length));
    }
    customers.ResetTerms();
    customers.ResetFields(1);

    std::printf("\nInvoices for two customers, in one transaction that is ended:\n");
    if (!BeginTransaction(HWND(nullptr))) return 1;
    struct {
        uint32_t number;
        int32_t customer;
        uint32_t date;
        double amount;
    } kept[] = {{5001, 101, MakeDate(2026, 11, 2), 480.00},
                {5002, 104, MakeDate(2026, 11, 9), 1290.75},
                {5003, 101, MakeDate(2026, 10, 28), 770.00}};
    for (auto& k : kept) {
        invoices.number = k.number;
        invoices.customer = k.customer;
        invoices.date = k.date;
        invoices.amount = k.amount;
        if (int st = invoices.Insert(nullptr)) {
            AbortTransaction(HWND(nullptr));
            return st;
        }
        ShowInvoice(invoices);
    }
    if (!EndTransaction(HWND(nullptr))) return 1;
    std::printf("  ended: %lu invoices on file\n", invoices.GetRcdCount());

    std::printf("\nAnother invoice, in a transaction that is aborted:\n");
    if (!BeginTransaction(HWND(nullptr))) return 1;
    invoices.number = 5004;
    invoices.customer = 105;
    invoices.date = MakeDate(2026, 11, 20);
    invoices.amount = 99.99;
    if (int st = invoices.Insert(nullptr)) return st;
    std::printf("    invoice 5004 written inside the transaction\n");
    if (!AbortTransaction(HWND(nullptr))) return 1;
    invoices.SetErrOverride(1);
    uint32_t gone = 5004;
    invoices.SetKey(&gone, 4, 0);
    int st = invoices.GetEqual(nullptr, 0, 1);
    std::printf("  aborted: looking for invoice 5004 gives status %d (not found)\n", st);
    invoices.SetErrOverride(0);

    std::printf("\nInvoices of customer 101, by date:\n");
    invoices.SetKey(1);
    int32_t who = 101;
    uint8_t from[8] = {};
    std::memcpy(from, &who, 4);
    invoices.SetKey(from, 8, 1);
    for (st = invoices.GetUsing(dbRelGreaterEqual, 0, 1); st == 0 && invoices.customer == who;
         st = invoices.GetNext(nullptr))
        ShowInvoice(invoices);

    std::printf("\nCustomer 104 pays invoice 5002, the amount typed the user's way:\n");
    Currency shown(1290.75);
    std::string typed = static_cast<char*>(shown);
    Currency payment;
    payment = typed.c_str();
    int32_t payer = 104;
    customers.SetKey(&payer, 4, 0);
    if (int st2 = customers.GetEqual(nullptr, 0, 1)) return st2;
    customers.balance -= payment;
    if (int st2 = customers.Update(nullptr)) return st2;
    std::printf("    typed \"%s\", read as %.2f\n", typed.c_str(), double(payment));
    ShowCustomer(customers);
    // The invoice's status is typed as its words and stored as its code.
    uint32_t paid = 5002;
    invoices.SetKey(&paid, 4, 0);
    if (int st2 = invoices.GetEqual(nullptr, 0, 1)) return st2;
    CCodeTable statuses;
    statuses.LoadTable(&invoices, invoices.GetFieldIdOfName("Status"));
    statuses.TranslateToCode("Paid", &invoices.status);
    if (int st2 = invoices.Update(nullptr)) return st2;
    std::printf("    status \"Paid\" stored as '%c':\n", invoices.status);
    ShowInvoice(invoices);

    std::printf("\nTwo clerks edit customer 102 at once (client numbers 1 and 2):\n");
    if (int st2 = EditWithLocks()) return st2;

    std::printf("\nWhat the engine reports:\n");
    for (CDbFile* f : {static_cast<CDbFile*>(&customers), static_cast<CDbFile*>(&invoices)}) {
        if (f->GetFileStatistics(nullptr)) return f->GetLastError();
        const DbStatStruct& s = f->m_FileStat;
        std::printf("  %s: %ld records of %d bytes, %d keys in %d segments, pages of %d bytes\n",
                    f->m_FileDat.FileName, s.GetRcdCount(), s.GetRcdLen(), s.GetNdxCount(),
                    s.m_KeyList.Count(), s.GetPageSize());
    }

    std::printf("\nThe SQL catalogue for report writers, beside the data:\n");
    if (int st = WriteCatalogue(customers, invoices)) return st;
    customers.Close(nullptr);
    invoices.Close(nullptr);
    std::printf("\nDone.\n");
    return 0;
}

// The money of an earlier run, shown again in the profile in force now.
int Report(const std::string& folder) {
    std::printf("Money of the company books in %s\n", folder.c_str());
    ShowProfile();
    UseFolder(folder);
    Customer customers;
    Invoice invoices;
    if (int st = customers.Open(nullptr)) return st;
    if (int st = invoices.Open(nullptr)) return st;

    std::printf("\nCustomers by number:\n");
    Currency total;
    customers.SetKey(0);
    for (int st = customers.GetFirst(nullptr); st == 0; st = customers.GetNext(nullptr)) {
        ShowCustomer(customers);
        total += customers.balance;
    }
    std::printf("    %-40s %14s\n", "owed in all", static_cast<char*>(total));

    std::printf("\nInvoices by number:\n");
    invoices.SetKey(0);
    for (int st = invoices.GetFirst(nullptr); st == 0; st = invoices.GetNext(nullptr))
        ShowInvoice(invoices);
    customers.Close(nullptr);
    invoices.Close(nullptr);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::string folder;
    bool report = argc > 2 && std::strcmp(argv[1], "--report") == 0;
    if (report) {
        folder = argv[2];
    } else if (argc > 1) {
        folder = argv[1];
        ::mkdir(folder.c_str(), 0777);
    } else {
        char made[] = "/tmp/dbfile-company-XXXXXX";
        if (!mkdtemp(made)) {
            std::perror("mkdtemp");
            return 1;
        }
        folder = made;
    }
    Path p(folder.c_str());
    p.QualifyPath();
    try {
        int status = report ? Report(p.c_str()) : Run(p.c_str());
        if (status) std::printf("Stopped with status %d.\n", status);
        return status ? 1 : 0;
    } catch (int e) {
        std::printf("A record file could not be built (%d).\n", e);
        return 1;
    }
}
