#include "recman/structure.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <map>
#include <optional>

#include "recman/bytes.h"
#include "recman/recman.h"

namespace recman {

namespace {

// The storage library's on-disk layout (64-bit builds): a 16-byte page
// header (page number, padding, flags, lower and upper bounds of the free
// space, or the page count of an overflow run), 2-byte node offsets after it,
// nodes of 8-byte headers (data size or child page, flags, key size) followed
// by key and data. Meta pages carry the trees' records.
constexpr uint64_t kInvalidPage = ~uint64_t(0);
constexpr uint16_t kBranch = 0x01, kLeaf = 0x02, kOverflow = 0x04, kMeta = 0x08;
constexpr uint16_t kTypeBits = 0x01 | 0x02 | 0x04 | 0x08 | 0x20 | 0x40;
constexpr uint16_t kBigData = 0x01, kSubData = 0x02;
constexpr uint16_t kIntegerKey = 0x08;
constexpr size_t kHeader = 16, kNodeHeader = 8, kDbRecord = 48;
constexpr size_t kMaxKey = 511;
constexpr int kMaxDepth = 32;
constexpr uint32_t kMagic = 0xBEEFC0DE;
constexpr uint32_t kDataVersion = 1;
constexpr size_t kMaxFaults = 1000;
constexpr uint64_t kCheapFreePages = 1024;
constexpr uint64_t kCheapVisits = 4096;

struct DbRecord {
    uint16_t flags = 0, depth = 0;
    uint64_t branch = 0, leaf = 0, overflow = 0, entries = 0, root = kInvalidPage;
};

DbRecord ReadDb(const uint8_t* p) {
    DbRecord d;
    d.flags = LoadLe16(p + 4);
    d.depth = LoadLe16(p + 6);
    d.branch = LoadLe64(p + 8);
    d.leaf = LoadLe64(p + 16);
    d.overflow = LoadLe64(p + 24);
    d.entries = LoadLe64(p + 32);
    d.root = LoadLe64(p + 40);
    return d;
}

struct Meta {
    DbRecord free, main;
    uint64_t lastPage = 0, txnid = 0;
};

enum class Order { Bytes, U32, U64 };

int Compare(Order o, const uint8_t* a, size_t an, const uint8_t* b, size_t bn) {
    if (o == Order::U32 && an == 4 && bn == 4) {
        uint32_t x = LoadLe32(a), y = LoadLe32(b);
        return x < y ? -1 : x > y;
    }
    if (o == Order::U64 && an == 8 && bn == 8) {
        uint64_t x = LoadLe64(a), y = LoadLe64(b);
        return x < y ? -1 : x > y;
    }
    int c = std::memcmp(a, b, std::min(an, bn));
    return c ? c : (an < bn ? -1 : an > bn);
}

using Key = std::optional<std::string>;

class Examiner {
  public:
    Examiner(int fd, StructureDepth depth, StructureResult& out)
        : fd_(fd), depth_(depth), full_(depth == StructureDepth::Full), out_(out) {}

    void Run() {
        struct stat sb {};
        if (::fstat(fd_, &sb) != 0) {
            out_.status = RM_IO_ERROR;
            return;
        }
        size_ = uint64_t(sb.st_size);
        if (!FindPageSize()) return;
        filePages_ = size_ / psize_;
        if (!ReadMetas() || depth_ == StructureDepth::Meta) return;
        // The size again, after the meta pages: pages reach the file before
        // the meta page that counts them, while others go on writing.
        if (::fstat(fd_, &sb) != 0) {
            out_.status = RM_IO_ERROR;
            return;
        }
        size_ = uint64_t(sb.st_size);
        filePages_ = size_ / psize_;
        if (full_) used_.assign(size_t(std::min(meta_.lastPage, filePages_ + 1)) + 1, 0);
        CheckLength();
        std::map<std::string, DbRecord> named;
        Walk("main tree", meta_.main, Order::Bytes,
             [&](const uint8_t* k, size_t kn, const uint8_t* d, size_t dn, uint16_t f) {
                 if (f != kSubData || dn != kDbRecord) return;
                 named[std::string(reinterpret_cast<const char*>(k), kn)] = ReadDb(d);
             });
        bool mainWhole = out_.faults.empty();
        if (!named.count("meta") || !named.count("rec")) {
            if (mainWhole)
                out_.status = RM_NOT_A_RECMAN_FILE;
            else
                Fault("the trees of the record file cannot be found");
            return;
        }
        for (auto& [name, db] : named) {
            bool records = name == "rec";
            if (db.flags != (records ? kIntegerKey : 0)) {
                Fault("tree " + name + " has flags " + std::to_string(db.flags));
                continue;
            }
            if (full_)
                Walk("tree " + name, db, records ? Order::U32 : Order::Bytes, nullptr);
            else
                CheckRoot("tree " + name, db);
        }
        if (full_) {
            WalkFree();
            Account();
        }
    }

  private:
    using LeafFn =
        std::function<void(const uint8_t*, size_t, const uint8_t*, size_t, uint16_t flags)>;

    void Fault(std::string s) {
        if (out_.faults.size() < kMaxFaults)
            out_.faults.push_back(std::move(s));
        else if (out_.faults.size() == kMaxFaults)
            out_.faults.push_back("more faults follow");
    }

    // Reads `n` pages from `pgno`; false when they lie past the end.
    bool Read(uint64_t pgno, uint64_t n, std::vector<uint8_t>& buf) {
        if (pgno >= filePages_ || n > filePages_ - pgno) return false;
        buf.resize(size_t(n * psize_));
        for (size_t done = 0; done < buf.size();) {
            ssize_t r =
                ::pread(fd_, buf.data() + done, buf.size() - done, off_t(pgno * psize_ + done));
            if (r < 0 && errno == EINTR) continue;
            if (r <= 0) return false;
            done += size_t(r);
        }
        return true;
    }

    bool ReadAt(uint64_t at, size_t n, uint8_t* out) {
        if (at > size_ || n > size_ - at) return false;
        return ::pread(fd_, out, n, off_t(at)) == ssize_t(n);
    }

    static bool LooksLikeMeta(const uint8_t* p, uint64_t pgno) {
        return LoadLe64(p) == pgno && (LoadLe16(p + 10) & kMeta) &&
               LoadLe32(p + kHeader) == kMagic && LoadLe32(p + kHeader + 4) == kDataVersion;
    }
    static bool ValidPageSize(uint32_t s) { return s >= 512 && s <= 65536 && (s & (s - 1)) == 0; }

    // The page size, from whichever meta page still names it. A file in
    // which no meta page and no tree page can be found is foreign.
    bool FindPageSize() {
        uint8_t head[kHeader + 32];
        if (ReadAt(0, sizeof(head), head) && LooksLikeMeta(head, 0) &&
            ValidPageSize(LoadLe32(head + 40))) {
            psize_ = LoadLe32(head + 40);
            return true;
        }
        for (uint32_t s = 512; s <= 65536; s *= 2)
            if (ReadAt(s, sizeof(head), head) && LooksLikeMeta(head, 1) &&
                LoadLe32(head + 40) == s) {
                psize_ = s;
                return true;
            }
        // Both meta pages gone: a tree page where the first would be tells
        // a damaged file from a foreign one.
        for (uint32_t s = 512; s <= 65536; s *= 2) {
            uint16_t type = 0;
            if (ReadAt(uint64_t(s) * 2, sizeof(head), head) && LoadLe64(head) == 2 &&
                ((type = LoadLe16(head + 10) & kTypeBits) == kLeaf || type == kBranch ||
                 type == kOverflow)) {
                psize_ = s;
                Fault("both meta pages are damaged");
                return false;
            }
        }
        out_.status = RM_NOT_A_RECMAN_FILE;
        return false;
    }

    bool ReadMetas() {
        std::optional<Meta> metas[2];
        std::vector<uint8_t> page;
        for (uint64_t i = 0; i < 2; ++i) {
            if (!Read(i, 1, page)) {
                Fault("meta page " + std::to_string(i) + " lies past the end of the file");
                continue;
            }
            const uint8_t* p = page.data();
            out_.metas.append(reinterpret_cast<const char*>(p), std::min<size_t>(page.size(), 256));
            if (!LooksLikeMeta(p, i) || LoadLe32(p + 40) != psize_) {
                Fault("meta page " + std::to_string(i) + " is damaged");
                continue;
            }
            Meta m;
            m.free = ReadDb(p + 40);
            m.main = ReadDb(p + 88);
            m.lastPage = LoadLe64(p + 136);
            m.txnid = LoadLe64(p + 144);
            metas[i] = m;
        }
        if (!metas[0] || !metas[1]) return false;
        meta_ = metas[0]->txnid < metas[1]->txnid ? *metas[1] : *metas[0];
        if (meta_.lastPage < 1 || meta_.lastPage >= (uint64_t(1) << 48) / psize_) {
            Fault("the meta page names last page " + std::to_string(meta_.lastPage));
            return false;
        }
        return true;
    }

    // Pages past the end of the file may only be free ones.
    void CheckLength() {
        if (meta_.lastPage < filePages_) return;
        std::vector<bool> freed(size_t(meta_.lastPage - filePages_ + 1));
        uint64_t budget = full_ ? ~uint64_t(0) : kCheapFreePages;
        bool whole = true;
        ForEachFree(budget, whole, [&](uint64_t pg) {
            if (pg >= filePages_ && pg <= meta_.lastPage) freed[size_t(pg - filePages_)] = true;
        });
        if (!whole || std::find(freed.begin(), freed.end(), false) != freed.end())
            Fault("the file ends at page " + std::to_string(filePages_) + " before its last page " +
                  std::to_string(meta_.lastPage));
    }

    bool CheckDb(const std::string& name, const DbRecord& db) {
        if (db.root == kInvalidPage) {
            if (db.depth || db.entries || db.branch || db.leaf || db.overflow) {
                Fault(name + " is empty but counts pages or entries");
                return false;
            }
            return true;
        }
        if (db.root < 2 || db.root > meta_.lastPage || db.depth < 1 || db.depth > kMaxDepth) {
            Fault(name + " has root page " + std::to_string(db.root) + " and depth " +
                  std::to_string(db.depth));
            return false;
        }
        return true;
    }

    void CheckRoot(const std::string& name, const DbRecord& db) {
        if (!CheckDb(name, db) || db.root == kInvalidPage) return;
        std::vector<uint8_t> page;
        if (!Read(db.root, 1, page)) {
            Fault(name + ": root page " + std::to_string(db.root) + " lies past the end");
            return;
        }
        uint16_t type = LoadLe16(page.data() + 10) & kTypeBits;
        if (LoadLe64(page.data()) != db.root || type != (db.depth == 1 ? kLeaf : kBranch))
            Fault(name + ": root page " + std::to_string(db.root) + " is damaged");
    }

    struct Counts {
        uint64_t branch = 0, leaf = 0, overflow = 0, entries = 0;
    };

    void Walk(const std::string& name, const DbRecord& db, Order order, const LeafFn& onLeaf) {
        if (!CheckDb(name, db) || db.root == kInvalidPage) return;
        Counts c;
        int leafDepth = 0;
        Visit(name, db.root, 1, Key(), Key(), order, onLeaf, c, leafDepth);
        if (leafDepth && leafDepth != db.depth)
            Fault(name + " has depth " + std::to_string(db.depth) + " but leaves at " +
                  std::to_string(leafDepth));
        if (!full_) return;
        if (c.branch != db.branch || c.leaf != db.leaf || c.overflow != db.overflow ||
            c.entries != db.entries)
            Fault(name + " counts " + std::to_string(db.entries) + " entries in " +
                  std::to_string(db.branch + db.leaf + db.overflow) + " pages but holds " +
                  std::to_string(c.entries) + " in " +
                  std::to_string(c.branch + c.leaf + c.overflow));
    }

    // Marks a page used; false when it was already (or lies outside the file).
    bool Use(const std::string& name, uint64_t pgno, const char* as) {
        if (pgno < 2 || pgno > meta_.lastPage) {
            Fault(name + ": page " + std::to_string(pgno) + " lies outside the file");
            return false;
        }
        if (!full_ || pgno >= used_.size()) return true;
        if (used_[size_t(pgno)]) {
            Fault(name + ": page " + std::to_string(pgno) + " is reached again as " + as);
            return false;
        }
        used_[size_t(pgno)] = 1;
        return true;
    }

    void Visit(const std::string& name, uint64_t pgno, int level, const Key& low, const Key& high,
               Order order, const LeafFn& onLeaf, Counts& c, int& leafDepth) {
        if (level > kMaxDepth) {
            Fault(name + ": deeper than " + std::to_string(kMaxDepth) + " levels");
            return;
        }
        // Without the record of pages seen, a damaged tree could lead back
        // to the same pages again and again: the cheap check stops early.
        if (!full_ && ++visits_ > kCheapVisits) {
            if (visits_ == kCheapVisits + 1) Fault(name + ": more pages than a main tree has");
            return;
        }
        if (!Use(name, pgno, "a tree page")) return;
        std::vector<uint8_t> page;
        std::string where = name + ": page " + std::to_string(pgno);
        if (!Read(pgno, 1, page)) {
            Fault(where + " lies past the end of the file");
            return;
        }
        const uint8_t* p = page.data();
        uint16_t type = LoadLe16(p + 10) & kTypeBits;
        uint16_t lower = LoadLe16(p + 12), upper = LoadLe16(p + 14);
        if (LoadLe64(p) != pgno) {
            Fault(where + " carries the number " + std::to_string(LoadLe64(p)));
            return;
        }
        if (type != kBranch && type != kLeaf) {
            Fault(where + " is not a tree page (flags " + std::to_string(LoadLe16(p + 10)) + ")");
            return;
        }
        if (lower < kHeader + 2 || (lower - kHeader) % 2 || lower > upper || upper > psize_) {
            Fault(where + " has free space from " + std::to_string(lower) + " to " +
                  std::to_string(upper));
            return;
        }
        bool leaf = type == kLeaf;
        (leaf ? c.leaf : c.branch)++;
        size_t n = (lower - kHeader) / 2;
        struct Node {
            const uint8_t* key;
            size_t klen;
            uint16_t flags;
            uint64_t value;  // data size, or child page
            const uint8_t* data;
        };
        std::vector<Node> nodes;
        for (size_t i = 0; i < n; ++i) {
            size_t off = LoadLe16(p + kHeader + 2 * i);
            std::string at = where + " node " + std::to_string(i);
            if (off < upper || off % 2 || off + kNodeHeader > psize_) {
                Fault(at + " lies outside the page");
                return;
            }
            const uint8_t* q = p + off;
            Node nd{q + kNodeHeader, LoadLe16(q + 6), LoadLe16(q + 4), 0, nullptr};
            uint64_t lohi = uint64_t(LoadLe16(q)) | (uint64_t(LoadLe16(q + 2)) << 16);
            size_t room = psize_ - off - kNodeHeader;
            if (nd.klen > kMaxKey || nd.klen > room) {
                Fault(at + " has a key of " + std::to_string(nd.klen) + " bytes");
                return;
            }
            nd.data = nd.key + nd.klen;
            room -= nd.klen;
            if (!leaf) {
                nd.value = lohi | (uint64_t(nd.flags) << 32);
            } else {
                nd.value = lohi;
                size_t need = (nd.flags & kBigData) ? 8 : size_t(lohi);
                if ((nd.flags & ~(kBigData | kSubData)) || nd.flags == (kBigData | kSubData) ||
                    need > room) {
                    Fault(at + " holds data it has no room for (flags " + std::to_string(nd.flags) +
                          ")");
                    return;
                }
            }
            nodes.push_back(nd);
        }
        // Keys ascend within the page and stay within what the parent allows.
        for (size_t i = leaf ? 0 : 1; i < n; ++i) {
            const Node& nd = nodes[i];
            if (order == Order::U32 && nd.klen != 4) {
                Fault(where + " node " + std::to_string(i) + " has a key of " +
                      std::to_string(nd.klen) + " bytes");
                return;
            }
            bool after = i > (leaf ? 0u : 1u) ? Compare(order, nodes[i - 1].key, nodes[i - 1].klen,
                                                        nd.key, nd.klen) < 0
                                              : true;
            bool above = !low || Compare(order, reinterpret_cast<const uint8_t*>(low->data()),
                                         low->size(), nd.key, nd.klen) <= 0;
            bool below =
                !high || Compare(order, nd.key, nd.klen,
                                 reinterpret_cast<const uint8_t*>(high->data()), high->size()) < 0;
            if (!after || !above || !below) {
                Fault(where + " has its keys out of order at node " + std::to_string(i));
                return;
            }
        }
        if (leaf) {
            if (leafDepth && leafDepth != level)
                Fault(where + " is a leaf at depth " + std::to_string(level) + ", others at " +
                      std::to_string(leafDepth));
            if (!leafDepth) leafDepth = level;
            for (const Node& nd : nodes) {
                c.entries++;
                if (nd.flags & kBigData) {
                    std::vector<uint8_t> big;
                    if (!Overflow(name, LoadLe64(nd.data), nd.value, c, onLeaf ? &big : nullptr))
                        continue;
                    if (onLeaf) onLeaf(nd.key, nd.klen, big.data(), big.size(), nd.flags);
                } else if (onLeaf) {
                    onLeaf(nd.key, nd.klen, nd.data, size_t(nd.value), nd.flags);
                }
            }
            return;
        }
        for (size_t i = 0; i < n; ++i) {
            Key lo =
                i == 0
                    ? low
                    : Key(std::string(reinterpret_cast<const char*>(nodes[i].key), nodes[i].klen));
            Key hi = i + 1 < n ? Key(std::string(reinterpret_cast<const char*>(nodes[i + 1].key),
                                                 nodes[i + 1].klen))
                               : high;
            Visit(name, nodes[i].value, level + 1, lo, hi, order, onLeaf, c, leafDepth);
        }
    }

    // An overflow run holding `size` bytes of data; `data`, when given,
    // receives them.
    bool Overflow(const std::string& name, uint64_t pgno, uint64_t size, Counts& c,
                  std::vector<uint8_t>* data) {
        std::string where = name + ": overflow page " + std::to_string(pgno);
        if (pgno < 2 || pgno > meta_.lastPage) {
            Fault(where + " lies outside the file");
            return false;
        }
        uint8_t head[kHeader];
        if (!ReadAt(pgno * psize_, kHeader, head)) {
            Fault(where + " lies past the end of the file");
            return false;
        }
        uint32_t pages = LoadLe32(head + 12);
        if (LoadLe64(head) != pgno || (LoadLe16(head + 10) & kTypeBits) != kOverflow ||
            pages == 0 || pages - 1 > meta_.lastPage - pgno ||
            uint64_t(pages) * psize_ - kHeader < size) {
            Fault(where + " is damaged");
            return false;
        }
        for (uint64_t i = 0; i < pages; ++i)
            if (!Use(name, pgno + i, "an overflow page")) return false;
        c.overflow += pages;
        if (data) {
            std::vector<uint8_t> run;
            if (!Read(pgno, pages, run)) {
                Fault(where + " lies past the end of the file");
                return false;
            }
            data->assign(run.begin() + kHeader, run.begin() + kHeader + long(size));
        } else if (pgno + pages > filePages_) {
            Fault(where + " lies past the end of the file");
            return false;
        }
        return true;
    }

    // Calls `fn` for every page the free list names, reading at most
    // `budget` pages of it; `whole` turns false when it could not be read.
    template <class F>
    void ForEachFree(uint64_t budget, bool& whole, F fn) {
        const DbRecord& db = meta_.free;
        if (db.root == kInvalidPage) return;
        if (db.root < 2 || db.root > meta_.lastPage || db.depth > kMaxDepth) {
            whole = false;
            return;
        }
        std::vector<uint64_t> stack{db.root};
        std::vector<uint8_t> page;
        while (!stack.empty() && whole) {
            if (budget-- == 0 || stack.size() > 4096) {
                whole = false;
                return;
            }
            uint64_t pg = stack.back();
            stack.pop_back();
            if (!Read(pg, 1, page) || LoadLe64(page.data()) != pg) {
                whole = false;
                return;
            }
            const uint8_t* p = page.data();
            uint16_t type = LoadLe16(p + 10) & kTypeBits, lower = LoadLe16(p + 12);
            if ((type != kLeaf && type != kBranch) || lower < kHeader || lower > psize_) {
                whole = false;
                return;
            }
            for (size_t i = 0; i < (lower - kHeader) / 2; ++i) {
                size_t off = LoadLe16(p + kHeader + 2 * i);
                if (off + kNodeHeader > psize_) {
                    whole = false;
                    return;
                }
                const uint8_t* q = p + off;
                uint64_t lohi = uint64_t(LoadLe16(q)) | (uint64_t(LoadLe16(q + 2)) << 16);
                size_t klen = LoadLe16(q + 6);
                if (type == kBranch) {
                    stack.push_back(lohi | (uint64_t(LoadLe16(q + 4)) << 32));
                    continue;
                }
                std::vector<uint8_t> big;
                const uint8_t* d = q + kNodeHeader + klen;
                if (LoadLe16(q + 4) & kBigData) {
                    Counts ignored;
                    bool wasFull = full_;
                    full_ = false;  // pages are marked by the full walk itself
                    bool ok = off + kNodeHeader + klen + 8 <= psize_ &&
                              Overflow("free list", LoadLe64(d), lohi, ignored, &big);
                    full_ = wasFull;
                    if (!ok) {
                        whole = false;
                        return;
                    }
                    d = big.data();
                } else if (off + kNodeHeader + klen + lohi > psize_) {
                    whole = false;
                    return;
                }
                uint64_t count = lohi >= 8 ? LoadLe64(d) : 0;
                if (lohi < 8 || (count + 1) * 8 != lohi) {
                    whole = false;
                    return;
                }
                for (uint64_t j = 1; j <= count; ++j)
                    fn(LoadLe64(d + 8 * j));
            }
        }
    }

    void WalkFree() {
        std::vector<uint64_t> freePages;
        Walk("free list", meta_.free, Order::U64,
             [&](const uint8_t*, size_t, const uint8_t* d, size_t dn, uint16_t) {
                 uint64_t count = dn >= 8 ? LoadLe64(d) : 0;
                 if (dn < 8 || (count + 1) * 8 != dn) {
                     Fault("free list: a record of " + std::to_string(dn) + " bytes is malformed");
                     return;
                 }
                 for (uint64_t j = 1; j <= count; ++j)
                     freePages.push_back(LoadLe64(d + 8 * j));
             });
        for (uint64_t pg : freePages) {
            if (pg < 2 || pg > meta_.lastPage) {
                Fault("free list: page " + std::to_string(pg) + " lies outside the file");
                continue;
            }
            if (pg >= used_.size()) continue;
            if (used_[size_t(pg)])
                Fault("page " + std::to_string(pg) + " is listed free but in use");
            used_[size_t(pg)] = 1;
        }
    }

    // Every page is used once or free: what is neither has been lost.
    void Account() {
        uint64_t last = std::min<uint64_t>(meta_.lastPage, used_.size() - 1);
        for (uint64_t pg = 2; pg <= last; ++pg) {
            if (used_[size_t(pg)]) continue;
            uint64_t end = pg;
            while (end + 1 <= last && !used_[size_t(end + 1)])
                ++end;
            Fault(pg == end ? "page " + std::to_string(pg) + " is neither used nor free"
                            : "pages " + std::to_string(pg) + " to " + std::to_string(end) +
                                  " are neither used nor free");
            pg = end;
        }
    }

    int fd_;
    StructureDepth depth_;
    bool full_;
    StructureResult& out_;
    uint64_t size_ = 0, filePages_ = 0;
    uint32_t psize_ = 0;
    uint64_t visits_ = 0;
    Meta meta_;
    std::vector<uint8_t> used_;
};

}  // namespace

StructureResult CheckStructure(int fd, StructureDepth depth) {
    StructureResult r;
    Examiner(fd, depth, r).Run();
    return r;
}

StructureResult CheckSettled(int fd, StructureDepth depth, int readings) {
    StructureResult r;
    for (int i = 0; i < readings; ++i) {
        r = CheckStructure(fd, depth);
        if ((r.status == 0 && r.faults.empty()) ||
            CheckStructure(fd, StructureDepth::Meta).metas == r.metas)
            return r;
    }
    r.settled = false;
    return r;
}

}  // namespace recman
