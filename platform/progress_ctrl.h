// CProgressCtrl: a dialog's progress bar control, drawn by the user
// interface host. It keeps its range, step and position itself.
#pragma once

#include "platform/dialog.h"

class CProgressCtrl {
  public:
    void SetRange32(int lower, int upper);
    void SetStep(int step) { step_ = step; }
    int SetPos(int pos);  // answers the previous position
    int StepIt();         // likewise
    int GetPos() const { return pos_; }

  private:
    friend void DDX_Control(CDataExchange& dx, int item, CProgressCtrl& control);
    HWND dialog_ = nullptr;
    int item_ = 0;
    int lower_ = 0, upper_ = 100, step_ = 10, pos_ = 0;
};

// Binds the control to the dialog's control `item`.
void DDX_Control(CDataExchange& dx, int item, CProgressCtrl& control);
