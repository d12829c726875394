#include "resources/dialogs.h"

namespace dbfile {

namespace {

const DialogTemplate kTemplates[] = {
    {kPleaseWaitDialog,
     "Please Wait!",
     133,
     42,
     "MS Sans Serif",
     8,
     {{-1, kStaticCentred, 17, 16, 99, 8, "Creating Index..."}}},
    {kLockWaitDialog,
     "Locking...",
     235,
     113,
     "MS Sans Serif",
     8,
     {{-1, kStaticCentred, 7, 7, 221, 43,
       "You are attempting to lock a record in the file listed below.  However, someone else "
       "is currently updating it. \n\nIf you do nothing, Vexa will continue trying to lock.  "
       "\nIf you cancel, your updates will be aborted."},
      {1002, kStaticCentred, 7, 57, 221, 8, ""},
      {-1, kStatic, 82, 75, 40, 8, "Retry Count:"},
      {1003, kEditReadOnly, 126, 73, 27, 12, ""},
      {2, kPushButton, 86, 92, 63, 14, "Cancel"}}},
    {kPackProgressDialog,
     "Pack and Reindex...",
     235,
     60,
     "MS Sans Serif",
     8,
     {{1004, kStaticCentred, 7, 7, 221, 8, ""}, {1005, kProgressBar, 7, 25, 221, 12, ""}}},
    {kSelectingRecordsDialog,
     "Selecting Records...",
     235,
     75,
     "MS Sans Serif",
     8,
     {{-1, kStaticCentred, 7, 7, 221, 18,
       "Vexa is searching for records that match the given criteria.\nPlease wait...."},
      {-1, kStatic, 43, 35, 80, 8, "Records looked at so far:"},
      {1003, kEditReadOnly, 127, 33, 35, 12, ""},
      {2, kPushButton, 86, 54, 63, 14, "Cancel"}}},
};

}  // namespace

const DialogTemplate* FindDialogTemplate(unsigned id) {
    for (const DialogTemplate& t : kTemplates)
        if (t.id == id) return &t;
    return nullptr;
}

}  // namespace dbfile
