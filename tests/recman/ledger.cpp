#include "ledger.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>

namespace rmtest {

namespace {

constexpr uint16_t EXT = RM_KEY_EXTENDED_TYPE;
constexpr uint16_t kRecord = 16;  // id (4), balance (8), transfer number (4)

std::vector<uint8_t> Record(uint32_t id, int64_t balance, uint32_t n) {
    std::vector<uint8_t> r(kRecord, 0);
    Put32(r.data(), id);
    Put32(r.data() + 4, uint32_t(uint64_t(balance)));
    Put32(r.data() + 8, uint32_t(uint64_t(balance) >> 32));
    Put32(r.data() + 12, n);
    return r;
}

int64_t BalanceOf(const std::vector<uint8_t>& r) {
    return int64_t(uint64_t(Get32(r.data() + 4)) | uint64_t(Get32(r.data() + 8)) << 32);
}

void SetBalance(std::vector<uint8_t>& r, int64_t b) {
    Put32(r.data() + 4, uint32_t(uint64_t(b)));
    Put32(r.data() + 8, uint32_t(uint64_t(b) >> 32));
}

uint32_t Mix(uint32_t x) {
    x ^= x >> 16;
    x *= 0x7feb352d;
    x ^= x >> 15;
    x *= 0x846ca68b;
    return x ^ (x >> 16);
}

}  // namespace

std::vector<Leg> Plan(uint32_t n, int files) {
    uint32_t h = Mix(n + 1);
    int count = files >= 3 && (h & 1) ? 3 : 2;
    std::vector<int> chosen;
    for (int i = 0; int(chosen.size()) < count; ++i) {
        int f = int(Mix(h + uint32_t(i)) % uint32_t(files));
        if (std::find(chosen.begin(), chosen.end(), f) == chosen.end()) chosen.push_back(f);
    }
    std::sort(chosen.begin(), chosen.end());
    std::vector<Leg> legs;
    int64_t sum = 0;
    for (size_t i = 0; i < chosen.size(); ++i) {
        uint32_t r = Mix(h ^ uint32_t(0x9e3779b9 * (i + 1)));
        Leg l{chosen[i], 1 + r % kAccounts, int64_t(1 + (r >> 8) % 100)};
        if (i + 1 == chosen.size()) l.delta = -sum;
        sum += l.delta;
        legs.push_back(l);
    }
    return legs;
}

std::vector<int> FilesOf(const std::vector<Leg>& plan) {
    std::vector<int> f;
    for (const Leg& l : plan)
        if (std::find(f.begin(), f.end(), l.file) == f.end()) f.push_back(l.file);
    return f;
}

Ledger::Ledger(const std::string& dir, int files) {
    for (int i = 0; i < files; ++i)
        paths_.push_back(dir + "/book" + std::to_string(i) + ".dat");
}

std::vector<std::string> Ledger::Dirs() const {
    std::vector<std::string> dirs;
    for (const std::string& p : paths_) {
        std::string d = std::filesystem::path(p).parent_path().string();
        if (std::find(dirs.begin(), dirs.end(), d) == dirs.end()) dirs.push_back(d);
    }
    return dirs;
}

void Ledger::Create() const {
    for (const std::string& p : paths_) {
        if (CreateFile(p, Spec(kRecord, {{{1, 4, EXT, RM_TYPE_INTEGER}}})) != RM_OK)
            throw std::runtime_error("cannot create " + p);
        Handle h;
        if (h.Open(p) != RM_OK) throw std::runtime_error("cannot open " + p);
        for (uint32_t a = 1; a <= kAccounts; ++a) {
            auto r = Record(a, kOpening, 0);
            if (h.Insert(r) != RM_OK) throw std::runtime_error("cannot fill " + p);
        }
    }
}

LedgerClient::LedgerClient(const Ledger& l, uint16_t client) : l_(l), client_(client) {}

int16_t LedgerClient::Open() {
    h_.clear();
    for (int i = 0; i < l_.files(); ++i) {
        h_.push_back(std::make_unique<Handle>(client_));
        if (int16_t st = h_.back()->Open(l_.Path(i))) return st;
    }
    return RM_OK;
}

int16_t LedgerClient::Begin() {
    return Txn(RM_BEGIN_TRANSACTION + RM_CONCURRENT, client_);
}

int16_t LedgerClient::End() {
    return Txn(RM_END_TRANSACTION, client_);
}

int16_t LedgerClient::Transfer(uint32_t n, bool waitLocks) {
    std::vector<Leg> plan = Plan(n, l_.files());
    if (int16_t st = Begin()) return st;
    auto fail = [&](int16_t st) {
        Txn(RM_ABORT_TRANSACTION, client_);
        return st;
    };
    std::map<int, int64_t> perFile;
    for (const Leg& leg : plan) {
        Handle& h = *h_[size_t(leg.file)];
        std::vector<uint8_t> rec;
        Put32(h.key(), leg.account);
        uint16_t op = uint16_t(RM_GET_EQUAL + (waitLocks ? RM_LOCK_MULTI_WAIT : 0));
        if (int16_t st = h.Get(op, 0, rec, nullptr, kRecord)) return fail(st);
        SetBalance(rec, BalanceOf(rec) + leg.delta);
        Put32(rec.data() + 12, n);
        if (int16_t st = h.Update(rec)) return fail(st);
        perFile[leg.file] += leg.delta;
    }
    for (auto& [file, delta] : perFile) {
        auto r = Record(kPostingBase + n, delta, n);
        if (int16_t st = h_[size_t(file)]->Insert(r)) return fail(st);
    }
    return End();
}

std::string Audit(const Ledger& l, const std::set<uint32_t>& committed,
                  std::set<uint32_t>* present) {
    std::map<uint32_t, std::map<int, int64_t>> postings;  // n -> file -> amount
    std::vector<std::vector<int64_t>> balance(size_t(l.files()));
    int64_t total = 0;
    for (int i = 0; i < l.files(); ++i) {
        Handle h(999);
        if (int16_t st = h.Open(l.Path(i)))
            return "file " + std::to_string(i) + " opens with " + std::to_string(st);
        balance[size_t(i)].assign(kAccounts + 1, 0);
        std::vector<uint8_t> r;
        int16_t st;
        for (st = h.Get(RM_GET_FIRST, 0, r, nullptr, kRecord); st == RM_OK;
             st = h.Get(RM_GET_NEXT, 0, r, nullptr, kRecord)) {
            uint32_t id = Get32(r.data());
            if (id >= kPostingBase)
                postings[id - kPostingBase][i] = BalanceOf(r);
            else if (id >= 1 && id <= kAccounts)
                total += balance[size_t(i)][id] = BalanceOf(r);
            else
                return "stray record " + std::to_string(id);
        }
        if (st != RM_END_OF_FILE) return "reading stopped with " + std::to_string(st);
    }
    if (total != int64_t(l.files()) * kAccounts * kOpening)
        return "total is " + std::to_string(total);
    // Every balance as the transfers present make it.
    std::vector<std::vector<int64_t>> expected(size_t(l.files()),
                                               std::vector<int64_t>(kAccounts + 1, kOpening));
    for (auto& [n, files] : postings) {
        std::vector<Leg> plan = Plan(n, l.files());
        std::map<int, int64_t> want;
        for (const Leg& leg : plan) {
            want[leg.file] += leg.delta;
            expected[size_t(leg.file)][leg.account] += leg.delta;
        }
        if (files != want) return "transfer " + std::to_string(n) + " is split";
        if (present) present->insert(n);
    }
    for (int i = 0; i < l.files(); ++i)
        for (uint32_t a = 1; a <= kAccounts; ++a)
            if (balance[size_t(i)][a] != expected[size_t(i)][a])
                return "file " + std::to_string(i) + " account " + std::to_string(a) + " holds " +
                       std::to_string(balance[size_t(i)][a]) + ", postings say " +
                       std::to_string(expected[size_t(i)][a]);
    for (uint32_t n : committed)
        if (!postings.count(n)) return "committed transfer " + std::to_string(n) + " is lost";
    for (int i = 0; i < l.files(); ++i)
        if (std::string p = Problem(l.Path(i)); !p.empty())
            return "file " + std::to_string(i) + ": " + p;
    for (const std::string& d : l.Dirs()) {
        std::vector<std::string> left = JournalsIn(d);
        if (!left.empty()) return "journal left: " + left.front();
    }
    return "";
}

uint32_t TransferOver(int files, int count, uint32_t n) {
    while (int(FilesOf(Plan(n, files)).size()) != count)
        ++n;
    return n;
}

void Transfers(const Ledger& l, uint32_t first, const std::string& fault, const char* sync,
               int report) {
    setenv("RECMAN_SYNC", sync, 1);
    if (!fault.empty()) setenv("RECMAN_FAULT", fault.c_str(), 1);
    LedgerClient c(l, 1);
    if (c.Open()) _exit(2);
    for (uint32_t n = first; n < first + 200; ++n) {
        if (int16_t st = c.Transfer(n)) _exit(st == RM_RECORD_LOCKED ? 4 : 3);
        if (report >= 0 && write(report, &n, 4) != 4) _exit(5);
    }
    _exit(6);  // the fault never came
}

int RunTransfers(const Ledger& l, uint32_t first, const std::string& fault, const char* sync,
                 int report) {
    pid_t pid = fork();
    if (pid == 0) Transfers(l, first, fault, sync, report);
    return ExitCode(pid);
}

int OpenInChild(const Ledger& l, int i, const char* fault) {
    pid_t pid = fork();
    if (pid != 0) return ExitCode(pid);
    if (fault) setenv("RECMAN_FAULT", fault, 1);
    Handle h(3);
    _exit(h.Open(l.Path(i)));
}

std::vector<std::string> JournalsIn(const std::string& dir) {
    std::vector<std::string> out;
    for (const auto& e : std::filesystem::directory_iterator(dir)) {
        std::string name = e.path().filename().string();
        if (name.find("-journal") == std::string::npos) continue;
        char head[4] = {};
        std::ifstream(e.path()).read(head, 4);
        if (std::string(head, 4) != "RMJ-") out.push_back(name);
    }
    return out;
}

}  // namespace rmtest
