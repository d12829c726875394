#include "platform/progress_ctrl.h"

#include <algorithm>

void DDX_Control(CDataExchange& dx, int item, CProgressCtrl& control) {
    control.dialog_ = dx.dialog;
    control.item_ = item;
}

void CProgressCtrl::SetRange32(int lower, int upper) {
    lower_ = lower;
    upper_ = upper;
    if (dialog_) GetUiHost().SetProgressRange(dialog_, item_, lower, upper);
    SetPos(pos_);
}

int CProgressCtrl::SetPos(int pos) {
    int was = pos_;
    pos_ = upper_ >= lower_ ? std::clamp(pos, lower_, upper_) : pos;
    if (dialog_) GetUiHost().SetProgressPos(dialog_, item_, pos_);
    return was;
}

int CProgressCtrl::StepIt() {
    int was = pos_;
    // Past the end the bar starts again from the beginning, as the platform's does.
    int next = pos_ + step_;
    if (upper_ > lower_ && next > upper_) next = lower_ + (next - upper_);
    SetPos(next);
    return was;
}
