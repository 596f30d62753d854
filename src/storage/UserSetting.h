#pragma once

// The blocks that hold the device's state in memory: the user setting record, the copy of it that
// was last loaded or saved, the current view, and the buffer through which stored views pass.
//
// The getters return the blocks themselves: change fields in place, then call the matching save.
// The blocks are zero until loaded. Main loop only.
//
// Requires: malloc_saveView() has been called (for every operation but itself).

#include "storage/UserSettingRecord.h"

// Allocates the four blocks from the heap, zeroed, for good: later calls do nothing. If the heap
// has no memory for a block, a static block replaces it.
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

// The number of the view now shown: 0 to 15, unless a loaded file has another number. Written when
// the user setting is loaded or reset, and by SetCurrentView().
extern uint8_t _currentView;

// The active size of output 0, in pixels and lines.
uint32_t GetOutHActive();
uint32_t GetOutVActive();

// The resolution of the custom video format, in the record.
Resolution *GetCustomResolution();

// The video format of the external input, for which format 125 stands.
uint8_t GetExtInputFormat();

// Waiting for a later model -----------------------------------------------------------------------

// Returns the copy. If it does not begin with the identification, it is first made equal to the
// record.
UserSetting *GetUserSetting_old();

// Returns the current view. If its identification is wrong, it is first reset by
// ResetViewSetting().
ViewSetting *GetViewSetting();

// The buffer that a stored view is read into and written from.
ViewSetting *GetSaveViewSetting();

// The value of _currentView.
uint8_t GetCurrentView();
