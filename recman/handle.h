// Clients and their open handles: currency, locks and read cursors.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "recman/fileenv.h"
#include "recman/kv.h"
#include "recman/oslock.h"
#include "recman/pg_session.h"
#include "recman/store.h"

namespace recman {

// Where a handle stands relative to a remembered entry (logical) or address
// (physical): on it, in its place after it was deleted, or past one end.
enum class Pos : uint8_t { None, On, Gone, After, Before };

struct Currency {
    Pos logical = Pos::None;
    uint16_t indexId = 0;  // the key path, by index id (key numbers can move)
    Entry entry;           // index entry of the current record on that path

    Pos physical = Pos::None;
    uint32_t address = 0;
    uint32_t version = 0;  // the record's version when this handle read it

    bool HasRecord() const { return physical == Pos::On; }
};

enum class LockKind : uint8_t { None, Single, Multiple };

struct Client;

struct Handle {
    ~Handle();

    uint32_t number = 0;
    uint32_t generation = 0;
    Client* client = nullptr;
    std::shared_ptr<FileEnv> env;
    LockFile lock;  // this handle's own open file description, for its locks
    bool readOnly = false;
    bool exclusive = false;
    bool ownerGiven = false;
    Currency cur;

    LockKind lockKind = LockKind::None;
    std::vector<uint32_t> locks;  // addresses locked by this handle

    // Cursors over the file's shared read snapshot, kept between calls so that
    // a walk through a path continues where it stopped.
    Cursor idxCursor;
    uint16_t idxCursorId = 0;
    Cursor recCursor;
    uint64_t cursorGen = 0;
    bool idxAtCurrency = false;  // idxCursor rests on the logical currency's entry
    bool recAtCurrency = false;  // recCursor rests on the physical currency's record
    uintptr_t touchedPage = 0;   // the storage page a read last asked the cache for

    bool Holds(uint32_t address) const;
    void ReleaseLock(uint32_t address);
    void ReleaseAllLocks();
    void CloseCursors();
    // Leaves descriptors and cursors alone (a forked child's inheritance).
    void Abandon();
};

using ClientKey = std::array<uint8_t, 16>;

// A file whose writer slot a client's transaction holds, with the storage
// transaction that collects the client's changes to it.
struct TxnFile {
    std::shared_ptr<FileEnv> env;
    Txn txn;
    FileState state;
    Status doomed = 0;      // a failure left the changes incomplete: only Abort remains
    ChangeSet changes;      // keys written, for a journal should the transaction span files
    uint64_t baseTxn = 0;   // the file's last commit when the transaction took it
    std::string baseState;  // the file's counters then
    // Journals applied to the file before, removable once this transaction's
    // commit is flushed; while they stay, they can redo the base commit.
    std::vector<std::string> retire;
    bool baseCovered = false;
};

struct Transaction {
    bool active = false;
    bool exclusive = false;  // every file it touches, reads included, joins it
    std::vector<TxnFile> files;
    // Record locks taken inside it: (handle number, generation, address).
    struct Lock {
        uint32_t handle, generation, address;
    };
    std::vector<Lock> locks;
};

struct Client {
    ClientKey key{};
    std::vector<Handle*> handles;
    Transaction txn;
    // With server storage, the connection that carries this client's
    // transactions (made at its first one).
    std::unique_ptr<pg::Session> server;
};

}  // namespace recman
