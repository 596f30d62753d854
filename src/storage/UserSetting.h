#pragma once

// The blocks that hold the device's state in memory: the user setting record, the copy of it that
// was last loaded or saved, the current view, and the buffer through which stored views pass.
//
// The getters hand out the blocks themselves: change fields in place, then call the matching save.
// The blocks are zero until they are loaded. Main loop only.

#include "storage/UserSettingRecord.h"

// Takes the four blocks from the heap, zero, and keeps them for good: later calls do nothing. A
// block that the heap does not give is one of the program's own instead. Comes before all other
// operations on settings and views.
void malloc_saveView();

UserSetting *GetUserSetting();

// The copy; refilled from the record first where it does not begin with the identification.
UserSetting *GetUserSetting_old();

// Makes the copy equal to the record.
void copyUserSetting();

// The preview and the program view, in the record.
ViewSetting *GetPreviewViewSetting();
ViewSetting *GetProgramViewSetting();

// The current view; rebuilt by ResetViewSetting() first where its identification is wrong.
ViewSetting *GetViewSetting();

// Makes the current view a copy of the preview, with the flags of all containers cleared.
void ResetViewSetting();

// Clears the flags of all containers, in the view's other settings and in each container's.
void clearContainerFlags(ViewSetting *view);

// The buffer that a stored view is read into and written from.
ViewSetting *GetSaveViewSetting();

// The number of the view now shown: 0 to 15, unless a loaded file says otherwise. Written by the
// loading and the reset of the user setting, and by SetCurrentView().
extern uint8_t _currentView;
uint8_t GetCurrentView();

// The resolution of the custom video format, in the record.
Resolution *GetCustomResolution();

// The video format of the external input, for which format 125 stands.
uint8_t GetExtInputFormat();
