#pragma once

// The blocks that hold the device's state in memory: the user setting record, the copy of it that
// was last loaded or saved, the current view, and the buffer through which stored views pass.
//
// The getters return the blocks themselves: change fields in place, then call the matching save.
// The blocks are zero until they are loaded. Main loop only.
//
// Requires: malloc_saveView() has been called, for every other operation.

#include "storage/UserSettingRecord.h"

// Takes the four blocks from the heap, zero, and keeps them for good: later calls do nothing. A
// block that the heap does not give is replaced by one of the program's own.
void malloc_saveView();

UserSetting *GetUserSetting();

// Makes the copy equal to the record.
void copyUserSetting();

// The preview and the program view, in the record.
ViewSetting *GetPreviewViewSetting();
ViewSetting *GetProgramViewSetting();

// Makes the current view a copy of the preview, with the flags of all containers cleared.
void ResetViewSetting();

// Clears the flags of all containers, in the view's other settings and in each container's.
void clearContainerFlags(ViewSetting *view);

// The number of the view now shown: 0 to 15, unless a loaded file has another. Written by the
// loading and the reset of the user setting, and by SetCurrentView().
extern uint8_t _currentView;

// The active size of output 0, in pixels and lines.
uint32_t GetOutHActive();
uint32_t GetOutVActive();

// The resolution of the custom video format, in the record.
Resolution *GetCustomResolution();

// The video format of the external input, for which format 125 stands.
uint8_t GetExtInputFormat();

// Waiting for a later model -----------------------------------------------------------------------

// The copy. If it does not begin with the identification, it is made equal to the record first.
UserSetting *GetUserSetting_old();

// The current view. If its identification is wrong, ResetViewSetting() makes it anew first.
ViewSetting *GetViewSetting();

// The buffer that a stored view is read into and written from.
ViewSetting *GetSaveViewSetting();

// The value of _currentView.
uint8_t GetCurrentView();
