#include "support/splay_tree.h"

#include <vector>

// Top-down splaying: the path to `probe` is split into a left tree (smaller
// elements) and a right tree (larger ones), which are joined again under
// the element reached last.
void SplayTree::Splay(const SplayElem& probe) {
    if (!root_) return;
    struct Header : SplayElem {
        int Compare(const SplayElem&) const override { return 0; }
    } header;
    SplayElem* leftMax = &header;   // largest element of the left tree
    SplayElem* rightMin = &header;  // smallest element of the right tree
    SplayElem* t = root_;
    for (;;) {
        int c = probe.Compare(*t);
        if (c < 0) {
            if (!t->left_) break;
            if (probe.Compare(*t->left_) < 0) {  // rotate right
                SplayElem* l = t->left_;
                t->left_ = l->right_;
                l->right_ = t;
                t = l;
                if (!t->left_) break;
            }
            rightMin->left_ = t;  // link right
            rightMin = t;
            t = t->left_;
        } else if (c > 0) {
            if (!t->right_) break;
            if (probe.Compare(*t->right_) > 0) {  // rotate left
                SplayElem* r = t->right_;
                t->right_ = r->left_;
                r->left_ = t;
                t = r;
                if (!t->right_) break;
            }
            leftMax->right_ = t;  // link left
            leftMax = t;
            t = t->right_;
        } else {
            break;
        }
    }
    leftMax->right_ = t->left_;
    rightMin->left_ = t->right_;
    t->left_ = header.right_;
    t->right_ = header.left_;
    root_ = t;
}

int SplayTree::Add(SplayElem* e) {
    if (!e) return 0;
    e->left_ = e->right_ = nullptr;
    if (root_) {
        Splay(*e);
        int c = e->Compare(*root_);
        if (c == 0) {
            delete e;
            return 0;
        }
        if (c < 0) {
            e->left_ = root_->left_;
            e->right_ = root_;
            root_->left_ = nullptr;
        } else {
            e->right_ = root_->right_;
            e->left_ = root_;
            root_->right_ = nullptr;
        }
    }
    root_ = e;
    ++count_;
    return 1;
}

SplayElem* SplayTree::Find(const SplayElem& probe) {
    Splay(probe);
    return root_ && probe.Compare(*root_) == 0 ? root_ : nullptr;
}

void SplayTree::Reset() {
    // Without recursion: a tree built in order can be a long chain.
    std::vector<SplayElem*> pending;
    if (root_) pending.push_back(root_);
    while (!pending.empty()) {
        SplayElem* e = pending.back();
        pending.pop_back();
        if (e->left_) pending.push_back(e->left_);
        if (e->right_) pending.push_back(e->right_);
        delete e;
    }
    root_ = nullptr;
    count_ = 0;
}
