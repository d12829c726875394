#include "dbfile/pack_progress.h"

#include "dbfile/db_file.h"
#include "resources/dialogs.h"

namespace {
constexpr int kTitle = 1004;
constexpr int kBar = 1005;
}  // namespace

CPackProgress::CPackProgress(const char* title)
    : CDialog(dbfile::kPackProgressDialog), m_strTitle(title ? title : "") {}

bool CPackProgress::Create(HWND parent) {
    if (!CDialog::Create(parent)) return false;
    m_Progress.SetStep(1);
    return true;
}

void CPackProgress::SetRange(CDbFile* file) {
    m_Progress.SetRange32(0, file ? int(file->GetRcdCount()) : 0);
    m_Progress.SetStep(1);
    m_Progress.SetPos(0);
}

void CPackProgress::DoDataExchange(CDataExchange& dx) {
    DDX_Control(dx, kBar, m_Progress);
    DDX_Text(dx, kTitle, m_strTitle);
}
