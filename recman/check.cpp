#include "recman/check.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <set>

#include "recman/engine.h"
#include "recman/guard.h"
#include "recman/keycodec.h"
#include "recman/structure.h"

namespace recman {

namespace {

std::string Hex(const void* p, size_t n) {
    static const char d[] = "0123456789abcdef";
    std::string s;
    for (size_t i = 0; i < n; ++i) {
        uint8_t b = static_cast<const uint8_t*>(p)[i];
        s += d[b >> 4];
        s += d[b & 15];
    }
    return s;
}

// Walks one file inside one read transaction.
class Checker {
  public:
    Checker(FileEnv& env, Txn txn, std::vector<std::string>& out)
        : env_(env), txn_(txn), out_(out) {}

    Status Run() {
        FileState state;
        if (Status st = env_.LoadState(txn_, state)) return st;
        const FileDef& d = env_.def();
        std::map<uint16_t, size_t> expected;  // index id -> records that belong in it
        uint32_t records = 0, highest = 0;
        uint64_t highestSeq = 0;
        Cursor c;
        if (int rc = c.Open(txn_, env_.records())) return StatusOf(rc);
        Val k, v;
        int rc;
        for (rc = c.Get(&k, &v, MDB_FIRST); rc == 0; rc = c.Get(&k, &v, MDB_NEXT)) {
            uint32_t address = 0;
            std::memcpy(&address, k.mv_data, 4);
            ++records;
            highest = std::max(highest, address);
            StoredRecord r;
            if (!DecodeRecord(v, address, r, d.Checksummed())) {
                Fault("record " + std::to_string(address) +
                      (d.Checksummed() ? " is damaged: its checksum does not match"
                                       : " cannot be decoded"));
                continue;
            }
            if (r.length < d.recordLength || (!d.VarLength() && r.length != d.recordLength))
                Fault("record " + std::to_string(address) + " has length " +
                      std::to_string(r.length));
            if (r.length < d.recordLength) continue;
            for (const KeyDef& key : d.keys) {
                if (ExcludedFromIndex(key, r.data)) continue;
                expected[key.id]++;
                uint64_t seq = r.SeqOf(key.id);
                highestSeq = std::max(highestSeq, seq);
                if (key.Duplicates() && seq == 0) {
                    Fault("record " + std::to_string(address) + " has no sequence for key " +
                          std::to_string(key.number));
                    continue;
                }
                Entry e;
                MakeEntry(key, r.data, seq, e);
                Val ek = ValOf(e.bytes, e.len), ev;
                int grc = txn_.Get(env_.Index(key.id), &ek, &ev);
                if (grc != 0 || AddressOf(ev) != address)
                    Fault("record " + std::to_string(address) + " missing from key " +
                          std::to_string(key.number));
            }
        }
        if (rc != MDB_NOTFOUND) return StatusOf(rc);
        if (records != state.records)
            Fault("record count " + std::to_string(state.records) + " but " +
                  std::to_string(records) + " records stored");
        if (records && highest >= state.nextAddress) Fault("next address already in use");
        if (highestSeq >= state.nextSeq) Fault("next duplicate sequence already in use");
        for (const KeyDef& key : d.keys)
            if (Status st = CheckIndex(key, expected[key.id], state.Unique(key.id))) return st;
        return RM_OK;
    }

  private:
    Status CheckIndex(const KeyDef& key, size_t expected, uint32_t unique) {
        Cursor c;
        if (int rc = c.Open(txn_, env_.Index(key.id))) return StatusOf(rc);
        Val k, v;
        int rc;
        size_t entries = 0;
        uint32_t distinct = 0;
        std::string last;
        std::string name = "key " + std::to_string(key.number);
        for (rc = c.Get(&k, &v, MDB_FIRST); rc == 0; rc = c.Get(&k, &v, MDB_NEXT)) {
            ++entries;
            if (k.mv_size != EntryLength(key)) {
                Fault(name + " has an entry of the wrong length");
                continue;
            }
            std::string value(static_cast<const char*>(k.mv_data), key.length);
            if (entries == 1 || value != last) ++distinct;
            last = value;
            bool checked = env_.def().Checksummed();
            if (!key.clustered && !EntryIntact(k, v, checked)) {
                Fault(name + " entry " + Hex(k.mv_data, k.mv_size) +
                      " is damaged: its checksum does not match");
                continue;
            }
            uint32_t address = AddressOf(v);
            Val rk = ValOf(&address, 4), rv;
            StoredRecord r;
            if (txn_.Get(env_.records(), &rk, &rv) != 0 || !DecodeRecord(rv, address, r, checked) ||
                r.length < env_.def().recordLength) {
                Fault(name + " entry " + Hex(k.mv_data, k.mv_size) + " points at record " +
                      std::to_string(address) + ", which is missing or damaged");
                continue;
            }
            Entry e;
            MakeEntry(key, r.data, r.SeqOf(key.id), e);
            if (ExcludedFromIndex(key, r.data) || e.len != k.mv_size ||
                std::memcmp(e.bytes, k.mv_data, e.len) != 0)
                Fault(name + " entry " + Hex(k.mv_data, k.mv_size) + " does not match record " +
                      std::to_string(address));
            StoredRecord copy;
            if (key.clustered && !DecodeClustered(k, v, copy, checked))
                Fault(name + ": the copy of record " + std::to_string(address) +
                      " is damaged: its checksum does not match");
            else if (key.clustered && (copy.version != r.version || copy.length != r.length ||
                                       std::memcmp(copy.data, r.data, r.length) != 0))
                Fault(name + " holds a stale copy of record " + std::to_string(address));
        }
        if (rc != MDB_NOTFOUND) return StatusOf(rc);
        if (entries != expected)
            Fault(name + " holds " + std::to_string(entries) + " entries for " +
                  std::to_string(expected) + " records");
        if (distinct != unique)
            Fault(name + " counts " + std::to_string(unique) + " distinct values but holds " +
                  std::to_string(distinct));
        return RM_OK;
    }

    void Fault(std::string s) { out_.push_back(std::move(s)); }

    FileEnv& env_;
    Txn txn_;
    std::vector<std::string>& out_;
};

}  // namespace

int CheckFile(const std::string& path, std::vector<std::string>& problems) {
    return Engine::Instance().Check(path, problems);
}

Status Engine::Check(const std::string& path, std::vector<std::string>& problems) {
    std::lock_guard<std::mutex> lk(mu_);
    if (forked_) AfterFork();
    problems.clear();
    if (server_) {
        // A server keeps its own pages: the check walks records and keys.
        std::shared_ptr<FileEnv> env;
        if (Status st = AcquireEnv(path, env)) return st;
        Txn txn;
        if (Status st = env->Snapshot(txn)) return st;
        return Checker(*env, txn, problems).Run();
    }
    // The structure first, read page by page without trusting it; only a
    // file whose structure holds is walked through the storage library.
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return (errno == ENOENT || errno == ENOTDIR) ? RM_FILE_NOT_FOUND : RM_IO_ERROR;
    struct stat sb {};
    if (::fstat(fd, &sb) != 0 || !S_ISREG(sb.st_mode)) {
        ::close(fd);
        return RM_NOT_A_RECMAN_FILE;
    }
    std::shared_ptr<FileEnv> env;
    Status opened = AcquireEnv(path, env);
    // Other writers may commit meanwhile and reuse the pages walked.
    StructureResult structure = CheckSettled(fd, StructureDepth::Full, 5);
    if (!structure.settled) {
        structure.status = RM_OK;
        structure.faults = {
            "the file changed during every reading of its pages, which were "
            "therefore not checked"};
    }
    ::close(fd);
    if (structure.status) return structure.status;
    if (!structure.faults.empty()) {
        problems = std::move(structure.faults);
        return RM_OK;
    }
    if (opened) return opened;
    Txn txn;
    if (Status st = env->Snapshot(txn)) return st;
    if (Status st = Checker(*env, txn, problems).Run()) return st;
    DescribeJournals(*env, txn, problems);
    return RM_OK;
}

}  // namespace recman
