// The library's dialog templates, as data for the user interface host.
#pragma once

#include <vector>

namespace dbfile {

enum DialogId : unsigned {
    kPleaseWaitDialog = 129,
    kLockWaitDialog = 131,
    kPackProgressDialog = 132,
    kSelectingRecordsDialog = 133
};

enum ControlKind { kStatic, kStaticCentred, kEditReadOnly, kPushButton, kProgressBar };

struct ControlTemplate {
    int id;  // -1 for a control without one
    ControlKind kind;
    int x, y, width, height;  // dialog units
    const char* text;
};

struct DialogTemplate {
    unsigned id;
    const char* caption;
    int width, height;  // dialog units
    const char* font;
    int pointSize;
    std::vector<ControlTemplate> controls;
};

// The template of `id`, or null.
const DialogTemplate* FindDialogTemplate(unsigned id);

}  // namespace dbfile
