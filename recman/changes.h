// The keys a transaction wrote in one file, noted as it writes them, so that
// a journal can carry their final values; and the replay of those values.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "recman/filedef.h"
#include "recman/journal.h"
#include "recman/kv.h"

namespace recman {

class FileEnv;

class ChangeSet {
  public:
    // Notes that the transaction put or deleted `key` in `db` (index `index`).
    void Note(ChangeDb db, uint16_t index, const void* key, size_t n);
    bool empty() const { return notes_.empty(); }

    // Encodes the final value of every key noted, as the transaction `txn`
    // on `env` sees it: a put of the value, or a delete when it is gone.
    Status Collect(FileEnv& env, Txn txn, std::string& out) const;

  private:
    std::string notes_;  // (db, index, key length, key) one after another
};

// Writes encoded changes into `txn`. Answers 2 when they are damaged or name
// storage the file does not have, kMapFull when the map is full.
Status ReplayChanges(FileEnv& env, Txn txn, const std::string& changes);

}  // namespace recman
